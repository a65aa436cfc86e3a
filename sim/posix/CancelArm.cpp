#ifdef __arm__

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "sim/posix/Real.h"

// The C library cancels a thread that is in a blocking call by a signal, from whose handler it
// unwinds the thread's stack. It accepts that signal from shortly before the system call until
// shortly after it, and calls two small functions of its own meanwhile. A signal at the beginning
// of one of them, before it has saved anything, is more than 32-bit ARM's unwinder can follow: it
// takes the address for a return address and finds no frame there. The thread ends, but keeps its
// locks and descriptors. On a processor that is a matter of five instructions. An emulator delivers
// signals where one of its translated blocks begins, so at these functions, and meets one of them
// in every few thousand cancellations. Hence such a signal is taken as if the function had
// returned.

namespace {

constexpr int CancellationSignal = 32;  // the C library's own: its sigaction() does not know it

/// How the two functions begin (GNU C library of Debian 12, Thumb), and the index of their PUSH.
constexpr struct {
    uint16_t code[4];
    uint32_t push;
} Beginnings[] = {
    // push {r7, lr}; mov r7, ip; svc 0; pop {r7, pc}
    {{0xb580, 0x4667, 0xdf00, 0xbd80}, 0},
    // lsls r3, r0, #30; bpl .+4; bx lr; push {r4, lr}
    {{0x0783, 0xd500, 0x4770, 0xb510}, 3},
};

/// As the kernel takes it.
struct Action {
    void (*handler)(int, siginfo_t*, void*);
    unsigned long flags;
    void (*restorer)();
    unsigned long mask[2];
};

Action original;

bool exchange(int signal, const Action* action, Action* before) {
    constexpr size_t MaskSize = 8;
    return SIM_REAL(syscall)(SYS_rt_sigaction, signal, action, before, MaskSize) == 0;
}

bool isAtABeginning(uint32_t pc) {
    for (const auto& [code, push] : Beginnings) {
        for (uint32_t i = 0; i <= push; ++i) {
            const auto* const begin = reinterpret_cast<const void*>(pc - i * sizeof code[0]);
            if (std::memcmp(begin, code, sizeof code) == 0)
                return true;
        }
    }
    return false;
}

uint32_t codeOf(const void* function) { return reinterpret_cast<uint32_t>(function) & ~1U; }

/// Where the thread was, looking through an interruption whose handler has not yet begun or is
/// over: then the stack begins with what the kernel has saved there.
mcontext_t& behindAnInterruption(mcontext_t& machine) {
    Action interruption{};
    exchange(SIGUSR1, nullptr, &interruption);
    const uint32_t way = codeOf(reinterpret_cast<void*>(interruption.restorer));
    const uint32_t handler = codeOf(reinterpret_cast<void*>(interruption.handler));
    const bool isThere =
        machine.arm_pc == way || (machine.arm_pc == handler && (machine.arm_lr & ~1U) == way);
    return isThere ? reinterpret_cast<ucontext_t*>(machine.arm_sp)->uc_mcontext : machine;
}

/// The C library's handler unwinds, or comes back: then the thread goes on where it was.
void cancelWhereItCanUnwind(int signal, siginfo_t* info, void* context) {
    auto& machine = behindAnInterruption(static_cast<ucontext_t*>(context)->uc_mcontext);
    const auto pc = machine.arm_pc;
    if (isAtABeginning(pc))
        machine.arm_pc = machine.arm_lr & ~1U;
    original.handler(signal, info, context);
    machine.arm_pc = pc;
}

void* waitForTheEnd(void*) {
    for (;;)
        SIM_REAL(pause)();
}

/// The C library sets its handler with the first cancellation: here one of a thread that owns
/// nothing.
bool replaceHandler() {
    pthread_t first{};
    if (pthread_create(&first, nullptr, waitForTheEnd, nullptr) != 0)
        return false;
    SIM_REAL(pthread_cancel)(first);
    pthread_join(first, nullptr);
    if (!exchange(CancellationSignal, nullptr, &original))
        return false;
    Action action = original;
    action.handler = cancelWhereItCanUnwind;
    return exchange(CancellationSignal, &action, nullptr);
}

}  // namespace

extern "C" int pthread_cancel(pthread_t thread) {
    [[maybe_unused]] static const bool isReplaced = replaceHandler();
    return SIM_REAL(pthread_cancel)(thread);
}

#endif
