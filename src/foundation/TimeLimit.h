#pragma once

#include <algorithm>
#include <chrono>

namespace foundation {

/// How much is left of a time-out that spans several waits. A change of the system time does not
/// move it.
class TimeLimit {
public:
    explicit TimeLimit(int timeoutMs) : end(Clock::now() + std::chrono::milliseconds(timeoutMs)) {}

    /// Rounded up, so that a wait for it does not end just before; 0 when it has passed.
    int leftMs() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        return static_cast<int>(std::max<decltype(left)>(left, 0));
    }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point end;
};

}  // namespace foundation
