#pragma once

#include <pthread.h>

/// A plain, non-recursive lock.
///
/// Any thread may lock it; the thread that locked it unlocks it. Library code takes it through
/// MutexGuard, so that a cancelled worker lets it go while its stack unwinds.
class Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Unlocks before destroying: an object that is destroyed while held does not fail to destroy.
    virtual ~Mutex() {
        // Held or not: after this the unlock is in order.
        static_cast<void>(pthread_mutex_trylock(&mutex));
        unlock();
        pthread_mutex_destroy(&mutex);
    }

    /// Waits for ever. False only when the system refuses the lock.
    bool lock() { return pthread_mutex_lock(&mutex) == 0; }

    /// For the thread that holds it.
    void unlock() { pthread_mutex_unlock(&mutex); }

private:
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

/// Holds a lock (Mutex or Cond) for the length of a scope, also one that ends by cancellation.
template <class Lock> class LockGuard {
public:
    /// Waits for the lock.
    explicit LockGuard(Lock& lockToHold) : held(lockToHold) { held.lock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    ~LockGuard() { held.unlock(); }

private:
    Lock& held;
};

/// Lets go of a held lock for the length of a scope, and takes it again however the scope ends.
template <class Lock> class LockPause {
public:
    /// Lets go of the lock.
    explicit LockPause(Lock& heldLock) : paused(heldLock) { paused.unlock(); }
    LockPause(const LockPause&) = delete;
    LockPause& operator=(const LockPause&) = delete;
    ~LockPause() { paused.lock(); }

private:
    Lock& paused;
};

using MutexGuard = LockGuard<Mutex>;
