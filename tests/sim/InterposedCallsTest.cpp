// The calls without a path: on descriptors, on the system and on other processes. Each check fails
// if the real call is reached, and does no harm then.

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/klog.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/quota.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <termios.h>
#include <wordexp.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "io/FileDescriptor.h"
#include "power/BoardProtocol.h"
#include "sim/Spellings.h"
#include "support/TerminalTest.h"

extern "C" {
ssize_t __read_chk(int, void*, size_t, size_t);
int __poll_chk(pollfd*, nfds_t, int, size_t);
int __ppoll_chk(pollfd*, nfds_t, const timespec*, const sigset_t*, size_t);
int pivot_root(const char*, const char*);
int init_module(void*, unsigned long, const char*);
int finit_module(int, const char*, int);
int delete_module(const char*, unsigned);
int pidfd_send_signal(int, int, siginfo_t*, unsigned) noexcept;
int iopl(int) noexcept;
int ioperm(unsigned long, unsigned long, int) noexcept;
int stime(const time_t*);
FILE* _IO_popen(const char*, const char*);
}

namespace {

using test::errorOf;

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
wordexp_t words;
constexpr time_t Epoch = 0;
constexpr pid_t Nobody = 0x7FFFFFF0;  // the real calls find no such process
constexpr sched_param Usual{};
cpu_set_t processors;

using Argument = int;
using Spellings = test::Spellings<Argument>;

// Those that wait find `file` and `set` made for the descriptor.
constexpr Spellings DescriptorCalls[] = {
    Spellings("read", 0, CALL(read(x, bytes, 4)), CALL(__read_chk(x, bytes, 4, 4)),
              CALL(readv(x, &part, 1))),
    Spellings("write", 0, CALL(write(x, bytes, 4)), CALL(writev(x, &part, 1))),
    Spellings("ioctl", 0, CALL(ioctl(x, TIOCMGET, &number))),
    Spellings("tcgetattr", 0, CALL(tcgetattr(x, &settings))),
    Spellings("tcsetattr", 0, CALL(tcsetattr(x, TCSANOW, &settings))),
    Spellings("tcflush", 0, CALL(tcflush(x, TCIFLUSH))),
    Spellings("tcsendbreak", 0, CALL(tcsendbreak(x, 0))),
    Spellings("tcdrain", 0, CALL(tcdrain(x))),
    Spellings("poll", 0, CALL(poll(&file, 1, 0)), CALL(__poll_chk(&file, 1, 0, sizeof file)),
              CALL(ppoll(&file, 1, &Long, nullptr)),
              CALL(__ppoll_chk(&file, 1, &Long, nullptr, sizeof file))),
    Spellings("select", 0, CALL(select(x + 1, nullptr, nullptr, &set, nullptr)),
              CALL(pselect(x + 1, &set, nullptr, nullptr, &Long, nullptr))),
    Spellings("close", 0, CALL(close(x))),
};

/// A request, with nonsense to be set, to an interface that the host has and the terminal does not.
int requestOn(unsigned long request) {
    ifreq interface {};
    interface.ifr_name[0] = 'l';
    interface.ifr_name[1] = 'o';
    interface.ifr_mtu = -1;
    const io::FileDescriptor local(socket(AF_INET, SOCK_DGRAM, 0));
    return ioctl(local.get(), request, &interface);
}

/// As -1 with errno, from a call whose result is the error.
int failed(int error) {
    errno = error;
    return error != 0 ? -1 : 0;
}

/// A real one would share its memory with the test: it does nothing. AddressSanitizer's own is not
/// the C library's.
pid_t shortLived() {
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
    return fork();
#endif
#endif
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0)
        _exit(0);
    return child;
}

constexpr Spellings SystemCalls[] = {
    Spellings("", EPERM, CALL(reboot(0)), CALL(swapon("/none", 0)), CALL(swapoff("/none")),
              CALL(sethostname(bytes, 100)), CALL(setdomainname(bytes, 100)),
              CALL(pivot_root("/none", "/none")), CALL(chroot("/none")), CALL(acct("/none")),
              CALL(klogctl(-1, nullptr, 0))),
    Spellings("", EPERM, CALL(init_module(nullptr, 0, "")), CALL(finit_module(-1, "", 0)),
              CALL(delete_module("none", 0)), CALL(requestOn(SIOCADDRT)), CALL(setns(-1, 0)),
              CALL(quotactl(-1, "/none", 0, nullptr)), CALL(iopl(4)), CALL(ioperm(-1UL, 1, 1))),
    Spellings("", EPERM, CALL(fsopen("none", 0)), CALL(fspick(-1, "/none", 0)),
              CALL(fsmount(-1, 0, 0)), CALL(open_tree(-1, "/none", 0)),
              CALL(move_mount(-1, "/none", -1, "/none", 0)),
              CALL(mount_setattr(-1, "/none", 0, nullptr, 0))),
    Spellings("", EPERM, CALL(syscall(SYS_reboot, 0, 0, 0, nullptr)),
              CALL(syscall(SYS_finit_module, -1, "", 0)), CALL(syscall(SYS_setns, -1, 0)),
              CALL(syscall(SYS_move_mount, -1, "/none", -1, "/none", 0)),
              CALL(syscall(SYS_clock_settime, -1, nullptr))),
    Spellings("", EPERM, CALL(pidfd_send_signal(-1, 0, nullptr, 0)),
              CALL(prlimit(Nobody, RLIMIT_CPU, nullptr, nullptr)),
              CALL(prlimit64(Nobody, RLIMIT_CPU, nullptr, nullptr)),
              CALL(setpriority(PRIO_PROCESS, Nobody, 0)), CALL(setpriority(PRIO_USER, Nobody, 0)),
              CALL(sched_setscheduler(Nobody, SCHED_OTHER, &Usual)),
              CALL(sched_setparam(Nobody, &Usual)),
              CALL(sched_setaffinity(Nobody, sizeof processors, &processors)),
              CALL(ptrace(PTRACE_ATTACH, Nobody, nullptr, nullptr)),
              CALL(process_vm_writev(Nobody, &part, 1, &part, 1, 0))),
    Spellings("socket", EAFNOSUPPORT, CALL(socket(AF_NETLINK, SOCK_RAW, 0)),
              CALL(socket(AF_PACKET, SOCK_DGRAM, 0)), CALL(socket(AF_BLUETOOTH, SOCK_RAW, 1))),
    Spellings("mount", ENODEV, CALL(mount("none", "/none", "none", 0, nullptr))),
    Spellings("umount", EINVAL, CALL(umount("/none")), CALL(umount2("/none", 0))),
    Spellings("kill", EPERM, CALL(kill(1, 0)), CALL(kill(-1, 0)), CALL(kill(0, 0)),
              CALL(killpg(1, 0)), CALL(sigqueue(1, 0, sigval{})), CALL(tgkill(1, 1, 0)),
              CALL(syscall(SYS_kill, 1, 0)), CALL(syscall(SYS_tgkill, 1, 1, 0))),
    Spellings("kill", ESRCH, CALL(kill(Nobody, SIGKILL))),
    Spellings("exec", ENOENT, CALL(execve(False, arguments, environ)),
              CALL(execv(False, arguments)), CALL(execvp(False, arguments)),
              CALL(execvpe(False, arguments, environ)), CALL(execl(False, False, nullptr)),
              CALL(execle(False, False, nullptr, environ)), CALL(execlp(False, False, nullptr)),
              CALL(execveat(-1, False, arguments, environ, 0)),
              CALL(fexecve(open(False, O_PATH), arguments, environ))),
    Spellings("posix_spawn", ENOENT,
              CALL(failed(posix_spawn(&spawned, False, nullptr, nullptr, arguments, environ))),
              CALL(failed(posix_spawnp(&spawned, False, nullptr, nullptr, arguments, environ)))),
    Spellings("popen", ENOENT, CALL(popen("exit 3", "r") ? 0 : -1),
              CALL(_IO_popen("exit 3", "r") ? 0 : -1)),
    Spellings("", WRDE_CMDSUB, CALL(failed(wordexp("$(exit 3)", &words, 0)))),
    Spellings("system", 0, CALL(system(nullptr))),
    Spellings("clock_settime", 0, CALL(clock_settime(CLOCK_REALTIME, &Early)), CALL(stime(&Epoch))),
    Spellings("ioctl", ENODEV, CALL(requestOn(SIOCSIFMTU)), CALL(requestOn(SIOCGIFFLAGS)),
              CALL(requestOn(0x8B1A))),  // SIOCSIWESSID
};

using InterposedCallsTest = test::TerminalTest;

TEST_F(InterposedCallsTest, CallsOnADescriptorReachTheTerminalAndOnlyIts) {
    const int null = open("/dev/null", O_RDWR);
    test::forEachCall(DescriptorCalls, [&](const auto& spellings, const auto& tried) {
        for (const int fd : {open(Line, O_RDWR | O_NONBLOCK), dup(null)}) {
            file.fd = fd;
            FD_ZERO(&set);
            FD_SET(fd, &set);
            terminal.faults().clear();
            terminal.faults().fail(spellings.fault, Line, EBADE);
            const bool isLine = isatty(fd);
            if (isLine || strcmp(spellings.fault, "select") != 0) {
                EXPECT_EQ(errorOf([&] { return tried.on(fd); }) == EBADE, isLine) << tried.name;
            }
            EXPECT_EQ(terminal.faults().calls(), isLine ? 1 : 0) << tried.name;
            close(fd);
        }
    });
    close(null);
}

TEST_F(InterposedCallsTest, WhatWouldChangeTheHostIsRefused) {
    test::forEachCall(SystemCalls, [&](const auto& spellings, const auto& tried) {
        EXPECT_EQ(errorOf([&] { return tried.on(-1); }), spellings.error) << tried.name;
        if (*spellings.fault == '\0')
            return;
        terminal.faults().fail(spellings.fault, "", EBADE);
        EXPECT_EQ(errorOf([&] { return tried.on(-1); }), EBADE) << tried.name;
    });
    for (const char* command :
         {"exit 3", "rmmod none; exit 3", "rmmod none & exit 3", "rmmod none\nexit 3",
          "rmmod none | exit 3", "rmmod none >/dev/null", "rmmod <$0", "rmmod `exit 3`"})
        EXPECT_EQ(WEXITSTATUS(system(command)), 127) << command;
    EXPECT_EQ(terminal.journal().history("rmmod"), "");
    EXPECT_EQ(prlimit(getpid(), RLIMIT_CPU, nullptr, nullptr), 0) << "its own";
    EXPECT_EQ(sched_setscheduler(gettid(), SCHED_OTHER, &Usual), 0);
    EXPECT_EQ(tgkill(getpid(), gettid(), 0) + syscall(SYS_tgkill, getpid(), gettid(), 0), 0);
    for (const auto start : {+[] { return fork(); }, shortLived}) {
        terminal.faults().fail("fork", "", EAGAIN);
        EXPECT_EQ(errorOf(start), EAGAIN);
    }
    terminal.faults().fail("pthread_create", "", EAGAIN);
    const auto nothing = [](void*) -> void* { return nullptr; };
    pthread_t thread{};
    {
        const sim::HostTime hostTime;  // of a test: no call of the application
        EXPECT_EQ(pthread_create(&thread, nullptr, nothing, nullptr), 0);
        pthread_join(thread, nullptr);
    }
    EXPECT_EQ(pthread_create(&thread, nullptr, nothing, nullptr), EAGAIN);
}

TEST_F(InterposedCallsTest, ClosingEveryDescriptorLeavesTheTerminalItsOwn) {
    constexpr int First = 3, Last = 1023;
    const auto closeOneByOne = [] {
        for (int fd = First; fd <= Last; ++fd)
            close(fd);
    };
    for (const std::function<void()>& closeAll : {std::function<void()>(closeOneByOne),
                                                  {[] { close_range(First, ~0U, 0); }},
                                                  {[] { close_range(First, Last, 0); }},
                                                  {[] { closefrom(First); }}}) {
        const int line = open(Line, O_RDWR);
        const int null = open("/dev/null", O_RDWR);
        closeAll();
        EXPECT_FALSE(terminal.barcodeLine().isOpen());
        for (const int fd : {line, null})
            EXPECT_EQ(errorOf([=] { return fcntl(fd, F_GETFD); }), EBADF);
        int own = First;
        while (own < Last && fcntl(own, F_GETFD) < 0)
            ++own;
        EXPECT_EQ(errorOf([=] { return dup2(0, own); }), EBUSY);
        EXPECT_EQ(errorOf([=] { return dup3(0, own, O_CLOEXEC); }), EBUSY);
        EXPECT_EQ(system("modprobe ohci-hcd"), 0) << "the door is open";
        const io::FileDescriptor again(open(Line, O_RDWR));
        EXPECT_EQ(write(again.get(), bytes, 4), 4);
        EXPECT_EQ(tcdrain(again.get()), 0) << "the device reads";
    }
}

TEST_F(InterposedCallsTest, SocketsOnTheTerminalsPathsLieBelowItsRootFolder) {
    sockaddr_un address{AF_UNIX, "/tmp/wpa_ctrl_test-1"};
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    constexpr socklen_t Size = sizeof address;
    const io::FileDescriptor bound(socket(AF_UNIX, SOCK_DGRAM, 0));
    const io::FileDescriptor other(socket(AF_UNIX, SOCK_DGRAM, 0));
    const io::FileDescriptor nameless(socket(AF_UNIX, SOCK_DGRAM, 0));
    const io::FileDescriptor hosts(socket(AF_UNIX, SOCK_DGRAM, 0));
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = Size;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    mmsghdr several{message, 0};
    const std::pair<const char*, std::function<ssize_t()>> calls[] = {
        {"bind", [&] { return bind(bound.get(), generic, Size); }},
        {"sendto", [&] { return sendto(other.get(), bytes, 4, 0, generic, Size); }},
        {"sendmsg", [&] { return sendmsg(other.get(), &message, 0); }},
        {"sendmsg", [&] { return sendmmsg(other.get(), &several, 1, 0); }},
        {"connect", [&] { return connect(other.get(), generic, Size); }},
        {"socket", [] { return socket(AF_UNIX, SOCK_DGRAM, 0); }},
    };
    for (const auto& [name, tried] : calls) {
        terminal.faults().fail(name, "", EACCES);
        EXPECT_EQ(errorOf(tried), EACCES) << name;
        EXPECT_EQ(errorOf(tried), 0) << name;
    }
    EXPECT_TRUE(std::filesystem::is_socket(terminal.files().hostPath(address.sun_path)));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(recv(bound.get(), bytes, 100, MSG_DONTWAIT), 4);
    strcpy(address.sun_path, Line);
    EXPECT_EQ(errorOf(calls[4].second), ECONNREFUSED);
    memset(address.sun_path, 'x', sizeof address.sun_path);
    memcpy(address.sun_path, "/tmp/wpa_ctrl_", 14);
    EXPECT_EQ(errorOf(calls[4].second), ENAMETOOLONG);
    EXPECT_EQ(bind(nameless.get(), generic, sizeof(sa_family_t)), 0) << "the host's";
    snprintf(address.sun_path, sizeof address.sun_path, "/tmp/host-%d", getpid());
    EXPECT_EQ(bind(hosts.get(), generic, Size), 0);
    EXPECT_FALSE(terminal.files().exists(address.sun_path));
    EXPECT_EQ(unlink(address.sun_path), 0);
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
            if (isRight && i == 19)
                pause();
            _exit(isRight ? 0 : 1);
        }
        EXPECT_EQ(i < 19 ? 0 : kill(child, SIGKILL), 0);
        const bool ended = test::soon([&] { return waitpid(child, &status, WNOHANG) == child; });
        EXPECT_TRUE(ended);
        if (!ended)
            break;
        EXPECT_EQ(status, i == 19 ? SIGKILL : 0);
        EXPECT_EQ(errorOf([=] { return kill(child, 0); }), ESRCH);
    }
    stop = true;
    busy.join();
    EXPECT_TRUE(terminal.barcodeLine().isOpen()) << "closed by the children only";
    EXPECT_TRUE(terminal.files().exists("/var/run/ppp0.pid"));
    close(inherited);
}

/// Whether a thread of this process waits in the kernel.
bool isAsleep(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string id, name, state;
    stat >> id >> name >> state;
    return state == "S";
}

TEST_F(InterposedCallsTest, ACancellationEndsAWaitAndNoCallThatCannotUnwind) {
    const int line = open(Line, O_RDWR);
    const int keypad = open("/dev/input/event0", O_RDWR);
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
    close(210);

    for (const int waitedFor : {line, keypad}) {
        file.fd = waitedFor;
        for (const auto wait :
             {+[](int fd) { read(fd, bytes, sizeof bytes); }, +[](int) { poll(&file, 1, -1); },
              +[](int) { pause(); }, +[](int) { nanosleep(&Long, nullptr); }}) {
            for (const bool hasBegun : {false, true}) {
                std::atomic<pid_t> id{0};
                std::thread waiting([&] { id = gettid(), wait(waitedFor); });
                EXPECT_TRUE(test::soon([&] { return !hasBegun || isAsleep(id); }));
                pthread_cancel(waiting.native_handle());
                waiting.join();
            }
        }
    }
    EXPECT_EQ(ioctl(line, TIOCMGET, &number), 0) << "the models have survived it";
    close(line);
    close(keypad);
}

}  // namespace
