#pragma once

#include <algorithm>
#include <chrono>
#include <utility>

#include "sim/HostTime.h"

namespace test {

using namespace std::chrono_literals;

/// Far longer on the host's clock than anything takes that works, on a busy machine too.
constexpr std::chrono::seconds HostLimit{60};

/// Waits until a condition holds. False when it still does not after `limit`.
template <class Condition>
bool soon(Condition condition, std::chrono::milliseconds limit = HostLimit) {
    return sim::eventually(std::move(condition), limit);
}

/// How long an action takes, in whole milliseconds.
template <class Action> long elapsedMs(Action action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return static_cast<long>((std::chrono::steady_clock::now() - begin) / 1ms);
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
