// The PPP daemon: dials on its line and holds the link until the call or the daemon is ended.

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>

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
constexpr char Escape[] = "+++";
constexpr char HangUp[] = "ATH\r";

// The link control's request to terminate the link, as it stands on the line.
constexpr char TerminateRequest[] =
    "\x7E\xFF\x7D\x23\xC0\x21\x7D\x25\x7D\x21\x7D\x20\x7D\x24\x3D\xC7\x7E";

// Of the terminal's time, which may pass faster.
constexpr int DialMs = 45000;
constexpr int UnansweredMs = 10000;  // a call from before is still there, and takes all for data
constexpr int SilenceMs = 1100;      // around the sequence that leaves it
constexpr int CommandMs = 1000;
constexpr int TerminateMs = 1000;
constexpr int TerminateTries = 2;
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
        ::tcflush(line, TCIFLUSH);  // what came for the one before
        heard.clear();
        if (dial() != Heard::Text)
            return isEnded ? EndedBySignal : NotConnected;
        if (!isTold("never"))
            door.ask({"up", std::to_string(getpid())});
        hear("", ForEver);
        if (isEnded)
            terminate();
        door.ask({"down"});
        return isEnded ? EndedBySignal : HungUp;
    }

    bool waitToRedial() { return !isEnded && waitUnlessEnded(door, -1, RedialMs); }

private:
    static constexpr int ForEver = -1;

    enum class Heard { Text, Over, Nothing, Ended };

    bool say(std::string_view text) const {
        return ::write(line, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }

    Heard dial() {
        const auto command = [this](const char* text, const char* answer, int timeoutMs) {
            return say(text) ? hear(answer, timeoutMs) : Heard::Over;
        };
        const Heard first = command(Dial, "CONNECT", UnansweredMs);
        if (first != Heard::Nothing)
            return first;
        if (hear("", SilenceMs) == Heard::Ended ||
            command(Escape, "OK", SilenceMs + CommandMs) == Heard::Ended ||
            command(HangUp, "OK", CommandMs) == Heard::Ended)
            return Heard::Ended;
        return command(Dial, "CONNECT", DialMs);
    }

    /// Told to end, the daemon has the module end the call, or gives up after a while.
    void terminate() {
        if (!takeEndingSignal())
            return;  // it is the terminal that has gone
        for (int tries = 0; tries < TerminateTries; ++tries) {
            if (!say(TerminateRequest) || hear("", TerminateMs) != Heard::Nothing)
                return;
        }
    }

    /// How long that is for this program, which lives on the host's time.
    int hostMs(int terminalMs) const {
        const double speed = atof(door.ask({"speed"})[0].c_str());
        return terminalMs < 0 || speed <= 0 ? terminalMs
                                            : std::max(static_cast<int>(terminalMs / speed), 1);
    }

    /// Listens for a text until it has come, the call is over, the daemon is told to end, or
    /// nothing at all has come for the time.
    Heard hear(const std::string& text, int timeoutMs) {
        const int timeout = hostMs(timeoutMs);
        for (;;) {
            if (!text.empty() && passes(text))
                return Heard::Text;
            if (passes("NO CARRIER") || passes("ERROR"))
                return Heard::Over;
            constexpr size_t LongestText = 16;
            heard.erase(0, heard.size() - std::min(heard.size(), LongestText));
            if (!waitUnlessEnded(door, line, timeout)) {
                isEnded = true;
                return Heard::Ended;
            }
            char buffer[512];
            const ssize_t size = ::read(line, buffer, sizeof buffer);
            if (size < 0 && errno == EAGAIN)
                return Heard::Nothing;
            if (size <= 0)
                return Heard::Over;
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
