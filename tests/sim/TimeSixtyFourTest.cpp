// The calls that a program makes where time_t can have 32 or 64 bits and it is built for 64: other
// functions under the same names. Elsewhere these are the usual ones.

#ifndef __LP64__
#define _TIME_BITS 64  // NOLINT(bugprone-reserved-identifier): asks the headers for them
#define _FILE_OFFSET_BITS 64
#endif

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/timex.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <ctime>
#include <thread>

#include "power/BoardProtocol.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

// Nothing of the simulator's that has a timespec in it may be used here: to it that has 32 bits.

namespace {

static_assert(sizeof(time_t) == 8);

constexpr char Folder[] = "/sys/kernel";  // the host has it, the terminal does not
constexpr char File[] = "/etc/ppp/peer";
constexpr timespec Duration{2, 0};
constexpr timespec Unchanged[2] = {{0, UTIME_OMIT}, {0, UTIME_OMIT}};

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t takenMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
sem_t semaphore;
struct stat status;

timespec later(clockid_t clock) {
    timespec until{};
    clock_gettime(clock, &until);
    until.tv_sec += Duration.tv_sec;
    return until;
}

template <class Wait> int withMutex(Wait wait) {
    pthread_mutex_lock(&mutex);
    const int result = wait();
    pthread_mutex_unlock(&mutex);
    return result;
}

struct Call {
    const char* name;
    int result;
    int (*call)();
};

constexpr Call Waits[] = {
    {"nanosleep", 0, [] { return nanosleep(&Duration, nullptr); }},
    {"clock_nanosleep", 0, [] { return clock_nanosleep(CLOCK_MONOTONIC, 0, &Duration, nullptr); }},
    {"ppoll", 0, [] { return ppoll(nullptr, 0, &Duration, nullptr); }},
    {"pselect", 0, [] { return pselect(0, nullptr, nullptr, nullptr, &Duration, nullptr); }},
    {"select", 0,
     [] {
         timeval left{2, 0};
         return select(0, nullptr, nullptr, nullptr, &left);
     }},
    {"pthread_cond_timedwait", ETIMEDOUT,
     [] {
         const timespec until = later(CLOCK_REALTIME);
         return withMutex([&] { return pthread_cond_timedwait(&condition, &mutex, &until); });
     }},
    {"pthread_cond_clockwait", ETIMEDOUT,
     [] {
         const timespec until = later(CLOCK_MONOTONIC);
         return withMutex(
             [&] { return pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &until); });
     }},
    {"pthread_mutex_timedlock", ETIMEDOUT,
     [] {
         const timespec until = later(CLOCK_REALTIME);
         return pthread_mutex_timedlock(&takenMutex, &until);
     }},
    {"pthread_mutex_clocklock", ETIMEDOUT,
     [] {
         const timespec until = later(CLOCK_MONOTONIC);
         return pthread_mutex_clocklock(&takenMutex, CLOCK_MONOTONIC, &until);
     }},
    {"sem_timedwait", -1,
     [] {
         const timespec until = later(CLOCK_REALTIME);
         return sem_timedwait(&semaphore, &until);
     }},
};

int adjust(int (*adjustClock)(timex*)) {
    timex adjustment{};
    adjustment.modes = ADJ_TICK;
    adjustment.tick = 1;  // far outside of what the kernel takes
    return adjustClock(&adjustment);
}

constexpr Call Refused[] = {
    {"adjtimex", EPERM, [] { return adjust(adjtimex); }},
    {"ntp_adjtime", EPERM, [] { return adjust(ntp_adjtime); }},
    {"clock_adjtime", EPERM,
     [] { return adjust([](timex* change) { return clock_adjtime(CLOCK_REALTIME, change); }); }},
    {"adjtime", EPERM,
     [] {
         const timeval tooMuch{1000000, 0};
         return adjtime(&tooMuch, nullptr);
     }},
    {"stat", ENOENT, [] { return stat(Folder, &status); }},
    {"lstat", ENOENT, [] { return lstat(Folder, &status); }},
    {"fstatat", ENOENT, [] { return fstatat(AT_FDCWD, Folder, &status, 0); }},
    {"utimensat", ENOENT, [] { return utimensat(AT_FDCWD, Folder, Unchanged, 0); }},
    {"utimes", ENOENT, [] { return utimes(Folder, nullptr); }},
    {"utime", ENOENT, [] { return utime(Folder, nullptr); }},
};

/// Seconds of the host's time that an action takes.
template <class Action> double hostSeconds(Action action) {
    const auto now = [] {
        const sim::HostTime hostTime;
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    };
    const double begin = now();
    action();
    return now() - begin;
}

class TimeSixtyFourTest : public testing::Test {
protected:
    TimeSixtyFourTest() { sem_init(&semaphore, 0, 0); }
    ~TimeSixtyFourTest() override { sem_destroy(&semaphore); }

    sim::Terminal terminal;
};

TEST_F(TimeSixtyFourTest, WaitsAreScaled) {
    pthread_mutex_lock(&takenMutex);
    terminal.clock().setSpeed(50);
    for (const Call& wait : Waits) {
        double shortest = 1000;
        for (int tries = 0; tries < 5 && shortest >= 1; ++tries) {
            shortest = std::min(
                shortest, hostSeconds([&] { EXPECT_EQ(wait.call(), wait.result) << wait.name; }));
        }
        EXPECT_LT(shortest, 1) << wait.name;
        EXPECT_GE(shortest, 0.039) << wait.name;
    }
    pthread_mutex_unlock(&takenMutex);
}

TEST_F(TimeSixtyFourTest, TheClockIsTheTerminals) {
    const timespec set{86400, 0};
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &set), 0);
    timespec now{};
    EXPECT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
    EXPECT_NEAR(static_cast<double>(now.tv_sec), 86400, 20);
    const timeval setAgain{172800, 0};
    EXPECT_EQ(settimeofday(&setAgain, nullptr), 0);
    timeval then{};
    EXPECT_EQ(gettimeofday(&then, nullptr), 0);
    EXPECT_NEAR(static_cast<double>(then.tv_sec), 172800, 20);
    time_t stored = 0;
    EXPECT_EQ(time(&stored), stored);
    EXPECT_NEAR(static_cast<double>(stored), 172800, 20);
    EXPECT_EQ(clock_gettime(-1, &now), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(TimeSixtyFourTest, TheRestOfAWaitIsHandedBack) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], "", 1), 1);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(ends[0], &readable);
    timeval left{1'000'000, 0};
    EXPECT_EQ(select(ends[0] + 1, &readable, nullptr, nullptr, &left), 1);
    EXPECT_GT(left.tv_sec, 500'000);
    EXPECT_LE(left.tv_sec, 1'000'000);
    close(ends[0]);
    close(ends[1]);
    const timespec wrong{0, -1};
    EXPECT_EQ(nanosleep(&wrong, nullptr), -1);
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &wrong, nullptr), EINVAL);
    const timespec farAway{int64_t(1) << 40,
                           0};  // more than 32 bits can hold is no moment of the past
    std::thread poster([] {
        sim::pauseBriefly();
        sem_post(&semaphore);
    });
    EXPECT_EQ(sem_timedwait(&semaphore, &farAway), 0);
    poster.join();
}

TEST_F(TimeSixtyFourTest, PathsAndDescriptorsAreTheTerminals) {
    for (const Call& call : Refused) {
        errno = 0;
        EXPECT_EQ(call.call(), -1) << call.name;
        EXPECT_EQ(errno, call.result) << call.name;
    }
    terminal.files().write(File, "seven b");
    const timespec times[2] = {{1000, 0}, {2000, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, File, times, 0), 0);
    EXPECT_EQ(stat(File, &status), 0);
    EXPECT_EQ(status.st_size, 7);
    EXPECT_EQ(status.st_mtime, 2000);
    const timeval coarse[2] = {{3000, 0}, {4000, 0}};
    EXPECT_EQ(utimes(File, coarse), 0);
    EXPECT_EQ(lstat(File, &status), 0);
    EXPECT_EQ(status.st_mtime, 4000);
    const utimbuf coarser{5000, 6000};
    EXPECT_EQ(utime(File, &coarser), 0);
    EXPECT_EQ(fstatat(AT_FDCWD, File, &status, 0), 0);
    EXPECT_EQ(status.st_mtime, 6000);
    EXPECT_EQ(stat(board::ClockPath, &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(stat("/", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode)) << "the host's";

    const int fd = open(board::PowerControlPath, O_RDWR);
    const int copy = fcntl(fd, F_DUPFD, 100);
    close(fd);
    EXPECT_EQ(ioctl(copy, board::LineHigh, 1), 0);
    EXPECT_EQ(terminal.powerControl().line(1), 1);
    EXPECT_EQ(close(copy), 0);
}

}  // namespace
