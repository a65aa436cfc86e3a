#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <limits>
#include <mutex>

namespace sim {

using Nanoseconds = std::chrono::nanoseconds;

/// The clocks of the simulated terminal: they start with the host's, can run faster, jump, and are
/// set without touching the host's.
///
/// One per process, since the calls it stands behind know no terminal. Any thread may use it;
/// reading takes no lock, it waits only while a change is being made. A wait in progress keeps the
/// real time it was begun with.
class Clock {
public:
    static Clock& get() { return instance; }

    Nanoseconds monotonic() const;  ///< stands still while suspended
    Nanoseconds wall() const;       ///< since the epoch, goes on while suspended
    Nanoseconds boot() const;       ///< the monotonic one and the time spent suspended

    /// How many seconds pass on the terminal in one real second. Above 0.
    void setSpeed(double speed);
    double speed() const;

    void setWall(Nanoseconds sinceEpoch);
    void setMonotonic(Nanoseconds sinceBoot);

    /// A sleep of the whole terminal: the wall clock jumps, the monotonic one does not.
    void sleepThrough(Nanoseconds duration);

    /// The same, passing in (scaled) real time: the monotonic clock stands between the two.
    void freeze();
    void thaw();

    /// Back to the host's clocks at speed 1.
    void reset();

    /// Nothing changes while somebody holds this.
    std::unique_lock<std::mutex> hold() { return std::unique_lock<std::mutex>(mutex); }

    /// True until the first change, and after reset().
    bool isHosts() const { return current == nullptr; }

    /// The real time that a simulated duration takes. What is too long to count is the longest.
    Nanoseconds realDuration(Nanoseconds simulated) const;
    Nanoseconds simulatedDuration(Nanoseconds real) const;

private:
    struct State {
        Nanoseconds real, monotonic, wall;  // the same moment on three clocks
        Nanoseconds suspended;              // so far
        double speed;
        bool frozen;
        const State* older;  // never followed: keeps the former ones in a leak checker's sight
    };

    constexpr Clock() = default;
    static State host();
    State now() const;
    static State after(const State* last);
    template <class Change> void change(Change apply);

    // Ready before any code runs and without allocating: memory allocators ask for the time.
    static Clock instance;

    std::mutex mutex;               // one change at a time
    const State* newest = nullptr;  // a reader may still look at an older one: all stay
    std::atomic<const State*> current{nullptr};  // null: the host's clocks
    std::atomic<unsigned> version{0};            // odd during a change: time does not run back
};

/// A time beyond what nanoseconds can count (about 292 years) is the last that they can.
constexpr Nanoseconds fromTimespec(const timespec& time) {
    constexpr long long Longest =
        std::chrono::duration_cast<std::chrono::seconds>(Nanoseconds::max()).count();
    if (time.tv_sec >= Longest)
        return Nanoseconds::max();
    if (time.tv_sec <= -Longest)
        return Nanoseconds::min();
    return std::chrono::seconds(time.tv_sec) + Nanoseconds(time.tv_nsec);
}

inline timespec toTimespec(Nanoseconds time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    timespec result{};
    // Where time_t has 32 bits, its last second stands for all that follow.
    result.tv_sec = static_cast<time_t>(
        std::min<long long>(seconds.count(), std::numeric_limits<time_t>::max()));
    result.tv_nsec = static_cast<long>((time - seconds).count());
    return result;
}

}  // namespace sim
