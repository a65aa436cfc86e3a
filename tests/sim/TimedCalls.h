#pragma once

// Tests of every call that waits for a while and of those that read or set the clock, as the suite
// TIMED_CALLS_TEST. Compiled twice: with the usual time_t, and with that of 64 bits, where these
// are other functions. There nothing of the simulator's that has a timespec in it may be used: to
// it that has 32 bits.

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <threads.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <limits>
#include <thread>

#include "io/FileDescriptor.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"
#include "support/Eventually.h"

extern "C" {
int __poll_chk(pollfd*, nfds_t, int, size_t);
int __ppoll_chk(pollfd*, nfds_t, const timespec*, const sigset_t*, size_t);
}

namespace {

inline constexpr timespec Duration{2, 0};  // of each wait

inline double clockNow(clockid_t clock) {
    timespec now{};
    EXPECT_EQ(clock_gettime(clock, &now), 0);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

inline double hostNow(clockid_t clock) {
    const sim::HostTime hostTime;
    return clockNow(clock);
}

/// The end of a wait that begins now.
inline const timespec* end(clockid_t clock) {
    static timespec until;
    clock_gettime(clock, &until);
    until.tv_sec += Duration.tv_sec;
    return &until;
}

/// What the waits wait for, in vain.
struct Awaited {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_cond_t monotonicCondition{};
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    mtx_t plainMutex{};
    cnd_t plainCondition{};
    sem_t semaphore{}, ended{};
    std::thread thread{[this] { sem_wait(&ended); }};
    io::FileDescriptor poller{epoll_create1(EPOLL_CLOEXEC)};
    epoll_event event{};
    timeval left{2, 0};

    Awaited() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&monotonicCondition, &attributes);
        sem_init(&semaphore, 0, 0);
        pthread_mutex_lock(&mutex);  // as most of them want it
        mtx_init(&plainMutex, mtx_timed);
        cnd_init(&plainCondition);
        mtx_lock(&plainMutex);
        std::thread([this] { pthread_rwlock_wrlock(&lock); }).join();
    }
    Awaited(const Awaited&) = delete;
    Awaited& operator=(const Awaited&) = delete;
    ~Awaited() {
        sem_post(&ended);
        thread.join();
    }
    pthread_t handle() { return thread.native_handle(); }
};

struct Wait {
    int result;
    const char* name;
    int (*wait)(Awaited& at);
};

#define WAIT(result, expression) \
    Wait({result, #expression,   \
          [](Awaited& at [[maybe_unused]]) { return static_cast<int>(expression); }})

inline constexpr Wait Waits[] = {
    WAIT(0, nanosleep(&Duration, nullptr)),
    WAIT(0, clock_nanosleep(CLOCK_MONOTONIC, 0, &Duration, nullptr)),
    WAIT(0, clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, end(CLOCK_REALTIME), nullptr)),
    WAIT(0, clock_nanosleep(CLOCK_BOOTTIME, TIMER_ABSTIME, end(CLOCK_BOOTTIME), nullptr)),
    WAIT(0, usleep(2'000'000)),
    WAIT(0, sleep(2)),
    WAIT(0, poll(nullptr, 0, 2000)),
    WAIT(0, __poll_chk(nullptr, 0, 2000, 0)),
    WAIT(0, ppoll(nullptr, 0, &Duration, nullptr)),
    WAIT(0, select(0, nullptr, nullptr, nullptr, &at.left)),
    WAIT(0, pselect(0, nullptr, nullptr, nullptr, &Duration, nullptr)),
    WAIT(ETIMEDOUT, pthread_cond_timedwait(&at.condition, &at.mutex, end(CLOCK_REALTIME))),
    WAIT(ETIMEDOUT,
         pthread_cond_timedwait(&at.monotonicCondition, &at.mutex, end(CLOCK_MONOTONIC))),
    WAIT(ETIMEDOUT,
         pthread_cond_clockwait(&at.condition, &at.mutex, CLOCK_MONOTONIC, end(CLOCK_MONOTONIC))),
    WAIT(ETIMEDOUT, pthread_mutex_timedlock(&at.mutex, end(CLOCK_REALTIME))),
    WAIT(ETIMEDOUT, pthread_mutex_clocklock(&at.mutex, CLOCK_MONOTONIC, end(CLOCK_MONOTONIC))),
    WAIT(ETIMEDOUT, pthread_rwlock_timedrdlock(&at.lock, end(CLOCK_REALTIME))),
    WAIT(ETIMEDOUT, pthread_rwlock_timedwrlock(&at.lock, end(CLOCK_REALTIME))),
    WAIT(ETIMEDOUT, pthread_rwlock_clockrdlock(&at.lock, CLOCK_MONOTONIC, end(CLOCK_MONOTONIC))),
    WAIT(ETIMEDOUT, pthread_rwlock_clockwrlock(&at.lock, CLOCK_MONOTONIC, end(CLOCK_MONOTONIC))),
    WAIT(ETIMEDOUT, pthread_timedjoin_np(at.handle(), nullptr, end(CLOCK_REALTIME))),
    WAIT(ETIMEDOUT,
         pthread_clockjoin_np(at.handle(), nullptr, CLOCK_MONOTONIC, end(CLOCK_MONOTONIC))),
    WAIT(thrd_timedout, cnd_timedwait(&at.plainCondition, &at.plainMutex, end(CLOCK_REALTIME))),
    WAIT(thrd_timedout, mtx_timedlock(&at.plainMutex, end(CLOCK_REALTIME))),
    WAIT(0, thrd_sleep(&Duration, nullptr)),
    WAIT(0, epoll_wait(at.poller.get(), &at.event, 1, 2000)),
    WAIT(0, epoll_pwait(at.poller.get(), &at.event, 1, 2000, nullptr)),
    WAIT(0, epoll_pwait2(at.poller.get(), &at.event, 1, &Duration, nullptr)),
    WAIT(-1, sem_timedwait(&at.semaphore, end(CLOCK_REALTIME))),
    WAIT(-1, sem_clockwait(&at.semaphore, CLOCK_MONOTONIC, end(CLOCK_MONOTONIC))),
#if !defined(_TIME_BITS) || _TIME_BITS != 64 || defined(__LP64__)
    WAIT(0, __ppoll_chk(nullptr, 0, &Duration, nullptr, 0)),
#endif
};

struct TIMED_CALLS_TEST : testing::Test {
    sim::Terminal terminal;
};

TEST_F(TIMED_CALLS_TEST, WaitsAreAsMuchShorterAsTheClockIsFaster) {
    terminal.clock().setWall(std::chrono::hours(1));  // no deadline is the host's by chance
    terminal.clock().setMonotonic(std::chrono::hours(2));
    terminal.clock().setSpeed(50);
    Awaited awaited;
    for (const Wait& wait : Waits) {
        // A busy machine makes a wait longer, never shorter.
        double shortest = 1000;
        for (int tries = 0; tries < 5 && shortest >= 1; ++tries) {
            awaited.left = {2, 0};
            const double begin = hostNow(CLOCK_MONOTONIC);
            EXPECT_EQ(wait.wait(awaited), wait.result) << wait.name;
            shortest = std::min(shortest, hostNow(CLOCK_MONOTONIC) - begin);
        }
        EXPECT_LT(shortest, 1) << wait.name;
        EXPECT_GE(shortest, 0.039) << wait.name;
    }
}

TEST_F(TIMED_CALLS_TEST, WhatCannotBeIsRefusedAndTheFarthestMomentIsNotPast) {
    const timespec wrong{1, 2'000'000'000};
    const timespec past{-1, 0};
    const timespec last{std::numeric_limits<time_t>::max(), 999'999'999};
    timeval wrongLeft{1, -1};
    Awaited awaited;
    for (const double speed : {1.0, 1e-6, 50.0}) {
        terminal.clock().setSpeed(speed);
        for (const int result : {nanosleep(&wrong, nullptr), ppoll(nullptr, 0, &wrong, nullptr),
                                 pselect(0, nullptr, nullptr, nullptr, &wrong, nullptr),
                                 select(0, nullptr, nullptr, nullptr, &wrongLeft)})
            EXPECT_EQ(result, -1) << speed;
        EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &wrong, nullptr), EINVAL);
        EXPECT_EQ(pthread_cond_timedwait(&awaited.condition, &awaited.mutex, &wrong), EINVAL);
        EXPECT_EQ(sem_timedwait(&awaited.semaphore, &past), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        std::thread poster([&] {
            sim::pauseBriefly();
            sem_post(&awaited.semaphore);
        });
        EXPECT_EQ(sem_timedwait(&awaited.semaphore, &last), 0) << speed;
        poster.join();
    }
}

TEST_F(TIMED_CALLS_TEST, SettingTheClockLeavesTheHostsAlone) {
    const double before = hostNow(CLOCK_REALTIME) - hostNow(CLOCK_MONOTONIC);
    const timespec set{86400, 0};
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &set), 0);
    EXPECT_NEAR(clockNow(CLOCK_REALTIME), 86400, 20);
    EXPECT_NEAR(clockNow(CLOCK_REALTIME_COARSE), 86400, 20);
    const timeval setAgain{172800, 0};
    EXPECT_EQ(settimeofday(&setAgain, nullptr), 0);
    timeval now{};
    EXPECT_EQ(gettimeofday(&now, nullptr), 0);
    EXPECT_NEAR(static_cast<double>(now.tv_sec), 172800, 20);
    time_t stored = 0;
    EXPECT_EQ(time(&stored), stored);
    EXPECT_NEAR(static_cast<double>(stored), 172800, 20);
    timespec standard{};
    EXPECT_EQ(timespec_get(&standard, TIME_UTC), TIME_UTC);
    EXPECT_NEAR(static_cast<double>(standard.tv_sec), 172800, 20);

    const timespec wrong{0, -1};
    const timeval wrongToo{0, 1'000'000};
    const timeval tooMuch{1000000, 0};
    timex adjustment{};
    adjustment.modes = ADJ_TICK;
    adjustment.tick = 1;  // far outside of what the kernel takes
    for (const int refused :
         {clock_settime(CLOCK_REALTIME, &wrong), clock_settime(CLOCK_MONOTONIC, &set),
          settimeofday(&wrongToo, nullptr), adjtimex(&adjustment), ntp_adjtime(&adjustment),
          clock_adjtime(CLOCK_REALTIME, &adjustment), adjtime(&tooMuch, nullptr)})
        EXPECT_EQ(refused, -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_NEAR(clockNow(CLOCK_REALTIME), 172800, 20);
    EXPECT_NEAR(hostNow(CLOCK_REALTIME) - hostNow(CLOCK_MONOTONIC), before, 1);
}

TEST_F(TIMED_CALLS_TEST, TheRestOfAWaitIsHandedBack) {
    terminal.clock().setSpeed(50);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], "", 1), 1);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(ends[0], &readable);
    timeval left{1'000'000, 0};
    EXPECT_EQ(select(ends[0] + 1, &readable, nullptr, nullptr, &left), 1);
    EXPECT_NEAR(static_cast<double>(left.tv_sec), 1'000'000, 100'000);
    close(ends[0]);
    close(ends[1]);

    const auto former = signal(SIGUSR2, [](int) {});
    std::atomic<bool> isOver{false};
    std::thread sleeper([&] {
        timespec rest{1'000'000, 0};
        EXPECT_EQ(nanosleep(&rest, &rest), -1);
        EXPECT_NEAR(static_cast<double>(rest.tv_sec), 1'000'000, 100'000);
        isOver = true;
    });
    const auto interrupted = [&] {  // tried until it sleeps
        pthread_kill(sleeper.native_handle(), SIGUSR2);
        return isOver.load();
    };
    EXPECT_TRUE(test::soon(interrupted));
    sleeper.join();
    signal(SIGUSR2, former);
}

}  // namespace
