// The calls without a path: on descriptors, on the system and on other processes. Each check fails
// if the real call is reached, and does no harm then.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/swap.h>
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
constexpr char False[] = "/bin/false";  // a program that would end the test as failed
constexpr timespec Long{1000, 0};
constexpr timespec Early{1000, 0};

char bytes[128];
iovec part{bytes, 4};
termios settings;
int number = 0;
pollfd file{-1, POLLIN, 0};
fd_set set;
char* const arguments[] = {const_cast<char*>(False), nullptr};
pid_t spawned = 0;

struct Call {
    const char* fault;  // the name that the call has for the fault rules; "" when it has none
    int error;          // that it fails with otherwise
    const char* name;
    long (*call)(int fd);
};

constexpr Call callOf(const char* fault, int error, const char* name, long (*call)(int fd)) {
    return {fault, error, name, call};
}

#define CALL(fault, error, expression) \
    callOf(fault, error, #expression, [](int fd [[maybe_unused]]) -> long { return expression; })

// Those that wait find `file` and `set` made for the descriptor.
constexpr Call DescriptorCalls[] = {
    CALL("read", 0, read(fd, bytes, 4)),
    CALL("read", 0, __read_chk(fd, bytes, 4, 4)),
    CALL("read", 0, readv(fd, &part, 1)),
    CALL("write", 0, write(fd, bytes, 4)),
    CALL("write", 0, writev(fd, &part, 1)),
    CALL("ioctl", 0, ioctl(fd, TIOCMGET, &number)),
    CALL("tcgetattr", 0, tcgetattr(fd, &settings)),
    CALL("tcsetattr", 0, tcsetattr(fd, TCSANOW, &settings)),
    CALL("tcflush", 0, tcflush(fd, TCIFLUSH)),
    CALL("tcsendbreak", 0, tcsendbreak(fd, 0)),
    CALL("tcdrain", 0, tcdrain(fd)),
    CALL("poll", 0, poll(&file, 1, 0)),
    CALL("poll", 0, __poll_chk(&file, 1, 0, sizeof file)),
    CALL("poll", 0, ppoll(&file, 1, &Long, nullptr)),
    CALL("poll", 0, __ppoll_chk(&file, 1, &Long, nullptr, sizeof file)),
    CALL("select", 0, select(fd + 1, nullptr, nullptr, &set, nullptr)),
    CALL("select", 0, pselect(fd + 1, &set, nullptr, nullptr, &Long, nullptr)),
    CALL("close", 0, close(fd)),
};

/// A request, with nonsense to be set, to an interface that the host has and the terminal does not.
int requestOn(unsigned long request) {
    ifreq interface {};
    interface.ifr_name[0] = 'l';
    interface.ifr_name[1] = 'o';
    interface.ifr_mtu = -1;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(fd, request, &interface);
    const int error = errno;
    close(fd);
    errno = error;
    return result;
}

/// As -1 with errno, from a call whose result is the error.
int failed(int error) {
    errno = error;
    return error != 0 ? -1 : 0;
}

constexpr Call SystemCalls[] = {
    CALL("", EPERM, reboot(0)),
    CALL("", EPERM, swapon("/none", 0)),
    CALL("", EPERM, swapoff("/none")),
    CALL("", EPERM, sethostname(bytes, 100)),
    CALL("", EPERM, setdomainname(bytes, 100)),
    CALL("", EPERM, pivot_root("/none", "/none")),
    CALL("", EPERM, chroot("/none")),
    CALL("", EPERM, init_module(nullptr, 0, "")),
    CALL("", EPERM, finit_module(-1, "", 0)),
    CALL("", EPERM, delete_module("none", 0)),
    CALL("mount", ENODEV, mount("none", "/none", "none", 0, nullptr)),
    CALL("umount", EINVAL, umount("/none")),
    CALL("umount", EINVAL, umount2("/none", 0)),
    CALL("kill", EPERM, kill(1, 0)),
    CALL("kill", EPERM, kill(-1, 0)),
    CALL("kill", EPERM, kill(0, 0)),
    CALL("kill", ESRCH, kill(0x7FFFFFF0, SIGKILL)),
    CALL("kill", EPERM, killpg(1, 0)),
    CALL("kill", EPERM, sigqueue(1, 0, sigval{})),
    CALL("exec", ENOENT, execve(False, arguments, environ)),
    CALL("exec", ENOENT, execv(False, arguments)),
    CALL("exec", ENOENT, execvp(False, arguments)),
    CALL("exec", ENOENT, execvpe(False, arguments, environ)),
    CALL("exec", ENOENT, execl(False, False, nullptr)),
    CALL("exec", ENOENT, execle(False, False, nullptr, environ)),
    CALL("exec", ENOENT, execlp(False, False, nullptr)),
    CALL("exec", ENOENT, execveat(-1, False, arguments, environ, 0)),
    CALL("exec", ENOENT, fexecve(open(False, O_PATH), arguments, environ)),
    CALL("posix_spawn", ENOENT,
         failed(posix_spawn(&spawned, False, nullptr, nullptr, arguments, environ))),
    CALL("posix_spawn", ENOENT,
         failed(posix_spawnp(&spawned, False, nullptr, nullptr, arguments, environ))),
    CALL("popen", ENOENT, popen("exit 3", "r") ? 0 : -1),
    CALL("system", 0, system(nullptr)),
    CALL("clock_settime", 0, clock_settime(CLOCK_REALTIME, &Early)),
    CALL("", EPERM, requestOn(SIOCADDRT)),
    CALL("ioctl", ENODEV, requestOn(SIOCSIFMTU)),
    CALL("ioctl", ENODEV, requestOn(SIOCGIFFLAGS)),
    CALL("ioctl", ENODEV, requestOn(0x8B1A)),  // SIOCSIWESSID
};

template <class Function> int errorOf(Function call) {
    errno = 0;
    return call() == -1 ? errno : 0;
}

class InterposedCallsTest : public testing::Test {
protected:
    sim::Terminal terminal;
};

TEST_F(InterposedCallsTest, CallsOnADescriptorReachTheTerminalAndOnlyIts) {
    const int null = open("/dev/null", O_RDWR);
    for (const Call& call : DescriptorCalls) {
        for (const int fd : {open(Line, O_RDWR | O_NONBLOCK), dup(null)}) {
            file.fd = fd;
            FD_ZERO(&set);
            FD_SET(fd, &set);
            terminal.faults().clear();
            terminal.faults().fail(call.fault, Line, EBADE);
            const bool isLine = isatty(fd);
            if (isLine || strcmp(call.fault, "select") != 0) {
                EXPECT_EQ(errorOf([&] { return call.call(fd); }) == EBADE, isLine) << call.name;
            }
            EXPECT_EQ(terminal.faults().calls(), isLine ? 1 : 0) << call.name;
            close(fd);
        }
    }
    close(null);
}

TEST_F(InterposedCallsTest, WhatWouldChangeTheHostIsRefused) {
    for (const Call& call : SystemCalls) {
        EXPECT_EQ(errorOf([&] { return call.call(-1); }), call.error) << call.name;
        if (*call.fault == '\0')
            continue;
        terminal.faults().fail(call.fault, "", EBADE);
        EXPECT_EQ(errorOf([&] { return call.call(-1); }), EBADE) << call.name;
    }
    EXPECT_EQ(WEXITSTATUS(system("exit 3")), 127);
    terminal.faults().fail("fork", "", EAGAIN);
    EXPECT_EQ(errorOf([] { return fork(); }), EAGAIN);

    pthread_t thread{};
    const auto create = [&] {
        return pthread_create(
            &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
    };
    terminal.faults().fail("pthread_create", "", EAGAIN);
    {
        const sim::HostTime hostTime;  // of a test: no call of the application
        EXPECT_EQ(create(), 0);
        pthread_join(thread, nullptr);
    }
    EXPECT_EQ(create(), EAGAIN);
}

/// Whether a child finds what it should.
bool isRightInChild(int inherited) {
    return access("/var/run/ppp0.pid", F_OK) == 0 &&
           errorOf([] { return open(board::PowerControlPath, O_RDWR); }) == ENXIO &&
           errorOf([] { return umount("/mnt/mmc"); }) == EPERM &&
           errorOf([] { return open("/sys/kernel", O_RDONLY); }) == ENOENT &&
           errorOf([] { return execv(False, arguments); }) == ENOENT && close(inherited) == 0;
}

TEST_F(InterposedCallsTest, AChildHasTheFilesButNoDevices) {
    std::atomic<bool> stop{false};
    std::thread busy([&] {  // holds any lock at any time
        while (!stop) {
            close(open(board::PowerControlPath, O_RDWR));
            umount("/mnt/mmc");
        }
    });
    const int inherited = open(Line, O_RDWR);
    terminal.files().write("/var/run/ppp0.pid", "1\n");
    int status = 0;
    for (int i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const bool isRight = isRightInChild(inherited);
            if (i == 0)
                terminal.~Terminal();  // as a static one at the child's end
            _exit(isRight ? 0 : 1);
        }
        ASSERT_TRUE(sim::eventually([&] { return waitpid(child, &status, WNOHANG) == child; },
                                    std::chrono::seconds(60)));
        EXPECT_EQ(status, 0);
    }
    stop = true;
    busy.join();
    EXPECT_TRUE(terminal.barcodeLine().isOpen()) << "closed by the children only";
    EXPECT_TRUE(terminal.files().exists("/var/run/ppp0.pid"));
    close(inherited);

    const pid_t child = fork();
    if (child == 0) {
        for (;;)
            pause();
    }
    EXPECT_EQ(kill(child, SIGKILL), 0);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(errorOf([=] { return kill(child, 0); }), ESRCH);
}

TEST_F(InterposedCallsTest, CallsThatCannotUnwindSurviveACancellation) {
    const int line = open(Line, O_RDWR);
    bool survived = false;
    std::thread([&] {
        pthread_cancel(pthread_self());
        struct stat found {};
        stat(Line, &found);
        mkdir("/dev/folder", 0700);
        ioctl(line, TIOCMGET, &number);
        tcgetattr(line, &settings);
        tcsetattr(line, TCSADRAIN, &settings);
        tcflush(line, TCIOFLUSH);
        tcsendbreak(line, 0);
        mount("/dev/mmcblk0p1", "/mnt/mmc", "vfat", 0, "");
        umount("/mnt/mmc");
        kill(getppid(), 0);
        dup2(dup(line), 210);
        clock_settime(CLOCK_REALTIME, &Early);
        survived = true;
        pthread_testcancel();
        survived = false;
    }).join();
    EXPECT_TRUE(survived);
    EXPECT_EQ(terminal.journal().history("card"), "mount rw, unmount");
    close(line);
    close(210);
}

TEST_F(InterposedCallsTest, AWaitingCallIsACancellationPoint) {
    const int line = open(Line, O_RDWR);
    const int keypad = open("/dev/input/event0", O_RDWR);
    file.fd = line;
    const Call waits[] = {
        CALL("", 0, read(fd, bytes, sizeof bytes)),
        CALL("", 0, poll(&file, 1, -1)),
        CALL("", 0, pause()),
        CALL("", 0, nanosleep(&Long, nullptr)),
    };
    for (const int fd : {line, keypad}) {
        for (const Call& wait : waits) {
            std::thread waiting([&] { wait.call(fd); });
            pthread_cancel(waiting.native_handle());
            waiting.join();
        }
    }
    EXPECT_EQ(ioctl(line, TIOCMGET, &number), 0) << "the models have survived it";
    close(line);
    close(keypad);
}

}  // namespace
