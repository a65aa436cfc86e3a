// What changes the system or other processes: done to the simulated terminal, or refused.

#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/swap.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>

#include "sim/Cancellation.h"
#include "sim/HostTime.h"
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

/// The terminal whose mounts are changed: the process's own, not one that a child has inherited.
Terminal* mountTerminal() {
    Terminal* const terminal = Terminal::current();
    return terminal && !terminal->isInherited() ? terminal : nullptr;
}

}  // namespace

extern "C" {

int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void*) noexcept {
    const sim::CancellationOff uncancelled;
    if (sim::failsByFault("mount", target ? target : ""))
        return -1;
    Terminal* const terminal = mountTerminal();
    if (!terminal || !source || !target || !type)
        return failWith(terminal ? EFAULT : EPERM);
    return terminal->card().mount(source, target, type, flags);
}

int umount2(const char* target, int) noexcept {
    const sim::CancellationOff uncancelled;
    if (sim::failsByFault("umount", target ? target : ""))
        return -1;
    Terminal* const terminal = mountTerminal();
    if (!terminal || !target)
        return failWith(terminal ? EFAULT : EPERM);
    return terminal->card().unmount(target);
}

int umount(const char* target) noexcept { return umount2(target, 0); }

int reboot(int) noexcept { return failWith(EPERM); }
int swapon(const char*, int) noexcept { return failWith(EPERM); }
int swapoff(const char*) noexcept { return failWith(EPERM); }
int sethostname(const char*, size_t) noexcept { return failWith(EPERM); }
int setdomainname(const char*, size_t) noexcept { return failWith(EPERM); }
int pivot_root(const char*, const char*) { return failWith(EPERM); }
int chroot(const char*) noexcept { return failWith(EPERM); }
int init_module(void*, unsigned long, const char*) { return failWith(EPERM); }
int finit_module(int, const char*, int) { return failWith(EPERM); }
int delete_module(const char*, unsigned) { return failWith(EPERM); }

int kill(pid_t process, int signal) noexcept {
    return signalProcess(process, [=] { return SIM_REAL(kill)(process, signal); });
}
int killpg(pid_t group, int signal) noexcept {
    return signalProcess(group, [=] { return SIM_REAL(killpg)(group, signal); });
}
int sigqueue(pid_t process, int signal, const union sigval value) noexcept {
    return signalProcess(process, [=] { return SIM_REAL(sigqueue)(process, signal, value); });
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    const int error = sim::HostTime::isActive() ? 0 : sim::faultOf("pthread_create");
    return error != 0 ? error : SIM_REAL(pthread_create)(thread, attributes, body, argument);
}

}  // extern "C"
