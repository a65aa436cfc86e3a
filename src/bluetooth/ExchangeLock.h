#pragma once

#include "foundation/Cond.h"
#include "foundation/Mutex.h"

namespace bluetooth {

/// A lock like Mutex that may also be left held for good, be waited for by the thread that left it
/// so, and be destroyed in that state: none of that is in order with a plain lock. Waiting for it
/// is a cancellation point.
class ExchangeLock {
public:
    bool lock() {
        const LockGuard<Cond> guard(released);
        while (isHeld)
            released.wait();
        isHeld = true;
        return true;
    }

    void unlock() {
        const LockGuard<Cond> guard(released);
        isHeld = false;
        released.signal();
    }

private:
    Cond released;
    bool isHeld = false;  // guarded by released
};

}  // namespace bluetooth
