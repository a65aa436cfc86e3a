#pragma once

#include <pthread.h>

namespace io {

/// Keeps the calling thread from being cancelled for the length of a scope. For destructors that
/// pass a cancellation point such as close(): an unwinding that starts there would end the program.
class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    ~NoCancellation() { pthread_setcancelstate(former, nullptr); }

private:
    int former = PTHREAD_CANCEL_ENABLE;
};

}  // namespace io
