#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace test {

/// Far longer than anything takes that works, on a busy machine too.
constexpr std::chrono::milliseconds Limit{30000};

/// Waits until a condition holds. False when it still does not after `limit`.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = Limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// How long an action takes, in whole milliseconds.
template <class Action> long elapsedMs(Action action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

/// The shortest of a few tries, the last of them being the first that took less than `enoughMs`:
/// a busy machine makes an action slow, never fast.
template <class Action> long shortestMs(long enoughMs, Action action) {
    long shortest = elapsedMs(action);
    for (int tries = 1; tries < 10 && shortest >= enoughMs; ++tries)
        shortest = std::min(shortest, elapsedMs(action));
    return shortest;
}

}  // namespace test
