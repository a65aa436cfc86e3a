#pragma once

#include <pthread.h>

/// A condition variable together with the lock that guards its condition.
///
/// Any number of threads may wait; signal() wakes one of them. A signal that must not be lost is
/// sent between lock() and unlock(). Waiting is a cancellation point; a cancelled waiter holds the
/// lock again while it unwinds, so the wait belongs inside a LockGuard.
class Cond {
public:
    Cond() = default;
    Cond(const Cond&) = delete;
    Cond& operator=(const Cond&) = delete;

    /// Unlocks before destroying: an object that is destroyed while held does not fail to destroy.
    virtual ~Cond();

    /// Waits for ever. False only when the system refuses the lock.
    bool lock() { return pthread_mutex_lock(&mutex) == 0; }

    /// Lets go of the lock.
    void unlock() { pthread_mutex_unlock(&mutex); }

    /// Waits for ever for a signal; the caller holds the lock. False on an error.
    bool wait();

    /// Waits up to `timeoutMs` milliseconds (0 or less: not at all); the caller holds the lock.
    /// False on time-out or error. The deadline is wall-clock time, so a change of the system time
    /// moves it.
    bool wait(int timeoutMs);

    /// Wakes one waiter, if there is any. Takes no lock itself.
    void signal() { pthread_cond_signal(&condition); }

private:
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
};
