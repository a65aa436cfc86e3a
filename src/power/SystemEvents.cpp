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
        // A stopper whose patience has ended cancels the worker, and may hold this very lock while
        // it waits for the worker to unwind.
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
