// System calls by their number: those that have no function of their own in libc, or that somebody
// calls past it. The C++ library and the sanitizers do: all others pass.

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>

#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

namespace {

/// What would change the host's system.
constexpr long Refused[] = {
    SYS_reboot,           SYS_kexec_load,      SYS_init_module,  SYS_finit_module,
    SYS_delete_module,    SYS_swapon,          SYS_swapoff,      SYS_sethostname,
    SYS_setdomainname,    SYS_pivot_root,      SYS_chroot,       SYS_acct,
    SYS_syslog,           SYS_setns,           SYS_mount,        SYS_umount2,
    SYS_fsopen,           SYS_fspick,          SYS_fsmount,      SYS_open_tree,
    SYS_move_mount,       SYS_mount_setattr,   SYS_settimeofday, SYS_clock_settime,
    SYS_adjtimex,         SYS_clock_adjtime,
#ifdef SYS_clock_settime64
    SYS_clock_settime64,  SYS_clock_adjtime64,
#endif
    SYS_pidfd_send_signal};

using SystemCall = decltype(&::syscall);

/// Found without a lock: whoever waits for one comes by here.
SystemCall realCall() {
    static std::atomic<SystemCall> found{nullptr};
    SystemCall call = found;
    if (!call) {
        call = reinterpret_cast<SystemCall>(sim::nextDefinition("syscall"));
        found = call;
    }
    return call;
}

}  // namespace

/// Arguments that have not been given are read as well, as the real call does.
extern "C" __attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept {
    long given[6];
    va_list rest;
    va_start(rest, number);
    for (long& argument : given)
        argument = va_arg(rest, long);
    va_end(rest);
    if (std::find(std::begin(Refused), std::end(Refused), number) != std::end(Refused))
        return sim::failWith(EPERM);
    const auto first = static_cast<pid_t>(given[0]);
    if (number == SYS_kill)
        return kill(first, static_cast<int>(given[1]));
    if (number == SYS_tgkill)
        return tgkill(first, static_cast<pid_t>(given[1]), static_cast<int>(given[2]));
    return realCall()(number, given[0], given[1], given[2], given[3], given[4], given[5]);
}
