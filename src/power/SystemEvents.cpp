#include "power/SystemEvents.h"

#include <pthread.h>

#include "gui/GuiLibrary.h"

namespace events {

namespace {

constexpr int AttemptMs = 1000;

bool lockUnlessStopped(Thread& worker) {
    while (!GuiLibrary::timedlock(AttemptMs)) {
        if (worker.stopRequested())
            return false;
        // Who stopped asking has cancelled the worker, and may wait for its end with the lock held.
        pthread_testcancel();
    }
    return true;
}

}  // namespace

WindowingGuard::WindowingGuard() { GuiLibrary::lock(); }

WindowingGuard::~WindowingGuard() { GuiLibrary::unlock(); }

WorkerWindowingGuard::WorkerWindowingGuard(Thread& worker) : held(lockUnlessStopped(worker)) {}

WorkerWindowingGuard::~WorkerWindowingGuard() {
    if (held)
        GuiLibrary::unlock();
}

}  // namespace events
