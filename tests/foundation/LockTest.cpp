#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>

#include "foundation/Cond.h"
#include "foundation/Mutex.h"
#include "foundation/Semaphore.h"
#include "foundation/Worker.h"
#include "support/Eventually.h"

namespace {

using test::elapsedMs;
using test::isFree;
using test::soon;
using test::Worker;

constexpr int Long = 60000;  // longer than any test waits, in ms
using namespace std::chrono_literals;

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
            soon([&, before = woken.load()] { return woken > before; }, 5ms);
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
        ASSERT_TRUE(soon([&] { return near == 2; }));
        EXPECT_TRUE(onCond.terminate() && onSemaphore.terminate() && isFree(cond));
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
