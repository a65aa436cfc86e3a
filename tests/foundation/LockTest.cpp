#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>

#include "foundation/Cond.h"
#include "foundation/Deadline.h"
#include "foundation/Mutex.h"
#include "foundation/Semaphore.h"
#include "foundation/Worker.h"
#include "support/Eventually.h"

namespace {

using test::elapsedMs;
using test::eventually;
using test::isFree;
using test::Worker;

constexpr int Long = 60000;  // longer than any test waits, in ms
using namespace std::chrono_literals;

int64_t wallMicroseconds() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec * INT64_C(1'000'000) + now.tv_usec;
}

TEST(DeadlineTest, LiesTheTimeoutAheadOfTheWallClock) {
    unsigned halves = 0;  // of a second: half of the time-outs carry in one of them only
    EXPECT_TRUE(eventually([&] {
        for (const int timeoutMs : {0, 1, 500, 999, 1000, 1999, INT_MAX, -1, INT_MIN}) {
            const int64_t ahead = timeoutMs > 0 ? timeoutMs * INT64_C(1000) : 0;
            const int64_t before = wallMicroseconds();
            const timespec deadline = foundation::deadlineAfter(timeoutMs);
            const int64_t after = wallMicroseconds();
            const int64_t moment = deadline.tv_sec * INT64_C(1'000'000) + deadline.tv_nsec / 1000;
            EXPECT_TRUE(moment >= before + ahead && moment <= after + ahead) << timeoutMs;
            EXPECT_TRUE(deadline.tv_nsec >= 0 && deadline.tv_nsec < 1'000'000'000) << timeoutMs;
            halves |= before % 1'000'000 < 500'000 ? 1U : 2U;
        }
        return HasFailure() || halves == 3;
    }));
}

TEST(SemaphoreTest, AWaitEndsAfterItsTimeWithoutAPost) {
    Semaphore semaphore;
    for (const int timeoutMs : {INT_MIN, 0, 1, 1100}) {
        const long waitedMs = elapsedMs([&] { EXPECT_FALSE(semaphore.pend(timeoutMs)); });
        EXPECT_GE(waitedMs + 1, timeoutMs) << "the clocks may differ by a little";
        EXPECT_LT(waitedMs, (timeoutMs > 0 ? timeoutMs : 0) + 5000);
    }
}

TEST(SemaphoreTest, APostIsForOneWaiterAndIsLostWithoutOne) {
    Semaphore semaphore;
    semaphore.post();
    semaphore.post();
    EXPECT_FALSE(semaphore.pend(100));

    for (int round = 0; round < 50; ++round) {
        std::atomic<int> woken{0};
        Worker untimed([&](Worker&) { woken += semaphore.pend() ? 1 : 0; });
        Worker timed([&](Worker&) { woken += semaphore.pend(Long) ? 1 : 0; });
        EXPECT_TRUE(untimed.start() && timed.start());
        // Some posts come before the waiters: never do more wake than were posted.
        for (int posts = 1; woken < 2; ++posts) {
            semaphore.post();
            eventually([&, before = woken.load()] { return woken > before; }, 5ms);
            ASSERT_LE(woken, posts);
            ASSERT_LT(posts, 5000);
        }
    }
}

TEST(LockTest, ACancelledWaiterLeavesTheLockFree) {
    for (const bool isTimed : {false, true}) {
        Cond cond;
        Semaphore semaphore;
        std::atomic<int> near{0};
        Worker onCond([&](Worker&) {
            const LockGuard<Cond> held(cond);
            ++near;
            isTimed ? cond.wait(Long) : cond.wait();
        });
        Worker onSemaphore([&](Worker&) {
            ++near;
            isTimed ? semaphore.pend(Long) : semaphore.pend();
        });
        EXPECT_TRUE(onCond.start() && onSemaphore.start());
        ASSERT_TRUE(eventually([&] { return near == 2; }));
        EXPECT_TRUE(onCond.terminate() && onSemaphore.terminate());
        EXPECT_TRUE(isFree(cond));
        Worker poster([&](Worker&) { semaphore.post(); });
        EXPECT_TRUE(poster.start() && poster.stop(Long, false));
    }
}

TEST(LockTest, AMutexLetsInOneAtATimeAndAPauseTheOthers) {
    constexpr int Turns = 5000;
    Mutex mutex;
    int turns = 0;
    int inside = 0;
    const auto takeTurns = [&](Worker&) {
        for (int turn = 0; turn < Turns; ++turn) {
            const MutexGuard held(mutex);
            EXPECT_EQ(++inside, 1);
            ++turns;
            --inside;
            const LockPause<Mutex> pause(mutex);  // holds it again before the guard lets go
        }
    };
    Worker workers[] = {Worker(takeTurns), Worker(takeTurns), Worker(takeTurns)};
    for (auto& worker : workers)
        EXPECT_TRUE(worker.start());
    for (auto& worker : workers)
        EXPECT_TRUE(worker.stop(Long, false));
    EXPECT_EQ(turns, 3 * Turns);
}

}  // namespace
