#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace sim {

/// While one exists, the thread that made it lives on the host's clock: its clock reads, sleeps and
/// timed waits are not simulated. For the simulator's own threads and for waits of a test.
class HostTime {
public:
    HostTime() : before(active) { active = true; }
    HostTime(const HostTime&) = delete;
    HostTime& operator=(const HostTime&) = delete;
    ~HostTime() { active = before; }

    static bool isActive() { return active; }

private:
    static thread_local bool active;
    bool before;
};

/// A moment of the host's time up to which somebody waits.
class HostDeadline {
public:
    explicit HostDeadline(std::chrono::nanoseconds fromNow);

    bool passed() const;

    /// Waits for a notification. False once the moment has passed.
    bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock) const;

private:
    std::chrono::steady_clock::time_point moment;
};

void pauseBriefly();  ///< about a millisecond of the host's time

/// Looks at `condition` about every millisecond of host time until it is true or `limit` has
/// passed. Its last answer.
template <class Condition> bool eventually(Condition condition, std::chrono::nanoseconds limit) {
    const HostDeadline deadline(limit);
    while (!condition()) {
        if (deadline.passed())
            return condition();
        pauseBriefly();
    }
    return true;
}

}  // namespace sim
