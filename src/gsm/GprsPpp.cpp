#include "gsm/GprsPpp.h"

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "foundation/Thread.h"
#include "io/FileDescriptor.h"
#include "io/FileStream.h"
#include "io/PidFile.h"

namespace {

constexpr char DaemonPath[] = "/usr/sbin/pppd";
constexpr char PidPath[] = "/var/run/ppp0.pid";
constexpr char InterfaceName[] = "ppp0";

constexpr int StepMs = 200;
constexpr int LinkUpSteps = 150;
constexpr int EndSteps = 50;

// The daemon that start() has left running, to be reaped when it ends by itself; 0: none. Nothing
// else is decided by it.
std::atomic<pid_t> leftRunning{0};

/// Whether `condition` holds at one of `steps` looks, a step apart.
template <class Condition> bool comesTrue(int steps, Condition condition) {
    for (int step = 0; step < steps; ++step) {
        if (condition())
            return true;
        Thread::sleep(StepMs);
    }
    return false;
}

bool sendSignal(pid_t pid, int signal) {
    return io::isOtherProcess(pid) && ::kill(pid, signal) == 0;
}

/// Waits for the end of a child. One that is no child, or is reaped already, counts as ended.
void reap(pid_t pid) {
    if (!io::isOtherProcess(pid))
        return;
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {}
}

/// True also for one that was reaped before.
bool reapIfEnded(pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) != 0; }

/// Takes note of a daemon's end: nobody else waits for it.
void reapEndedDaemon() {
    const io::NoCancellation scope;
    const pid_t pid = leftRunning.exchange(0);
    if (pid != 0 && !reapIfEnded(pid))
        leftRunning = pid;
}

/// A daemon that is not up yet. Unless released it is killed, also when the thread that waits for
/// it is cancelled.
class StartingDaemon {
public:
    explicit StartingDaemon(pid_t childPid) : pid(childPid) {}
    StartingDaemon(const StartingDaemon&) = delete;
    StartingDaemon& operator=(const StartingDaemon&) = delete;
    ~StartingDaemon() {
        if (pid == 0)
            return;
        const io::NoCancellation scope;
        sendSignal(pid, SIGKILL);
        reap(pid);
        ::unlink(PidPath);  // after its last chance to make one
    }

    void release() { leftRunning = std::exchange(pid, 0); }

    /// Asks it to end and gives it time to. True when it has ended, and has been reaped.
    bool terminate() {
        const pid_t ending = pid;
        if (!sendSignal(ending, SIGTERM) ||
            !comesTrue(EndSteps, [ending] { return reapIfEnded(ending); }))
            return false;
        pid = 0;
        ::unlink(PidPath);
        return true;
    }

private:
    pid_t pid;
};

bool isLinkUp() {
    const io::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::memcpy(request.ifr_name, InterfaceName, sizeof InterfaceName);
    return ::ioctl(socket.get(), SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_UP);
}

std::vector<const char*> argumentsOf(const char* device, const GPRSPPP_PARAMETERS& parameters) {
    const auto text = [](const char* given) { return given ? given : ""; };
    std::vector<const char*> arguments{"pppd", device};
    const auto add = [&arguments](std::initializer_list<const char*> more) {
        arguments.insert(arguments.end(), more);
    };
    if (parameters.useAuth)
        add({"user", text(parameters.user), "password", text(parameters.password)});
    add({"nodetach"});
    if (parameters.debug)
        add({"debug", "record", "/tmp/traffic.log", "logfile", "/tmp/pppd_debug.log"});
    if (parameters.persist)
        add({"persist", "maxfail", "0"});
    add({"call", "gprs-data", nullptr});
    return arguments;
}

/// Runs the daemon in a child. Between fork and exec only calls that are safe in a signal handler.
pid_t launch(const std::vector<const char*>& arguments) {
    constexpr long MostDescriptors = 4096;
    const long descriptors = std::min(sysconf(_SC_OPEN_MAX), MostDescriptors);
    auto* const argv = const_cast<char* const*>(arguments.data());  // execvp() changes none of them
    const pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    ::setpgid(0, 0);
    // The daemon must not hold the application's devices, least of all the masters of the virtual
    // ports, which can be opened only once.
    for (int descriptor = STDERR_FILENO + 1; descriptor < descriptors; ++descriptor)
        ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    ::execvp(DaemonPath, argv);
    ::_exit(-1);
}

}  // namespace

bool GprsPpp::start(const char* device, GPRSPPP_PARAMETERS* parameters) {
    if (!device || !parameters)
        return false;
    reapEndedDaemon();
    const pid_t pid = launch(argumentsOf(device, *parameters));
    if (pid < 0)
        return false;
    StartingDaemon daemon(pid);
    if (comesTrue(LinkUpSteps, [] { return getDaemonPID() >= 0 && isLinkUp(); })) {
        daemon.release();
        return true;
    }
    daemon.terminate();
    return false;
}

bool GprsPpp::stop() {
    const pid_t pid = getDaemonPID();
    if (pid < 0)
        return false;
    if (!sendSignal(pid, SIGTERM) || !comesTrue(EndSteps, [] { return getDaemonPID() < 0; })) {
        sendSignal(pid, SIGKILL);
        ::unlink(PidPath);
    }
    reap(pid);
    // From now on the number may be another child's.
    pid_t reaped = pid;
    leftRunning.compare_exchange_strong(reaped, 0);
    return true;
}

bool GprsPpp::isRunning() {
    reapEndedDaemon();
    return getDaemonPID() >= 0;
}

int GprsPpp::getDaemonPID() {
    const io::FileStream file = io::openStream(PidPath, "r");
    return file ? io::readProcessId(file.get()) : -1;
}
