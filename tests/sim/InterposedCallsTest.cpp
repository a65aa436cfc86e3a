// The calls without a path: on descriptors, on the system and on other processes. Each check fails
// if the real call is reached, and does no harm then.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/swap.h>
#include <sys/timex.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "power/BoardProtocol.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

extern "C" {
ssize_t __read_chk(int, void*, size_t, size_t);
int __poll_chk(pollfd*, nfds_t, int, size_t);
int __ppoll_chk(pollfd*, nfds_t, const timespec*, const sigset_t*, size_t);
int pivot_root(const char*, const char*);
int init_module(void*, unsigned long, const char*);
int finit_module(int, const char*, int);
int delete_module(const char*, unsigned);
}

namespace {

constexpr char Line[] = "/dev/ttyAT2";
constexpr char Speaker[] = "/dev/input/event2";
constexpr char False[] = "/bin/false";  // a program that would end the test as failed
constexpr auto Limit = std::chrono::seconds(60);

char buffer[128];
iovec part{buffer, sizeof buffer};
termios settings;
int number = 0;
constexpr timespec Never{1000, 0};

pollfd files(int fd) { return {fd, POLLIN, 0}; }

fd_set setOf(int fd) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    return set;
}

struct DescriptorCall {
    const char* name;
    const char* fault;  // the name that the call has for the fault rules
    long (*call)(int fd);
};

constexpr DescriptorCall DescriptorCalls[] = {
    {"read", "read", [](int fd) -> long { return read(fd, buffer, 4); }},
    {"__read_chk", "read", [](int fd) -> long { return __read_chk(fd, buffer, 4, 4); }},
    {"readv", "read", [](int fd) -> long { return readv(fd, &part, 1); }},
    {"write", "write", [](int fd) -> long { return write(fd, buffer, 4); }},
    {"writev", "write", [](int fd) -> long { return writev(fd, &part, 1); }},
    {"ioctl", "ioctl", [](int fd) -> long { return ioctl(fd, TIOCMGET, &number); }},
    {"tcgetattr", "tcgetattr", [](int fd) -> long { return tcgetattr(fd, &settings); }},
    {"tcsetattr", "tcsetattr", [](int fd) -> long { return tcsetattr(fd, TCSANOW, &settings); }},
    {"tcflush", "tcflush", [](int fd) -> long { return tcflush(fd, TCIFLUSH); }},
    {"tcsendbreak", "tcsendbreak", [](int fd) -> long { return tcsendbreak(fd, 0); }},
    {"tcdrain", "tcdrain", [](int fd) -> long { return tcdrain(fd); }},
    {"poll", "poll",
     [](int fd) -> long {
         pollfd file = files(fd);
         return poll(&file, 1, -1);
     }},
    {"__poll_chk", "poll",
     [](int fd) -> long {
         pollfd file = files(fd);
         return __poll_chk(&file, 1, -1, sizeof file);
     }},
    {"ppoll", "poll",
     [](int fd) -> long {
         pollfd file = files(fd);
         return ppoll(&file, 1, &Never, nullptr);
     }},
    {"__ppoll_chk", "poll",
     [](int fd) -> long {
         pollfd file = files(fd);
         return __ppoll_chk(&file, 1, &Never, nullptr, sizeof file);
     }},
    {"select", "select",
     [](int fd) -> long {
         fd_set set = setOf(fd);
         return select(fd + 1, nullptr, nullptr, &set, nullptr);
     }},
    {"pselect", "select",
     [](int fd) -> long {
         fd_set set = setOf(fd);
         return pselect(fd + 1, &set, nullptr, nullptr, &Never, nullptr);
     }},
    {"close", "close", [](int fd) -> long { return close(fd); }},
};

struct SystemCall {
    const char* name;
    int error;
    long (*call)();  // that fails
};

/// A request, with nonsense to be set, to an interface that the host has and the terminal does not.
long requestOn(unsigned long request) {
    ifreq interface {};
    strcpy(interface.ifr_name, "lo");
    interface.ifr_mtu = -1;
    const int socketFd = socket(AF_INET, SOCK_DGRAM, 0);
    const long result = ioctl(socketFd, request, &interface);
    const int error = errno;
    close(socketFd);
    errno = error;
    return result;
}

long adjustClock(int (*adjust)(timex*)) {
    timex adjustment{};
    adjustment.modes = ADJ_TICK;
    adjustment.tick = 1;  // far outside of what the kernel takes
    return adjust(&adjustment);
}

long spawned(int error) {
    errno = error;
    return error ? -1 : 0;
}

char* const Arguments[] = {const_cast<char*>(False), nullptr};
pid_t spawnedProcess = 0;

constexpr SystemCall Refused[] = {
    {"reboot", EPERM, []() -> long { return reboot(0); }},
    {"swapon", EPERM, []() -> long { return swapon("/none", 0); }},
    {"swapoff", EPERM, []() -> long { return swapoff("/none"); }},
    {"sethostname", EPERM, []() -> long { return sethostname(buffer, 100); }},
    {"setdomainname", EPERM, []() -> long { return setdomainname(buffer, 100); }},
    {"pivot_root", EPERM, []() -> long { return pivot_root("/none", "/none"); }},
    {"chroot", EPERM, []() -> long { return chroot("/none"); }},
    {"init_module", EPERM, []() -> long { return init_module(nullptr, 0, ""); }},
    {"finit_module", EPERM, []() -> long { return finit_module(-1, "", 0); }},
    {"delete_module", EPERM, []() -> long { return delete_module("none", 0); }},
    {"mount", ENODEV, []() -> long { return mount("none", "/none", "none", 0, nullptr); }},
    {"umount", EINVAL, []() -> long { return umount("/none"); }},
    {"umount2", EINVAL, []() -> long { return umount2("/none", 0); }},
    {"kill of init", EPERM, []() -> long { return kill(1, 0); }},
    {"kill of everybody", EPERM, []() -> long { return kill(-1, 0); }},
    {"kill of the own group", EPERM, []() -> long { return kill(0, 0); }},
    {"kill of nobody", ESRCH, []() -> long { return kill(0x7FFFFFF0, SIGKILL); }},
    {"killpg", EPERM, []() -> long { return killpg(1, 0); }},
    {"sigqueue", EPERM, []() -> long { return sigqueue(1, 0, sigval{}); }},
    {"popen", ENOENT, []() -> long { return popen("exit 3", "r") ? 0 : -1; }},
    {"execve", ENOENT, []() -> long { return execve(False, Arguments, environ); }},
    {"execv", ENOENT, []() -> long { return execv(False, Arguments); }},
    {"execvp", ENOENT, []() -> long { return execvp(False, Arguments); }},
    {"execvpe", ENOENT, []() -> long { return execvpe(False, Arguments, environ); }},
    {"execl", ENOENT, []() -> long { return execl(False, False, nullptr); }},
    {"execle", ENOENT, []() -> long { return execle(False, False, nullptr, environ); }},
    {"execlp", ENOENT, []() -> long { return execlp(False, False, nullptr); }},
    {"execveat", ENOENT, []() -> long { return execveat(-1, False, Arguments, environ, 0); }},
    {"fexecve", ENOENT, []() -> long { return fexecve(open(False, O_PATH), Arguments, environ); }},
    {"posix_spawn", ENOENT,
     [] {
         return spawned(posix_spawn(&spawnedProcess, False, nullptr, nullptr, Arguments, environ));
     }},
    {"posix_spawnp", ENOENT,
     [] {
         return spawned(posix_spawnp(&spawnedProcess, False, nullptr, nullptr, Arguments, environ));
     }},
    {"adjtimex", EPERM, [] { return adjustClock(adjtimex); }},
    {"ntp_adjtime", EPERM, [] { return adjustClock(ntp_adjtime); }},
    {"clock_adjtime", EPERM,
     [] {
         return adjustClock([](timex* change) { return clock_adjtime(CLOCK_REALTIME, change); });
     }},
    {"adjtime", EPERM,
     []() -> long {
         const timeval tooMuch{1000000, 0};
         return adjtime(&tooMuch, nullptr);
     }},
    {"a route", EPERM, [] { return requestOn(SIOCADDRT); }},
    {"an interface's packet size", ENODEV, [] { return requestOn(SIOCSIFMTU); }},
    {"an interface's flags", ENODEV, [] { return requestOn(SIOCGIFFLAGS); }},
    {"a wireless network's name", ENODEV, [] { return requestOn(0x8B1A); }},
};

template <class Call> int errorOf(Call call) {
    errno = 0;
    return call() == -1 ? errno : 0;
}

class InterposedCallsTest : public testing::Test {
protected:
    int fault(const char* call) {
        terminal.faults().fail(call, "", EBADE);
        return EBADE;
    }

    sim::Terminal terminal;
};

TEST_F(InterposedCallsTest, CallsOnADescriptorReachTheTerminal) {
    for (const DescriptorCall& call : DescriptorCalls) {
        const int fd = open(Line, O_RDWR | O_NONBLOCK);
        terminal.faults().fail(call.fault, Line, EBADE);
        EXPECT_EQ(errorOf([&] { return call.call(fd); }), EBADE) << call.name;
        close(fd);
    }
    EXPECT_EQ(errorOf([] { return open("/nowhere/at/all", O_RDONLY); }), ENOENT);
    terminal.faults().clear();
    const int host = open("/dev/null", O_RDWR);
    for (const DescriptorCall& call : DescriptorCalls) {
        if (strcmp(call.fault, "poll") != 0 && strcmp(call.fault, "select") != 0)
            call.call(host);
    }
    EXPECT_EQ(terminal.faults().calls(), 0) << "the host's descriptors are none of its business";
}

TEST_F(InterposedCallsTest, WhatWouldChangeTheHostIsRefused) {
    for (const SystemCall& call : Refused)
        EXPECT_EQ(errorOf(call.call), call.error) << call.name;
    EXPECT_EQ(system(nullptr), 0) << "no shell";
    EXPECT_EQ(WEXITSTATUS(system("exit 3")), 127);
}

TEST_F(InterposedCallsTest, SystemCallsFailByTheirFaults) {
    const SystemCall calls[] = {
        {"mount", 0, []() -> long { return mount("none", "/none", "none", 0, nullptr); }},
        {"umount", 0, []() -> long { return umount("/none"); }},
        {"kill", 0, []() -> long { return kill(getpid(), 0); }},
        {"fork", 0, []() -> long { return fork(); }},
        {"system", 0, []() -> long { return system("true"); }},
        {"popen", 0, []() -> long { return popen("true", "r") ? 0 : -1; }},
        {"exec", 0, []() -> long { return execv(False, Arguments); }},
        {"posix_spawn", 0,
         [] { return spawned(posix_spawn(nullptr, False, nullptr, nullptr, Arguments, environ)); }},
        {"clock_settime", 0,
         []() -> long {
             const timespec now{1, 0};
             return clock_settime(CLOCK_REALTIME, &now);
         }},
        {"pthread_create", 0,
         [] {
             pthread_t thread{};
             return spawned(pthread_create(
                 &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr));
         }},
    };
    for (const SystemCall& call : calls)
        EXPECT_EQ(errorOf([&] { return fault(call.name) ? call.call() : 0; }), EBADE) << call.name;
    EXPECT_EQ(terminal.faults().failed(), 10);
    {
        fault("pthread_create");
        const sim::HostTime hostTime;
        std::thread([] {}).join();  // of the simulator or of a test: no call of the application
    }
}

TEST_F(InterposedCallsTest, FaultsAreCountedAndTakenInTurn) {
    sim::Faults& faults = terminal.faults();
    const auto request = [] { return errorOf([] { return access("/dev/rtc", F_OK); }); };
    faults.failNth(3, EIO);
    EXPECT_EQ(request(), 0);
    EXPECT_EQ(errorOf([] { return access("/dev/oled", F_OK); }), 0);
    EXPECT_EQ(request(), EIO);
    EXPECT_EQ(request(), 0);
    EXPECT_EQ(faults.calls(), 4);
    faults.clear();
    faults.fail("access", "/dev/rtc", EACCES, 1, 2);
    faults.fail("", "/dev/rtc", ENXIO, 0, 1);
    const int expected[] = {ENXIO, EACCES, EACCES, 0};
    for (const int error : expected) {
        EXPECT_EQ(errorOf([] { return access("/dev/oled", F_OK); }), 0);
        EXPECT_EQ(request(), error);
    }
    EXPECT_EQ(faults.failed(), 3);
    EXPECT_EQ(faults.calls(), 8);
}

TEST_F(InterposedCallsTest, AProgramSignalsItselfAndItsChildren) {
    EXPECT_EQ(kill(getpid(), 0), 0);
    const pid_t child = fork();
    if (child == 0) {
        for (;;)
            pause();
    }
    EXPECT_EQ(kill(child, 0), 0);
    EXPECT_EQ(kill(child, SIGKILL), 0);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(errorOf([=] { return kill(child, 0); }), ESRCH);
}

TEST_F(InterposedCallsTest, DuplicatesStandForTheSameOpen) {
    const int first = open(board::PowerControlPath, O_RDWR);
    const int copies[] = {dup(first), dup2(first, 200), dup3(first, 201, O_CLOEXEC),
                          fcntl(first, F_DUPFD, 202), fcntl64(first, F_DUPFD_CLOEXEC, 203)};
    EXPECT_EQ(dup2(first, first), first);
    close(first);
    for (const int copy : copies) {
        EXPECT_EQ(ioctl(copy, board::SetKeyboardLight, copy), 0) << copy;
        EXPECT_EQ(terminal.powerControl().keyboardLight(), copy);
    }
    // A descriptor that is replaced is closed, and is no device any more.
    const int line = open(Line, O_RDWR);
    const int twin = dup(line);
    const int null = open("/dev/null", O_RDWR);
    EXPECT_EQ(dup2(null, line), line);
    EXPECT_TRUE(terminal.barcodeLine().isOpen());
    EXPECT_EQ(errorOf([=] { return ioctl(line, TIOCMGET, &number); }), ENOTTY);
    EXPECT_EQ(errorOf([=] { return dup2(-1, twin); }), EBADF);
    EXPECT_EQ(ioctl(twin, TIOCMGET, &number), 0);
    EXPECT_EQ(dup3(null, twin, 0), twin);
    EXPECT_FALSE(terminal.barcodeLine().isOpen());
    for (const int fd : {line, twin, null, copies[0], copies[1], copies[2], copies[3], copies[4]})
        EXPECT_EQ(close(fd), 0);
}

TEST_F(InterposedCallsTest, AChildHasTheFilesButNoDevices) {
    std::atomic<bool> stop{false};
    std::thread busy([&] {  // holds any lock at any time
        while (!stop) {
            close(open(board::PowerControlPath, O_RDWR));
            access("/mnt/mmc/file", F_OK);
            umount("/mnt/mmc");
        }
    });
    const int inherited = open(Line, O_RDWR);
    terminal.files().write("/var/run/ppp0.pid", "1\n");
    for (int i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const bool isRight =
                access("/var/run/ppp0.pid", F_OK) == 0 &&
                errorOf([] { return open(board::PowerControlPath, O_RDWR); }) == ENXIO &&
                errorOf([] { return umount("/mnt/mmc"); }) == EPERM &&
                errorOf([] { return open("/sys/kernel", O_RDONLY); }) == ENOENT &&
                close(inherited) == 0 && errorOf([] { return execv(False, Arguments); }) == ENOENT;
            if (i == 0)
                terminal.~Terminal();  // as a static one at the child's end
            _exit(isRight ? 0 : 1);
        }
        int status = -1;
        ASSERT_TRUE(
            sim::eventually([&] { return waitpid(child, &status, WNOHANG) == child; }, Limit));
        EXPECT_EQ(status, 0);
    }
    stop = true;
    busy.join();
    EXPECT_TRUE(terminal.barcodeLine().isOpen()) << "closed by the children only";
    EXPECT_TRUE(terminal.files().exists("/var/run/ppp0.pid"));
    close(inherited);
}

TEST_F(InterposedCallsTest, CallsThatCannotUnwindSurviveACancellation) {
    const int line = open(Line, O_RDWR);
    const int speaker = open(Speaker, O_RDWR);
    std::atomic<bool> survived{false};
    std::thread cancelled([&] {
        pthread_cancel(pthread_self());
        struct stat status {};
        stat(Line, &status);
        access("/mnt/mmc/file", F_OK);
        mkdir("/dev/folder", 0700);
        ioctl(line, TIOCMGET, &number);
        ioctl(speaker, board::GetEventTypes, &number);
        tcgetattr(line, &settings);
        tcsetattr(line, TCSADRAIN, &settings);
        tcflush(line, TCIOFLUSH);
        tcsendbreak(line, 0);
        mount("/dev/mmcblk0p1", "/mnt/mmc", "vfat", 0, "");
        umount("/mnt/mmc");
        kill(1, 0);
        kill(getppid(), 0);
        dup2(dup(line), 210);
        const timespec now{1000, 0};
        clock_settime(CLOCK_REALTIME, &now);
        survived = true;
        pthread_testcancel();
        survived = false;
    });
    cancelled.join();
    EXPECT_TRUE(survived);
    EXPECT_EQ(terminal.journal().history("card"), "mount rw, unmount");
    for (const int fd : {line, speaker, 210})
        close(fd);
}

TEST_F(InterposedCallsTest, AWaitingCallIsACancellationPoint) {
    static int line, keypad;
    line = open(Line, O_RDWR);
    keypad = open("/dev/input/event0", O_RDWR);
    void (*const waits[])() = {
        [] { read(line, buffer, 1); },
        [] { read(keypad, buffer, sizeof buffer); },
        [] {
            pollfd file = files(line);
            poll(&file, 1, -1);
        },
        [] { pause(); },
        [] { sleep(1000); },
    };
    for (const auto& wait : waits) {
        std::thread waiting(wait);
        pthread_cancel(waiting.native_handle());
        waiting.join();
    }
    EXPECT_EQ(ioctl(line, TIOCMGET, &number), 0) << "the models have survived it";
    close(line);
    close(keypad);
}

}  // namespace
