#include "foundation/Thread.h"

#include <csignal>
#include <ctime>

#include "foundation/Mutex.h"

namespace {

using Guard = LockGuard<Cond>;

constexpr size_t StackSize = 0x80000;
constexpr int StopStepMs = 100;

// The Thread whose worker the calling thread is. Not told from the handle: while another thread is
// joining the worker, the handle may already belong to a stranger.
thread_local const Thread* current = nullptr;

/// Before the worker exists: an interruption may reach it before its first instruction, and without
/// a handler would end the program.
void installHandler() {
    struct sigaction action {};
    action.sa_handler = Thread::signalHandler;
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, nullptr);  // no SA_RESTART: blocking calls end with EINTR
}

}  // namespace

void Thread::run() {}

bool Thread::start() {
    Guard held(guard);
    if (handle != 0)
        return false;
    stopped = false;
    stopRequestedFlag = false;
    ++startRound;
    installHandler();
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, StackSize);
    const int result = pthread_create(&handle, &attributes, threadRun, this);
    pthread_attr_destroy(&attributes);
    if (result != 0)
        handle = 0;
    return result == 0;
}

bool Thread::stop(int timeoutMs, bool interrupt) {
    Guard held(guard);
    if (current == this) {
        stopRequestedFlag = true;
        return false;
    }
    awaitJoin();
    if (handle == 0)
        return false;
    if (stopped)
        return join();
    stopRequestedFlag = true;
    if (interrupt)
        pthread_kill(handle, SIGUSR1);

    const unsigned round = startRound;
    for (int elapsed = 0; elapsed < timeoutMs && !stopped;) {
        elapsed += StopStepMs;
        {
            LockPause<Cond> pause(guard);
            sleep(StopStepMs);
        }
        awaitJoin();
        if (handle == 0 || round != startRound)
            return true;
    }
    stopRequestedFlag = false;
    if (stopped)
        return join();
    return cancelAndJoin(true);
}

bool Thread::terminate() {
    if (current == this)
        return false;
    Guard held(guard);
    awaitJoin();
    if (handle == 0)
        return false;
    return cancelAndJoin(false);
}

/// Waits for a join that another thread has claimed. The signal of a finished join wakes one
/// waiter; each hands it on to the next.
void Thread::awaitJoin() {
    while (joining)
        guard.wait();
    guard.signal();
}

/// Joins outside the guard, then releases the handle. The caller holds the guard, before and after.
bool Thread::join() {
    joining = true;
    const pthread_t worker = handle;
    guard.unlock();
    int oldState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &oldState);  // a claimed join is carried through
    pthread_join(worker, nullptr);
    guard.lock();
    handle = 0;
    joining = false;
    guard.signal();
    pthread_setcancelstate(oldState, nullptr);
    return true;
}

bool Thread::cancelAndJoin(bool abandonOnFailure) {
    if (pthread_cancel(handle) == 0)
        return join();
    if (abandonOnFailure)
        handle = 0;
    return false;
}

bool Thread::interrupt() {
    Guard held(guard);
    if (handle == 0)
        return false;
    if (!joining)
        pthread_kill(handle, SIGUSR1);
    return true;
}

void Thread::requestStop() {
    Guard held(guard);
    if (handle != 0)
        stopRequestedFlag = true;
}

bool Thread::stopRequested() {
    Guard held(guard);
    return stopRequestedFlag;
}

void Thread::reportStopped() {
    Guard held(guard);
    stopped = true;
    stopRequestedFlag = false;
}

bool Thread::sleep(int ms) {
    const timespec interval{ms / 1000, (ms % 1000) * 1'000'000L};
    return nanosleep(&interval, nullptr) == 0;
}

#ifdef __arm__
// Does nothing, like the one below, but a cancelled worker must be able to unwind through it: a
// cancellation that arrives together with the interruption stops the handler before its first
// instruction. 32-bit ARM's unwinder takes that address for a return address and looks up the
// instruction before it, and it knows no frames whose prologue is still to come. Hence a table of
// its own that needs no prologue, from one instruction before the handler on. Without it the
// worker's locks and descriptors would never be released.
asm(R"(
    .pushsection .text
    .balign 4
    .fnstart
    nop
    .global _ZN6Thread13signalHandlerEi
    .type _ZN6Thread13signalHandlerEi, %function
_ZN6Thread13signalHandlerEi:
    bx lr
    .fnend
    .size _ZN6Thread13signalHandlerEi, . - _ZN6Thread13signalHandlerEi
    .popsection
)");
#else
void Thread::signalHandler(int) {}
#endif

void* Thread::threadRun(void* thread) {
    sigset_t interruption;
    sigemptyset(&interruption);
    sigaddset(&interruption, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &interruption, nullptr);

    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);

    auto* const worker = static_cast<Thread*>(thread);
    current = worker;
    worker->run();
    worker->reportStopped();
    pthread_exit(nullptr);
}
