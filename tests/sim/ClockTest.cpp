#include "sim/Clock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <mutex>
#include <thread>

#include "sim/HostTime.h"
#include "sim/Terminal.h"

extern "C" {
int __poll_chk(pollfd*, nfds_t, int, size_t);
int __ppoll_chk(pollfd*, nfds_t, const timespec*, const sigset_t*, size_t);
}

namespace {

using namespace std::chrono_literals;
using sim::Nanoseconds;

constexpr auto Waited = 2000ms;  // of simulated time, in each of the waits
constexpr double Speed = 50;

Nanoseconds clockNow(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return sim::fromTimespec(now);
}

Nanoseconds hostNow(clockid_t clock) {
    const sim::HostTime hostTime;
    return clockNow(clock);
}

/// The host's time that an action takes.
template <class Action> Nanoseconds hostDuration(Action action) {
    const Nanoseconds begin = hostNow(CLOCK_MONOTONIC);
    action();
    return hostNow(CLOCK_MONOTONIC) - begin;
}

/// Whether two readings are of the same moment: a busy machine may stop for a while in between.
bool areClose(Nanoseconds first, Nanoseconds second) {
    return std::chrono::abs(first - second) < 20s;
}

timespec in(clockid_t clock, Nanoseconds left = Waited) {
    return sim::toTimespec(clockNow(clock) + left);
}

constexpr timespec Duration{2, 0};

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t takenMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
sem_t semaphore;

int timedWait(clockid_t clock) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, clock);
    pthread_cond_t ownCondition;
    pthread_cond_init(&ownCondition, &attributes);
    const timespec until = in(clock);
    pthread_mutex_lock(&mutex);
    const int result = pthread_cond_timedwait(&ownCondition, &mutex, &until);
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&ownCondition);
    return result;
}

int clockWait(clockid_t clock) {
    const timespec until = in(clock);
    pthread_mutex_lock(&mutex);
    const int result = pthread_cond_clockwait(&condition, &mutex, clock, &until);
    pthread_mutex_unlock(&mutex);
    return result;
}

struct Wait {
    const char* name;
    int result;
    int (*wait)();
};

constexpr Wait Waits[] = {
    {"nanosleep", 0, [] { return nanosleep(&Duration, nullptr); }},
    {"clock_nanosleep", 0, [] { return clock_nanosleep(CLOCK_MONOTONIC, 0, &Duration, nullptr); }},
    {"clock_nanosleep until", 0,
     [] {
         const timespec until = in(CLOCK_REALTIME);
         return clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &until, nullptr);
     }},
    {"clock_nanosleep until, since the start", 0,
     [] {
         const timespec until = in(CLOCK_BOOTTIME);
         return clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, &until, nullptr);
     }},
    {"usleep", 0, [] { return usleep(2'000'000); }},
    {"sleep", 0, [] { return static_cast<int>(sleep(2)); }},
    {"sleep_for", 0,
     [] {
         std::this_thread::sleep_for(Waited);
         return 0;
     }},
    {"poll", 0, [] { return poll(nullptr, 0, 2000); }},
    {"__poll_chk", 0, [] { return __poll_chk(nullptr, 0, 2000, 0); }},
    {"ppoll", 0, [] { return ppoll(nullptr, 0, &Duration, nullptr); }},
    {"__ppoll_chk", 0, [] { return __ppoll_chk(nullptr, 0, &Duration, nullptr, 0); }},
    {"select", 0,
     [] {
         timeval left{2, 0};
         return select(0, nullptr, nullptr, nullptr, &left);
     }},
    {"pselect", 0, [] { return pselect(0, nullptr, nullptr, nullptr, &Duration, nullptr); }},
    {"pthread_cond_timedwait", ETIMEDOUT, [] { return timedWait(CLOCK_REALTIME); }},
    {"pthread_cond_timedwait by another clock", ETIMEDOUT,
     [] { return timedWait(CLOCK_MONOTONIC); }},
    {"pthread_cond_clockwait", ETIMEDOUT, [] { return clockWait(CLOCK_REALTIME); }},
    {"pthread_cond_clockwait by another clock", ETIMEDOUT,
     [] { return clockWait(CLOCK_MONOTONIC); }},
    {"pthread_mutex_timedlock", ETIMEDOUT,
     [] {
         const timespec until = in(CLOCK_REALTIME);
         return pthread_mutex_timedlock(&takenMutex, &until);
     }},
    {"pthread_mutex_clocklock", ETIMEDOUT,
     [] {
         const timespec until = in(CLOCK_MONOTONIC);
         return pthread_mutex_clocklock(&takenMutex, CLOCK_MONOTONIC, &until);
     }},
    {"sem_timedwait", -1,
     [] {
         const timespec until = in(CLOCK_REALTIME);
         return sem_timedwait(&semaphore, &until);
     }},
};

class ClockTest : public testing::Test {
protected:
    ClockTest() { sem_init(&semaphore, 0, 0); }
    ~ClockTest() override { sem_destroy(&semaphore); }

    sim::Terminal terminal;
    sim::Clock& clock = terminal.clock();
};

TEST_F(ClockTest, WaitsAreAsMuchShorterAsTheClockIsFaster) {
    pthread_mutex_lock(&takenMutex);
    clock.setWall(3600s);  // far from the host's: a deadline is not the host's by chance
    clock.setMonotonic(7200s);
    clock.setSpeed(Speed);
    for (const Wait& wait : Waits) {
        // A busy machine makes a wait longer, never shorter.
        Nanoseconds shortest = Nanoseconds::max();
        for (int tries = 0; tries < 5 && shortest >= 1s; ++tries) {
            const Nanoseconds took =
                hostDuration([&] { EXPECT_EQ(wait.wait(), wait.result) << wait.name; });
            shortest = std::min(shortest, took);
        }
        EXPECT_LT(shortest, 1s) << wait.name;
        EXPECT_GE(shortest, 39ms) << wait.name;
    }
    pthread_mutex_unlock(&takenMutex);
}

TEST_F(ClockTest, AWaitThatCannotBeIsRefusedAtAnySpeed) {
    const timespec wrong{1, 2'000'000'000};
    for (const double speed : {1.0, Speed}) {
        clock.setSpeed(speed);
        EXPECT_EQ(nanosleep(&wrong, nullptr), -1);
        EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &wrong, nullptr), EINVAL);
        EXPECT_EQ(ppoll(nullptr, 0, &wrong, nullptr), -1);
        EXPECT_EQ(pselect(0, nullptr, nullptr, nullptr, &wrong, nullptr), -1);
        timeval wrongLeft{1, -1};
        EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &wrongLeft), -1);
        EXPECT_EQ(errno, EINVAL);
        pthread_mutex_lock(&mutex);
        EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &wrong), EINVAL);
        pthread_mutex_unlock(&mutex);
        const timespec past{-1, 0};
        EXPECT_EQ(sem_timedwait(&semaphore, &past), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
    }
    EXPECT_EQ(poll(nullptr, 0, 0), 0);
}

TEST_F(ClockTest, TheLongestDeadlinesAreNoneOfThePast) {
    const time_t last = std::numeric_limits<time_t>::max();
    for (const double speed : {1.0, 1e-6, Speed}) {
        clock.setSpeed(speed);
        std::thread poster([] {
            sim::pauseBriefly();
            sem_post(&semaphore);
        });
        const timespec until{last, 999'999'999};
        EXPECT_EQ(sem_timedwait(&semaphore, &until), 0) << speed;
        poster.join();
    }
}

TEST_F(ClockTest, AnInterruptedSleepLeavesSimulatedTime) {
    clock.setSpeed(Speed);
    struct sigaction action {
    }, before{};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, &before);
    std::atomic<bool> isOver{false};
    std::thread sleeper([&] {
        timespec left{};
        const timespec long_{100'000, 0};
        EXPECT_EQ(nanosleep(&long_, &left), -1);
        EXPECT_EQ(errno, EINTR);
        EXPECT_GT(left.tv_sec, 50'000);
        EXPECT_LE(left.tv_sec, 100'000);
        isOver = true;
    });
    // Until it has been hit while it sleeps.
    EXPECT_TRUE(sim::eventually(
        [&] {
            pthread_kill(sleeper.native_handle(), SIGUSR2);
            return isOver.load();
        },
        60s));
    sleeper.join();
    sigaction(SIGUSR2, &before, nullptr);
    timeval left{100'000, 0};
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], "", 1), 1);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(ends[0], &readable);
    EXPECT_EQ(select(ends[0] + 1, &readable, nullptr, nullptr, &left), 1);
    EXPECT_GT(left.tv_sec, 50'000);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ClockTest, SettingTheClockLeavesTheHostsAlone) {
    const Nanoseconds difference = hostNow(CLOCK_REALTIME) - hostNow(CLOCK_MONOTONIC);
    const timespec set{86400, 500'000'000};
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &set), 0);
    EXPECT_TRUE(areClose(clockNow(CLOCK_REALTIME), 86400s));
    EXPECT_TRUE(areClose(std::chrono::seconds(time(nullptr)), 86400s));
    const timeval setAgain{172800, 0};
    EXPECT_EQ(settimeofday(&setAgain, nullptr), 0);
    timeval now{};
    EXPECT_EQ(gettimeofday(&now, nullptr), 0);
    EXPECT_TRUE(areClose(std::chrono::seconds(now.tv_sec), 172800s));
    time_t stored = 0;
    EXPECT_EQ(time(&stored), stored);
    EXPECT_TRUE(areClose(std::chrono::seconds(stored), 172800s));
    EXPECT_TRUE(areClose(clock.wall(), 172800s));
    EXPECT_TRUE(areClose(clockNow(CLOCK_REALTIME_COARSE), 172800s));

    const timespec wrong{0, -1};
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &wrong), -1);
    EXPECT_EQ(clock_settime(CLOCK_MONOTONIC, &set), -1);
    const timeval wrongToo{0, 1'000'000};
    EXPECT_EQ(settimeofday(&wrongToo, nullptr), -1);
    EXPECT_TRUE(areClose(clock.wall(), 172800s));
    const Nanoseconds after = hostNow(CLOCK_REALTIME) - hostNow(CLOCK_MONOTONIC);
    EXPECT_LT(std::chrono::abs(after - difference), 1s);
    const sim::HostTime hostTime;
    EXPECT_FALSE(areClose(std::chrono::seconds(time(nullptr)), 172800s));
}

TEST_F(ClockTest, TimeRunsJumpsAndStandsStill) {
    EXPECT_TRUE(clock.isHosts());
    EXPECT_TRUE(areClose(clockNow(CLOCK_MONOTONIC), hostNow(CLOCK_MONOTONIC)));
    clock.setMonotonic(1000s);
    clock.setWall(1'000'000s);
    const Nanoseconds boot = clock.boot() - clock.monotonic();

    clock.sleepThrough(1h);
    EXPECT_TRUE(areClose(clockNow(CLOCK_MONOTONIC), 1000s)) << "stands still";
    EXPECT_TRUE(areClose(clockNow(CLOCK_REALTIME), 1'003'600s));
    EXPECT_TRUE(areClose(clockNow(CLOCK_BOOTTIME), 1000s + boot + 1h));

    clock.setSpeed(3600);
    clock.freeze();
    const Nanoseconds frozen = clock.monotonic();
    const Nanoseconds wall = clock.wall();
    EXPECT_TRUE(sim::eventually([&] { return clock.wall() > wall + 100s; }, 60s));
    EXPECT_EQ(clock.monotonic(), frozen);
    clock.thaw();
    EXPECT_TRUE(sim::eventually([&] { return clock.monotonic() > frozen + 100s; }, 60s));
    EXPECT_GT(clock.boot(), clock.monotonic() + boot + 1h + 100s);
    EXPECT_EQ(clock.realDuration(3600s), 1s);
    EXPECT_EQ(clock.simulatedDuration(1s), 3600s);

    clock.reset();
    EXPECT_TRUE(clock.isHosts());
    EXPECT_TRUE(areClose(clockNow(CLOCK_REALTIME), hostNow(CLOCK_REALTIME)));
    EXPECT_TRUE(areClose(clock.monotonic(), hostNow(CLOCK_MONOTONIC)));
    clock.setSpeed(2);
    EXPECT_TRUE(areClose(clock.wall(), hostNow(CLOCK_REALTIME))) << "nothing of before is left";
}

TEST_F(ClockTest, EveryThreadSeesOneClock) {
    clock.setSpeed(10);
    std::atomic<bool> stop{false};
    std::thread setter([&] {
        for (int i = 0; !stop; ++i)
            clock.setSpeed(i % 2 ? 10 : 1000);
    });
    Nanoseconds last = clockNow(CLOCK_MONOTONIC);
    for (int i = 0; i < 20'000; ++i) {
        const Nanoseconds now = clockNow(CLOCK_MONOTONIC);
        ASSERT_GE(now, last) << "never back";
        last = now;
    }
    stop = true;
    setter.join();
}

}  // namespace
