#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "foundation/Mutex.h"
#include "foundation/Thread.h"
#include "support/Eventually.h"

namespace test {

/// A worker thread with any body; it is stopped with its scope.
class Worker : public Thread {
public:
    using Body = std::function<void(Worker&)>;

    explicit Worker(Body workerBody) : body(std::move(workerBody)) {}
    ~Worker() override { terminate(); }

    void run() override { body(*this); }

private:
    Body body;
};

/// A body that does what it is asked.
inline void obey(Worker& worker) {
    while (!worker.stopRequested())
        Thread::sleep(1);
}

/// A body that only a cancellation ends.
inline void ignoreRequests(Worker&) {
    for (;;)
        Thread::sleep(1000);
}

/// Whether another thread can take the lock.
template <class Lock> bool isFree(Lock& lock) {
    std::atomic<bool> taken{false};
    Worker taker([&](Worker&) {
        const LockGuard<Lock> held(lock);
        taken = true;
    });
    return taker.start() && soon([&] { return taken.load(); });
}

}  // namespace test
