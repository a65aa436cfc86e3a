#include "sim/Clock.h"

#include <cmath>

#include "sim/SignalsBlocked.h"
#include "sim/posix/Real.h"

namespace sim {
namespace {

Nanoseconds hostClock(clockid_t clock) {
    timespec time{};
    SIM_REAL(clock_gettime)(clock, &time);
    return fromTimespec(time);
}

Nanoseconds scaled(Nanoseconds duration, double factor) {
    if (factor == 1.0)
        return duration;
    const double product = static_cast<double>(duration.count()) * factor;
    const auto longest = static_cast<double>(Nanoseconds::max().count());
    return product < longest ? Nanoseconds(std::llround(product)) : Nanoseconds::max();
}

}  // namespace

Clock Clock::instance;

Clock::State Clock::host() {
    const Nanoseconds monotonic = hostClock(CLOCK_MONOTONIC);
    const Nanoseconds suspended = hostClock(CLOCK_BOOTTIME) - monotonic;
    return {monotonic, monotonic, hostClock(CLOCK_REALTIME), suspended, 1.0, false, nullptr};
}

Clock::State Clock::after(const State* last) {
    if (!last)
        return host();
    State state = *last;
    const Nanoseconds real = hostClock(CLOCK_MONOTONIC);
    const Nanoseconds passed = scaled(real - state.real, state.speed);
    state.real = real;
    state.wall += passed;
    (state.frozen ? state.suspended : state.monotonic) += passed;
    return state;
}

Clock::State Clock::now() const {
    for (;;) {
        const unsigned before = version;
        const State state = after(current);
        if (before % 2 == 0 && version == before)
            return state;
    }
}

Nanoseconds Clock::monotonic() const { return now().monotonic; }
Nanoseconds Clock::wall() const { return now().wall; }
Nanoseconds Clock::boot() const {
    const State state = now();
    return state.monotonic + state.suspended;
}

template <class Change> void Clock::change(Change apply) {
    const SignalsBlocked blocked;  // a handler that asks for the time would wait for ever
    const std::lock_guard<std::mutex> held(mutex);
    auto* const next = new State;  // before the change begins, for the same reason
    ++version;
    *next = after(current);
    apply(*next);
    next->older = newest;
    newest = next;
    current = next;
    ++version;
}

double Clock::speed() const {
    const State* const last = current;
    return last ? last->speed : 1.0;
}

void Clock::setSpeed(double speed) {
    change([speed](State& state) { state.speed = speed; });
}

void Clock::setWall(Nanoseconds sinceEpoch) {
    change([sinceEpoch](State& state) { state.wall = sinceEpoch; });
}

void Clock::setMonotonic(Nanoseconds sinceBoot) {
    change([sinceBoot](State& state) { state.monotonic = sinceBoot; });
}

void Clock::sleepThrough(Nanoseconds duration) {
    change([duration](State& state) {
        state.wall += duration;
        state.suspended += duration;
    });
}

void Clock::freeze() {
    change([](State& state) { state.frozen = true; });
}

void Clock::thaw() {
    change([](State& state) { state.frozen = false; });
}

void Clock::reset() {
    const std::lock_guard<std::mutex> held(mutex);
    current = nullptr;
}

Nanoseconds Clock::realDuration(Nanoseconds simulated) const {
    return scaled(simulated, 1.0 / speed());
}

Nanoseconds Clock::simulatedDuration(Nanoseconds real) const { return scaled(real, speed()); }

}  // namespace sim
