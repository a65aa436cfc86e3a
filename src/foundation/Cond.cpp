#include "foundation/Cond.h"

#include <sys/time.h>

#include <ctime>

namespace {

/// The wall-clock moment `timeoutMs` milliseconds from now, to the microsecond.
/// A negative time-out gives a moment that has passed, so that a wait for it ends at once.
timespec deadlineAfter(int timeoutMs) {
    constexpr long PerSecond = 1'000'000;
    timeval now{};
    gettimeofday(&now, nullptr);
    if (timeoutMs < 0)
        timeoutMs = 0;
    const long microseconds = static_cast<long>(now.tv_usec) + (timeoutMs % 1000) * 1000L;
    const long carry = microseconds / PerSecond;
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + timeoutMs / 1000 + carry;
    deadline.tv_nsec = (microseconds - carry * PerSecond) * 1000;
    return deadline;
}

}  // namespace

Cond::~Cond() {
    // Held or not: after this the unlock is in order.
    static_cast<void>(pthread_mutex_trylock(&mutex));
    unlock();
    pthread_mutex_destroy(&mutex);
    pthread_cond_destroy(&condition);
}

bool Cond::wait() { return pthread_cond_wait(&condition, &mutex) == 0; }

bool Cond::wait(int timeoutMs) {
    const timespec deadline = deadlineAfter(timeoutMs);
    return pthread_cond_timedwait(&condition, &mutex, &deadline) == 0;
}
