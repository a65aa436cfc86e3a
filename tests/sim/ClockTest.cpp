#include "sim/Clock.h"

#define TIMED_CALLS_TEST TimedCallsTest
#include "sim/TimedCalls.h"

namespace {

using namespace std::chrono_literals;
using sim::Nanoseconds;

struct ClockTest : testing::Test {
    sim::Terminal terminal;
    sim::Clock& clock = terminal.clock();
};

TEST_F(ClockTest, TimeRunsJumpsAndStandsStill) {
    EXPECT_TRUE(clock.isHosts());
    EXPECT_NEAR(clockNow(CLOCK_MONOTONIC), hostNow(CLOCK_MONOTONIC), 20);
    clock.setMonotonic(1000s);
    clock.setWall(1'000'000s);
    const Nanoseconds before = clock.boot() - clock.monotonic();
    clock.sleepThrough(1h);
    EXPECT_LT(std::chrono::abs(clock.monotonic() - 1000s), 20s);
    EXPECT_LT(std::chrono::abs(clock.wall() - 1'003'600s), 20s);
    EXPECT_LT(std::chrono::abs(clock.boot() - before - 1h - 1000s), 20s);
    EXPECT_NEAR(clockNow(CLOCK_BOOTTIME), static_cast<double>(clock.boot().count()) / 1e9, 20);

    clock.setSpeed(3600);
    clock.freeze();
    const Nanoseconds frozen = clock.monotonic();
    const Nanoseconds wall = clock.wall();
    EXPECT_TRUE(sim::eventually([&] { return clock.wall() > wall + 100s; }, 60s));
    EXPECT_EQ(clock.monotonic(), frozen);
    clock.thaw();
    EXPECT_TRUE(sim::eventually([&] { return clock.monotonic() > frozen + 100s; }, 60s));
    EXPECT_GT(clock.boot(), clock.monotonic() + before + 1h + 100s);
    EXPECT_EQ(clock.realDuration(3600s), 1s);
    EXPECT_EQ(clock.simulatedDuration(1s), 3600s);

    clock.reset();
    EXPECT_TRUE(clock.isHosts());
    clock.setSpeed(2);
    EXPECT_NEAR(clockNow(CLOCK_REALTIME), hostNow(CLOCK_REALTIME), 20) << "nothing of it is left";
    EXPECT_NEAR(clockNow(CLOCK_MONOTONIC), hostNow(CLOCK_MONOTONIC), 20);
}

TEST_F(ClockTest, ItNeverRunsBackWhileItIsChanged) {
    clock.setSpeed(10);
    std::atomic<bool> stop{false};
    std::atomic<int> changes{0};
    std::thread setter([&] {
        for (; !stop; ++changes)
            clock.setSpeed(changes % 2 ? 10 : 1000);
    });
    Nanoseconds last{0};
    for (int i = 0; i < 20'000 || changes < 100; ++i) {
        const Nanoseconds now = clock.monotonic();
        EXPECT_GE(now, last);
        last = now;
    }
    stop = true;
    setter.join();
}

}  // namespace
