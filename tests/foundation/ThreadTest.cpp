#include "foundation/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>

#include "foundation/Mutex.h"
#include "foundation/Worker.h"
#include "support/Eventually.h"
#include "support/Resources.h"

namespace {

using test::elapsedMs;
using test::eventually;
using test::ignoreRequests;
using test::obey;
using test::Pipe;
using test::shortestMs;
using test::Worker;

#ifdef __has_feature
constexpr bool IsTsan = __has_feature(thread_sanitizer);
#else
constexpr bool IsTsan = false;
#endif
constexpr bool IsSlow = IsTsan || sizeof(void*) == 4;

constexpr int Step = 100;    // a stop looks that often, in ms
constexpr int Long = 60000;  // longer than any test waits

/// Brings a worker that obeys to the end of run(): it takes the request back when it gets there.
void finish(Worker& worker) {
    worker.requestStop();
    ASSERT_TRUE(eventually([&] { return !worker.stopRequested(); }));
}

TEST(ThreadTest, AnIdleThreadCanOnlyBeStarted) {
    Worker worker(obey);
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(worker.stop(0, false));
        EXPECT_FALSE(worker.stop(Long, true));
        EXPECT_FALSE(worker.terminate());
        EXPECT_FALSE(worker.interrupt());
        worker.requestStop();
        EXPECT_FALSE(worker.stopRequested());

        EXPECT_TRUE(worker.start());
        EXPECT_FALSE(worker.start());
        EXPECT_TRUE(worker.interrupt());
        EXPECT_TRUE(worker.terminate());
    }
}

TEST(ThreadTest, AFinishedWorkerIsHeldUntilItIsJoinedAtOnce) {
    const std::function<bool(Thread&)> endings[] = {
        [](Thread& thread) { return thread.stop(Long, false); },
        [](Thread& thread) { return thread.stop(0, true); },
        [](Thread& thread) { return thread.terminate(); },
    };
    for (const auto& join : endings) {
        Worker worker(obey);
        const long joinMs = shortestMs(Step, [&] {
            EXPECT_TRUE(worker.start());
            finish(worker);
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

    Thread returnsAtOnce;
    EXPECT_TRUE(returnsAtOnce.start());
    EXPECT_FALSE(returnsAtOnce.start());
    EXPECT_TRUE(returnsAtOnce.stop(Long, false));
}

TEST(ThreadTest, AStopWaitsInWholeStepsBeforeItCancels) {
    const struct {
        int timeoutMs;
        long waitMs;
    } cases[] = {{-1, 0}, {0, 0}, {1, 100}, {100, 100}, {101, 200}, {250, 300}};
    for (const auto& [timeoutMs, waitMs] : cases) {
        SCOPED_TRACE(timeoutMs);
        std::atomic<bool> wasAsked{false};
        Worker worker([&](Worker& self) {
            for (;; Thread::sleep(1)) {
                if (self.stopRequested())
                    wasAsked = true;
            }
        });
        const long stopMs = shortestMs(waitMs + Step, [&, timeout = timeoutMs] {
            EXPECT_TRUE(worker.start());
            EXPECT_TRUE(worker.stop(timeout, false));
        });
        EXPECT_GE(stopMs, waitMs);
        EXPECT_LT(stopMs, waitMs + Step);
        EXPECT_TRUE(wasAsked || timeoutMs <= 0);
        EXPECT_FALSE(worker.stopRequested());
    }

    std::atomic<bool> returned{false};
    Worker obedient([&](Worker& self) {
        obey(self);
        returned = true;
    });
    EXPECT_TRUE(obedient.start() && obedient.stop(Long, false));
    EXPECT_TRUE(returned && !obedient.stopRequested());
}

TEST(ThreadTest, AnInterruptEndsBlockingCallsEarly) {
    Pipe pipe;
    std::atomic<int> readError{-1};
    std::atomic<int> slept{-1};
    Worker reader([&](Worker&) { readError = pipe.readByte() < 0 ? errno : 0; });
    Worker sleeper([&](Worker&) { slept = Thread::sleep(Long) ? 1 : 0; });
    EXPECT_TRUE(reader.start());
    EXPECT_TRUE(sleeper.start());
    EXPECT_TRUE(eventually([&] {  // a signal that comes before the call has begun ends nothing
        EXPECT_TRUE(reader.interrupt() && sleeper.interrupt());
        return readError >= 0 && slept >= 0;
    }));
    EXPECT_EQ(readError, EINTR);
    EXPECT_EQ(slept, 0);
}

TEST(ThreadTest, OnlyAStopThatInterruptsGetsASleepingWorkerToReturn) {
    std::atomic<int> wakings{0};
    std::atomic<int> returns{0};
    Worker worker([&](Worker& self) {
        do {
            Thread::sleep(Long);
            ++wakings;
        } while (!self.stopRequested());
        ++returns;
    });
    const auto stopInSleep = [&](bool withInterrupt) {
        wakings = 0;
        EXPECT_TRUE(worker.start());
        // Once it has been woken it sleeps again.
        EXPECT_TRUE(eventually([&] { return wakings > 0 || !worker.interrupt(); }));
        EXPECT_TRUE(worker.stop(1, withInterrupt));
    };
    for (int round = 0; round < 3; ++round)
        stopInSleep(false);
    EXPECT_EQ(returns, 0);
    for (int round = 0; round < 50 && returns == 0; ++round)  // a signal may come too early
        stopInSleep(true);
    EXPECT_EQ(returns, 1);
}

TEST(ThreadTest, SleepTakesSecondsAndMilliseconds) {
    const struct {
        int ms;
        bool result;
    } cases[] = {{-1, false}, {0, true}, {7, true}, {1050, true}};
    for (const auto& [ms, result] : cases) {
        bool slept = false;
        const long sleepMs = elapsedMs([&, interval = ms] { slept = Thread::sleep(interval); });
        EXPECT_EQ(slept, result) << ms;
        EXPECT_GE(sleepMs, ms);
        EXPECT_LT(sleepMs, ms + 5000);
    }
}

TEST(ThreadTest, ACancelledWorkerLetsGoOfWhatItOwns) {
    const long descriptors = test::openDescriptors();
    Mutex mutex;
    std::atomic<bool> isBlocked{false};
    Worker worker([&](Worker&) {
        const MutexGuard held(mutex);
        Pipe pipe;
        isBlocked = true;
        pipe.readByte();
    });
    EXPECT_TRUE(worker.start());
    ASSERT_TRUE(eventually([&] { return isBlocked.load(); }));
    EXPECT_EQ(test::openDescriptors(), descriptors + 2);
    EXPECT_TRUE(worker.terminate());
    EXPECT_EQ(test::openDescriptors(), descriptors);
    EXPECT_TRUE(test::isFree(mutex));
}

TEST(ThreadTest, AWorkerHasASmallStackAndOpensItselfToTheInterruption) {
    sigset_t signals;
    sigset_t before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigaddset(&signals, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &signals, &before);
    size_t stackSize = 0;
    sigset_t blocked;
    struct sigaction action {};
    Worker worker([&](Worker&) {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stackSize);
        pthread_attr_destroy(&attributes);
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        sigaction(SIGUSR1, nullptr, &action);
    });
    EXPECT_TRUE(worker.start());
    EXPECT_TRUE(worker.stop(Long, false));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);

    EXPECT_EQ(stackSize, 512U * 1024);
    EXPECT_FALSE(sigismember(&blocked, SIGUSR1));
    EXPECT_TRUE(sigismember(&blocked, SIGUSR2)) << "everything else is inherited";
    EXPECT_EQ(action.sa_handler, &Thread::signalHandler);
    EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
    EXPECT_FALSE(sigismember(&action.sa_mask, SIGUSR2));
}

TEST(ThreadDeathTest, WithoutAThreadToBeHadTheObjectStaysIdle) {
    const auto startWithoutThreads = [] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_NPROC, &none);
        if (setuid(65534) != 0 && geteuid() == 0)  // no limit holds for the superuser
            std::_Exit(2);
        Worker worker(obey);
        const bool isIdle = !worker.start() && !worker.interrupt() && !worker.start();
        std::_Exit(isIdle ? 0 : 1);  // no leak check: it needs a thread
    };
    EXPECT_EXIT(startWithoutThreads(), testing::ExitedWithCode(0), "");
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
    ASSERT_TRUE(eventually([&] { return isReady.load(); }));
    EXPECT_TRUE(worker.terminate());
    EXPECT_EQ(answers, "nnnynn");
}

TEST(ThreadTest, AStopThatFindsItsWorkerGoneHasSucceeded) {
    for (const bool isStartedAgain : {false, true}) {
        SCOPED_TRACE(isStartedAgain);
        Worker worker(ignoreRequests);
        EXPECT_TRUE(worker.start());
        auto stopped = std::async(std::launch::async, [&] { return worker.stop(Long, false); });
        ASSERT_TRUE(eventually([&] { return worker.stopRequested(); }));
        EXPECT_TRUE(worker.terminate());
        EXPECT_TRUE(!isStartedAgain || worker.start());
        ASSERT_EQ(stopped.wait_for(test::Limit), std::future_status::ready);
        EXPECT_TRUE(stopped.get());
        EXPECT_FALSE(isStartedAgain && worker.stopRequested());
        EXPECT_EQ(worker.interrupt(), isStartedAgain) << "the next worker is left alone";
    }
}

/// All kinds of workers, and all ways to end one. Both tests below expect every trace gone.
class ThreadStressTest : public testing::Test {
protected:
    static constexpr int Rounds = IsSlow ? 400 : 3000;
    static constexpr int PatientEvery = Rounds / 20;

    void SetUp() override {
        Worker first(obey);  // whatever the first thread of a program brings with it
        EXPECT_TRUE(first.start() && first.terminate());
        threads = test::runningThreads();
        descriptors = test::openDescriptors();
    }

    void TearDown() override {
        eventually([this] { return test::runningThreads() <= threads; });
        EXPECT_LE(test::runningThreads(), threads);
        EXPECT_EQ(test::openDescriptors(), descriptors);
    }

    /// The body of the worker of this round.
    void live(Worker& worker) const {
        Pipe pipe;
        switch (round % 4) {
        case 0: obey(worker); break;
        case 1: ignoreRequests(worker); break;
        case 2: pipe.readByte(); break;
        case 3: break;
        }
    }

    /// One of the ways in which a worker ends at once.
    static bool end(Worker& worker, int way) {
        switch (way % 5) {
        case 0: return worker.stop(0, false);
        case 1: return worker.stop(0, true);
        case 2: return worker.terminate();
        case 3: worker.interrupt(); return worker.terminate();
        default: worker.requestStop(); return worker.stop(-1, false);
        }
    }

    std::atomic<int> round{0};
    long threads = 0;
    long descriptors = 0;
};

TEST_F(ThreadStressTest, NothingIsLeftOfThousandsOfWorkers) {
    Worker worker([this](Worker& self) { live(self); });
    for (round = 0; round < Rounds; ++round) {
        ASSERT_TRUE(worker.start()) << round;
        if (round % 3 == 0)
            Thread::sleep(0);  // lets some workers get into their bodies
        const bool isPatient = round % PatientEvery == 0;
        ASSERT_TRUE(isPatient ? worker.stop(1, round % 2 == 0) : end(worker, round / 4)) << round;
        ASSERT_FALSE(worker.interrupt()) << round;
    }
}

TEST_F(ThreadStressTest, OfThoseWhoEndAWorkerAtOnceExactlyOneHasDoneIt) {
    Worker worker([this](Worker& self) { live(self); });
    for (round = 0; round < Rounds; ++round) {
        const bool isPatient = round % PatientEvery == 0;
        ASSERT_TRUE(worker.start()) << round;
        std::future<bool> enders[3];
        int way = round;
        for (auto& ender : enders) {
            ender = std::async(std::launch::async, [&, way = way++] {
                return isPatient ? worker.stop(1, false) : end(worker, way);
            });
        }
        int successes = 0;
        for (auto& ender : enders)
            successes += ender.get() ? 1 : 0;
        ASSERT_FALSE(worker.interrupt()) << round;
        // Those who wait in steps also succeed when another one has done it meanwhile.
        ASSERT_GE(successes, 1) << round;
        ASSERT_LE(successes, isPatient ? 3 : 1) << round;
    }
}

}  // namespace
