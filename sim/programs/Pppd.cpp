// The PPP daemon: dials on its line and holds the link until the call or the daemon is ended.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "sim/programs/Programs.h"

namespace program {
namespace {

// Exit statuses.
constexpr int WrongOptions = 2;
constexpr int EndedBySignal = 5;
constexpr int NoLine = 7;
constexpr int NotConnected = 8;
constexpr int HungUp = 16;

constexpr char PidFile[] = "/var/run/ppp0.pid";
constexpr char Dial[] = "ATD*99***1#\r";
constexpr int DialMs = 45000;
constexpr int RedialMs = 1000;

struct Options {
    std::string device;
    bool persists = false;
};

constexpr struct {
    const char* name;
    int parameters;
} KnownOptions[] = {{"user", 1},    {"password", 1}, {"nodetach", 0}, {"debug", 0}, {"record", 1},
                    {"logfile", 1}, {"persist", 0},  {"maxfail", 1},  {"call", 1}};

bool parse(int argc, char** argv, Options& options) {
    for (int at = 1; at < argc; ++at) {
        const std::string word = argv[at];
        const auto* const known =
            std::find_if(std::begin(KnownOptions), std::end(KnownOptions),
                         [&](const auto& option) { return word == option.name; });
        if (known != std::end(KnownOptions))
            at += known->parameters;
        else if (word[0] == '/' && options.device.empty())
            options.device = word;
        else
            return false;
        options.persists = options.persists || word == "persist";
        if (at >= argc)
            return false;
    }
    return !options.device.empty();
}

class Session {
public:
    Session(const Door& terminalDoor, const Options& given)
        : door(terminalDoor), options(given), orders(door.ask({"orders"})) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { ::close(line); }

    bool isTold(const char* order) const {
        return std::find(orders.begin(), orders.end(), order) != orders.end();
    }

    /// One call, from dialling to its end. The exit status.
    int call() {
        ::close(line);
        line = ::open(door.hostPath(options.device).c_str(),
                      O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        termios raw{};
        if (line < 0 || ::tcgetattr(line, &raw) != 0)
            return NoLine;
        cfmakeraw(&raw);
        ::tcsetattr(line, TCSANOW, &raw);
        heard.clear();
        if (::write(line, Dial, sizeof Dial - 1) < 0)
            return NoLine;
        if (!hear({"CONNECT"}, DialMs))
            return isEnded ? EndedBySignal : NotConnected;
        if (!isTold("never"))
            door.ask({"up", std::to_string(getpid())});
        hear({}, -1);
        door.ask({"down"});
        return isEnded ? EndedBySignal : HungUp;
    }

    bool waitToRedial() { return !isEnded && waitUnlessEnded(door, -1, RedialMs); }

private:
    /// Listens until one of the texts has come: true; or the call is over, the daemon is told to
    /// end, or nothing has come for the time.
    bool hear(const Words& texts, int timeoutMs) {
        for (;;) {
            for (const std::string& text : texts) {
                if (passes(text))
                    return true;
            }
            if (passes("NO CARRIER") || passes("ERROR"))
                return false;
            constexpr size_t LongestText = 16;
            heard.erase(0, heard.size() - std::min(heard.size(), LongestText));
            if (!waitUnlessEnded(door, line, timeoutMs)) {
                isEnded = true;
                return false;
            }
            char buffer[512];
            const ssize_t size = ::read(line, buffer, sizeof buffer);
            if (size <= 0)  // hung up, or nothing in time
                return false;
            heard.append(buffer, static_cast<size_t>(size));
        }
    }

    /// Whether a text has been heard; with all before it, it is heard no more.
    bool passes(const std::string& text) {
        const size_t at = heard.find(text);
        if (at != std::string::npos)
            heard.erase(0, at + text.size());
        return at != std::string::npos;
    }

    const Door& door;
    const Options& options;
    const Words orders;
    std::string heard;
    int line = -1;
    bool isEnded = false;
};

}  // namespace

int pppd(Door& door, int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options))
        return WrongOptions;
    holdEndingSignals();
    const std::string pidFile = door.hostPath(PidFile);
    Session session(door, options);
    if (session.isTold("stubborn"))
        std::signal(SIGTERM, SIG_IGN);
    if (!session.isTold("no-pid-file"))
        writePidFile(pidFile);
    int status = session.call();
    while (options.persists && session.waitToRedial())
        status = session.call();
    ::unlink(pidFile.c_str());
    return status;
}

}  // namespace program
