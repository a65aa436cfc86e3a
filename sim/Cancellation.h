#pragma once

#include <pthread.h>

namespace sim {

/// Keeps the calling thread from being cancelled for the length of a scope: a model is never left
/// half way, and most of the interposed calls may not unwind.
class CancellationOff {
public:
    CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;
    ~CancellationOff() { pthread_setcancelstate(before, nullptr); }

private:
    int before = 0;
};

}  // namespace sim
