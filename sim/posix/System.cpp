// What changes the system: done to the simulated terminal, or refused.

#include <sched.h>
#include <sys/klog.h>
#include <sys/mount.h>
#include <sys/quota.h>
#include <sys/reboot.h>
#include <sys/swap.h>
#include <unistd.h>

#include <cerrno>

#include "sim/Cancellation.h"
#include "sim/HostTime.h"
#include "sim/posix/Real.h"
#include "sim/posix/Router.h"

using sim::failWith;
using sim::Terminal;

namespace {

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
int acct(const char*) noexcept { return failWith(EPERM); }
int klogctl(int, char*, int) noexcept { return failWith(EPERM); }
int quotactl(int, const char*, int, caddr_t) noexcept { return failWith(EPERM); }
int setns(int, int) noexcept { return failWith(EPERM); }
int iopl(int) noexcept { return failWith(EPERM); }
int ioperm(unsigned long, unsigned long, int) noexcept { return failWith(EPERM); }

// Mounting in steps. The terminal's kernel has only mount().
int fsopen(const char*, unsigned) noexcept { return failWith(EPERM); }
int fspick(int, const char*, unsigned) noexcept { return failWith(EPERM); }
int fsmount(int, unsigned, unsigned) noexcept { return failWith(EPERM); }
int open_tree(int, const char*, unsigned) noexcept { return failWith(EPERM); }
int move_mount(int, const char*, int, const char*, unsigned) noexcept { return failWith(EPERM); }
int mount_setattr(int, const char*, unsigned, struct mount_attr*, size_t) noexcept {
    return failWith(EPERM);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    const int error = sim::HostTime::isActive() ? 0 : sim::faultOf("pthread_create");
    return error != 0 ? error : SIM_REAL(pthread_create)(thread, attributes, body, argument);
}

}  // extern "C"
