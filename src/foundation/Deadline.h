#pragma once

#include <sys/time.h>

#include <ctime>

namespace foundation {

/// The wall-clock moment `timeoutMs` milliseconds from now, to the microsecond.
/// A negative time-out gives a moment that has passed, so that a wait for it ends at once.
inline timespec deadlineAfter(int timeoutMs) {
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

}  // namespace foundation
