// What reaches other processes: a program may signal itself and what it has started, and change how
// they run, nobody else.

#include <linux/ptrace.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <string>

#include "sim/Cancellation.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::failWith;
using sim::Terminal;

namespace {

pid_t parentOf(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(status, text);
    const size_t name = text.rfind(')');  // the name may hold anything, brackets too
    if (name == std::string::npos)
        return 0;
    char state = 0;
    int parent = 0;
    return sscanf(text.c_str() + name + 1, " %c %d", &state, &parent) == 2 ? parent : 0;
}

/// A program may signal itself and what it has started, also in the background, nobody else.
bool isOwnProcess(pid_t process) {
    const sim::CancellationOff uncancelled;
    Terminal* const terminal = Terminal::current();
    if (terminal && process > 1 && terminal->programs().isRunning(process))
        return true;
    for (const pid_t self = getpid(); process > 1; process = parentOf(process)) {
        if (process == self)
            return true;
    }
    return false;
}

/// Signals go to the program's own processes only. The terminal's other processes may not be
/// signalled; what does not exist on the host does not on the terminal either.
template <class Send> int signalProcess(pid_t process, Send send) {
    if (sim::failsByFault("kill"))
        return -1;
    if (isOwnProcess(process < -1 ? -process : process))  // negative: a group, by its leader
        return send();
    const bool exists = SIM_REAL(kill)(process, 0) == 0 || errno == EPERM;
    return failWith(exists ? EPERM : ESRCH);
}

/// The same, where 0 is the caller and a single thread of the program may be meant.
bool isOwn(pid_t thread) {
    const std::string task = "/proc/self/task/" + std::to_string(thread);
    return thread == 0 || SIM_REAL(access)(task.c_str(), F_OK) == 0 || isOwnProcess(thread);
}

template <class Call> auto onOwn(pid_t thread, Call call) -> decltype(call()) {
    return isOwn(thread) ? call() : failWith(EPERM);
}

}  // namespace

extern "C" {

int kill(pid_t process, int signal) noexcept {
    return signalProcess(process, [=] { return SIM_REAL(kill)(process, signal); });
}
int killpg(pid_t group, int signal) noexcept {
    return signalProcess(group, [=] { return SIM_REAL(killpg)(group, signal); });
}
int sigqueue(pid_t process, int signal, const union sigval value) noexcept {
    return signalProcess(process, [=] { return SIM_REAL(sigqueue)(process, signal, value); });
}

int tgkill(pid_t process, pid_t thread, int signal) {
    return signalProcess(process, [=] { return SIM_REAL(tgkill)(process, thread, signal); });
}
int pidfd_send_signal(int, int, siginfo_t*, unsigned) noexcept { return failWith(EPERM); }

int prlimit(pid_t process, __rlimit_resource resource, const rlimit* limit,
            rlimit* former) noexcept {
    return onOwn(process, [=] { return SIM_REAL(prlimit)(process, resource, limit, former); });
}
int prlimit64(pid_t process, __rlimit_resource resource, const rlimit64* limit,
              rlimit64* former) noexcept {
    return onOwn(process, [=] { return SIM_REAL(prlimit64)(process, resource, limit, former); });
}

/// A whole group or user is never the program's own.
int setpriority(__priority_which_t which, id_t who, int priority) noexcept {
    if (which != PRIO_PROCESS)
        return failWith(EPERM);
    return onOwn(static_cast<pid_t>(who),
                 [=] { return SIM_REAL(setpriority)(which, who, priority); });
}
int sched_setscheduler(pid_t thread, int policy, const sched_param* parameters) noexcept {
    return onOwn(thread, [=] { return SIM_REAL(sched_setscheduler)(thread, policy, parameters); });
}
int sched_setparam(pid_t thread, const sched_param* parameters) noexcept {
    return onOwn(thread, [=] { return SIM_REAL(sched_setparam)(thread, parameters); });
}
int sched_setaffinity(pid_t thread, size_t size, const cpu_set_t* processors) noexcept {
    return onOwn(thread, [=] { return SIM_REAL(sched_setaffinity)(thread, size, processors); });
}

long ptrace(int request, ...) noexcept {
    va_list rest;
    va_start(rest, request);
    const auto process = va_arg(rest, pid_t);
    void* const address = va_arg(rest, void*);
    void* const data = va_arg(rest, void*);
    va_end(rest);
    if (request == PTRACE_TRACEME)
        return SIM_REAL(ptrace)(request, process, address, data);
    return onOwn(process, [=] { return SIM_REAL(ptrace)(request, process, address, data); });
}
ssize_t process_vm_writev(pid_t process, const iovec* local, unsigned long localCount,
                          const iovec* remote, unsigned long remoteCount,
                          unsigned long flags) noexcept {
    return onOwn(process, [=] {
        return SIM_REAL(process_vm_writev)(process, local, localCount, remote, remoteCount, flags);
    });
}

}  // extern "C"
