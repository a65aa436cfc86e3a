#pragma once

#include "foundation/Cond.h"

/// An event signal for one waiting thread. It keeps no count: a post() that finds no waiter is
/// lost, so a waiter always gives a time-out and looks at its own condition again.
class Semaphore {
public:
    Semaphore() = default;
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    virtual ~Semaphore() = default;

    /// Waits for ever for a post. False on an error.
    bool pend();

    /// Waits up to `timeoutMs` milliseconds of wall-clock time (0 or less: not at all). False on
    /// time-out or error.
    bool pend(int timeoutMs);

    /// Wakes one waiter; without one nothing happens.
    void post();

private:
    Cond event;
};
