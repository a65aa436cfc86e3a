#include "foundation/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <future>
#include <string>

#include "foundation/Worker.h"
#include "support/Eventually.h"
#include "support/Resources.h"

namespace {

using test::elapsedMs;
using test::ignoreRequests;
using test::obey;
using test::Pipe;
using test::shortestMs;
using test::soon;
using test::Worker;

constexpr int Step = 100;    // a stop looks that often, in ms
constexpr int Long = 60000;  // longer than any test waits

TEST(ThreadTest, AFinishedWorkerIsHeldUntilItIsJoinedAtOnce) {
    const std::function<bool(Thread&)> endings[] = {
        [](Thread& thread) { return thread.stop(Long, false); },
        [](Thread& thread) { return thread.stop(0, true); },
        [](Thread& thread) { return thread.terminate(); }};
    for (const auto& join : endings) {
        Worker worker(obey);
        const long joinMs = shortestMs(Step, [&] {
            EXPECT_TRUE(worker.start());
            worker.requestStop();  // taken back at the end of run()
            ASSERT_TRUE(soon([&] { return !worker.stopRequested(); }));
            EXPECT_FALSE(worker.start());
            EXPECT_TRUE(worker.interrupt());
            worker.requestStop();
            EXPECT_TRUE(join(worker));
            EXPECT_TRUE(worker.stopRequested()) << "a request that came too late stays";
        });
        EXPECT_LT(joinMs, Step);
        EXPECT_TRUE(worker.start());
        EXPECT_FALSE(worker.stopRequested()) << "the next worker starts without a request";
    }
}

TEST(ThreadTest, AStopWaitsInWholeStepsBeforeItCancels) {
    const struct {
        int timeoutMs;
        long waitMs;
    } cases[] = {{-1, 0}, {0, 0}, {1, 100}, {100, 100}, {101, 200}};
    for (const auto& [timeoutMs, waitMs] : cases) {
        SCOPED_TRACE(timeoutMs);
        std::atomic<bool> runs{false}, wasAsked{false};
        Worker worker([&](Worker& self) {
            for (runs = true;; Thread::sleep(1)) {
                if (self.stopRequested())
                    wasAsked = true;
            }
        });
        long stopMs = waitMs + Step;
        for (int tries = 0; tries < 5 && (stopMs >= waitMs + Step || !wasAsked); ++tries) {
            runs = false;
            EXPECT_TRUE(worker.start() && soon([&] { return runs.load(); }));
            stopMs =
                elapsedMs([&, timeout = timeoutMs] { EXPECT_TRUE(worker.stop(timeout, false)); });
        }
        EXPECT_GE(stopMs, waitMs);
        EXPECT_LT(stopMs, waitMs + Step);
        EXPECT_TRUE(wasAsked || timeoutMs <= 0);
        EXPECT_FALSE(worker.stopRequested());
    }
}

TEST(ThreadTest, AnInterruptEndsBlockingCallsEarly) {
    Pipe pipe;
    std::atomic<int> readError{-1};
    std::atomic<int> slept{-1};
    Worker reader([&](Worker&) { readError = pipe.readByte() < 0 ? errno : 0; });
    Worker sleeper([&](Worker&) { slept = Thread::sleep(Long) ? 1 : 0; });
    EXPECT_TRUE(reader.start() && sleeper.start());
    EXPECT_TRUE(soon([&] {  // a signal that comes before the call has begun ends nothing
        EXPECT_TRUE(reader.interrupt() && sleeper.interrupt());
        return readError >= 0 && slept >= 0;
    }));
    EXPECT_EQ(readError, EINTR);
    EXPECT_EQ(slept, 0);
}

TEST(ThreadTest, AWorkerHasASmallStackAndOpensItselfToTheInterruption) {
    sigset_t signals, before, blocked;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    size_t stackSize = 0;
    struct sigaction action {};
    Worker worker([&](Worker&) {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stackSize);
        pthread_attr_destroy(&attributes);
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        sigaction(SIGUSR1, nullptr, &action);
    });
    EXPECT_TRUE(worker.start() && worker.stop(Long, false));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);

    EXPECT_EQ(stackSize, 512U * 1024);
    EXPECT_FALSE(sigismember(&blocked, SIGUSR1));
    EXPECT_TRUE(sigismember(&blocked, SIGUSR2)) << "everything else is inherited";
    EXPECT_EQ(action.sa_handler, &Thread::signalHandler);
    EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
    EXPECT_FALSE(sigismember(&action.sa_mask, SIGUSR2));
}

TEST(ThreadTest, AWorkerThatStopsItselfOnlyGetsTheRequestAlsoWhileItUnwinds) {
    std::string answers;
    std::atomic<bool> isReady{false};
    const auto note = [&](bool answer) { answers += answer ? 'y' : 'n'; };
    struct AtTheEnd {
        std::function<void()> action;
        ~AtTheEnd() { action(); }
    };
    Worker worker([&](Worker& self) {
        note(self.terminate());
        note(self.stopRequested());
        note(self.stop(Long, true));
        note(self.stopRequested());
        const AtTheEnd again{[&] {
            note(self.stop(0, false));
            note(self.terminate());
        }};
        isReady = true;
        ignoreRequests(self);
    });
    EXPECT_TRUE(worker.start());
    ASSERT_TRUE(soon([&] { return isReady.load(); }));
    EXPECT_TRUE(worker.terminate());
    EXPECT_EQ(answers, "nnnynn");
}

TEST(ThreadStressTest, OneOfThoseWhoEndAWorkerHasDoneItAndNothingIsLeft) {
    constexpr int Rounds = 1000;
    Worker first(obey);  // whatever the first thread of a program brings with it
    EXPECT_TRUE(first.start() && first.terminate());
    const long threads = test::runningThreads();
    const long descriptors = test::openDescriptors();
    std::atomic<int> round{0};
    Worker worker([&](Worker& self) {
        Pipe pipe;
        switch (round % 4) {
        case 0: obey(self); break;
        case 1: test::ignoreRequests(self); break;
        case 2: pipe.readByte(); break;
        case 3: break;
        }
    });
    const auto end = [&](int way) {
        switch (way % 5) {
        case 0: return worker.stop(0, false);
        case 1: return worker.stop(0, true);
        case 2: return worker.terminate();
        case 3: worker.interrupt(); return worker.terminate();
        default: worker.requestStop(); return worker.stop(-1, false);
        }
    };
    for (; round < 2 * Rounds; ++round) {
        const bool isPatient = round % (Rounds / 20) == 0;
        ASSERT_TRUE(worker.start()) << round;
        int successes = 0;
        if (round < Rounds) {
            if (round % 3 == 0)
                Thread::sleep(0);  // lets some workers get into their bodies
            successes += (isPatient ? worker.stop(1, round % 2 == 0) : end(round / 4)) ? 1 : 0;
        } else {
            std::future<bool> enders[3];
            int way = round;
            for (auto& ender : enders) {
                ender = std::async(std::launch::async, [&, way = way++] {
                    return isPatient ? worker.stop(1, false) : end(way);
                });
            }
            for (auto& ender : enders)
                successes += ender.get() ? 1 : 0;
        }
        ASSERT_FALSE(worker.interrupt()) << round;
        // Those who wait in steps also succeed when another one has done it meanwhile.
        ASSERT_GE(successes, 1) << round;
        ASSERT_LE(successes, isPatient ? 3 : 1) << round;
    }
    soon([&] { return test::runningThreads() <= threads; });
    EXPECT_LE(test::runningThreads(), threads);
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

}  // namespace
