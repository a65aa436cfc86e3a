#pragma once

#include <pthread.h>

#include "foundation/Cond.h"

/// A worker thread with a cooperative stop and a forced one. Every worker of the library derives
/// from it and overrides run(), which polls stopRequested() and returns when that is true.
///
/// The owner starts, stops and destroys it; the operations may be called from any thread, and
/// several threads may stop the same worker at once. A worker that has returned from run() keeps
/// its handle until stop() or terminate() has joined it; only then can it be started again.
///
/// A forced stop cancels the worker at its next cancellation point: run() owns what it uses by
/// scope. The destructor neither stops nor joins; the owner has done so before.
class Thread {
public:
    Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    virtual ~Thread() = default;

    /// The worker's body. The base version returns at once.
    virtual void run();

    /// Starts the worker on a stack of 512 KiB. False if a worker is still held (also one that has
    /// finished but was not stopped) or if no thread could be created; the object is idle then.
    bool start();

    /// Asks the worker to stop, waits in steps of 100 ms up to `timeoutMs` (rounded up to the next
    /// step; 0 or less: not at all), then cancels it. With `interrupt` it also sends SIGUSR1 first,
    /// to end a blocking call. True when the worker is gone; false when there was none, when it is
    /// the calling thread itself (which is then only asked to stop), or when it could not be
    /// cancelled: such a worker is abandoned, and the object can be started again.
    ///
    /// After a cancellation it waits for the worker to reach a cancellation point and unwind.
    bool stop(int timeoutMs, bool interrupt);

    /// Cancels the worker and waits for its end. False when there is none or it cannot be cancelled
    /// (the handle is kept then), or when it is the calling thread itself.
    bool terminate();

    /// Sends SIGUSR1 to the worker, which ends a blocking system call with EINTR. True when there
    /// is a worker, whatever became of the signal.
    bool interrupt();

    /// Asks the worker to stop and returns at once. Without a worker it has no effect.
    void requestStop();

    /// What the worker polls.
    bool stopRequested();

    /// Notes that run() has returned. Called by the start routine.
    void reportStopped();

    /// Sleeps `ms` milliseconds. False when a signal cut the sleep short; it is not resumed.
    static bool sleep(int ms);

    /// The handler of SIGUSR1, installed by every start(). It does nothing: that it exists makes
    /// the signal end blocking calls.
    static void signalHandler(int signal);

    /// The start routine; `thread` is the Thread.
    static void* threadRun(void* thread);

private:
    void awaitJoin();
    bool join();
    bool cancelAndJoin(bool abandonOnFailure);

    Cond guard;  // a condition, so that a second stopper can wait for the first one's join

    // Guarded by `guard`, never held across a join: a worker that is just returning takes it.
    pthread_t handle = 0;
    bool stopRequestedFlag = false;
    bool stopped = false;
    bool joining = false;     // one thread is in pthread_join; the handle is still held
    unsigned startRound = 0;  // tells a stopper that another worker has been started
};
