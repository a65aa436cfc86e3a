// Every call that takes a path, in every spelling: it reaches the terminal's files and devices, and
// never those of the host.

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <utime.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "io/FileDescriptor.h"
#include "power/BoardProtocol.h"
#include "sim/Spellings.h"
#include "support/TerminalTest.h"

// What a fortified program calls.
extern "C" {
int __open_2(const char*, int);
int __open64_2(const char*, int);
int __openat_2(int, const char*, int);
int __openat64_2(int, const char*, int);
ssize_t __readlink_chk(const char*, char*, size_t, size_t) noexcept;
ssize_t __readlinkat_chk(int, const char*, char*, size_t, size_t) noexcept;
}

// What one built with former headers calls.
extern "C" {
int __open(const char*, int, ...);
int __open64(const char*, int, ...);
FILE* _IO_fopen(const char*, const char*);
int __xstat(int, const char*, struct stat*) noexcept;
int __xstat64(int, const char*, struct stat64*) noexcept;
int __lxstat(int, const char*, struct stat*) noexcept;
int __lxstat64(int, const char*, struct stat64*) noexcept;
int __fxstatat(int, int, const char*, struct stat*, int) noexcept;
int __fxstatat64(int, int, const char*, struct stat64*, int) noexcept;
int __xmknod(int, const char*, mode_t, dev_t*) noexcept;
int __xmknodat(int, int, const char*, mode_t, dev_t*) noexcept;
}

namespace {

namespace fs = std::filesystem;
using std::string;
using test::errorOf;

constexpr char Missing[] = "/sys/kernel";  // the host has it, the terminal does not
constexpr char Other[] = "/sys/other";     // nobody has it
constexpr char File[] = "/etc/ppp/peer";
constexpr timespec Same[2] = {{0, UTIME_OMIT}, {0, UTIME_OMIT}};

struct stat st;
struct stat64 st64;
struct statx stX;
struct statfs fs1;
struct statfs64 fs2;
struct statvfs fs3;
struct statvfs64 fs4;
char text[16];
dev_t noDevice = 0;

/// The descriptor of a stream, which is closed.
int of(FILE* stream) {
    const int fd = stream ? dup(fileno(stream)) : -1;
    const int error = errno;
    if (stream)
        fclose(stream);
    errno = error;
    return fd;
}

int watch(const char* path) {
    const io::FileDescriptor watcher(inotify_init());
    return inotify_add_watch(watcher.get(), path, IN_ACCESS);
}

using Argument = const char*;
using Spellings = test::Spellings<Argument>;

constexpr Spellings Openings[] = {
    Spellings("open", 0, CALL(open(x, O_RDWR)), CALL(open64(x, O_RDWR)),
              CALL(openat(-1, x, O_RDWR)), CALL(openat64(AT_FDCWD, x, O_RDWR)),
              CALL(__open_2(x, O_RDWR)), CALL(__open64_2(x, O_RDWR)),
              CALL(__openat_2(-1, x, O_RDWR)), CALL(__openat64_2(-1, x, O_RDWR)),
              CALL(creat(x, 0600)), CALL(creat64(x, 0600))),
    Spellings("open", 0, CALL(__open(x, O_RDWR)), CALL(__open64(x, O_RDWR))),
    Spellings("fopen", 0, CALL(of(fopen(x, "r+"))), CALL(of(fopen64(x, "r+"))),
              CALL(of(_IO_fopen(x, "r+"))), CALL(of(freopen(x, "r+", fopen("/dev/null", "r")))),
              CALL(of(freopen64(x, "r+", fopen("/dev/null", "r"))))),
};

// None of them would do harm if it reached the host's folder.
constexpr Spellings Others[] = {
    Spellings("stat", 0, CALL(stat(x, &st)), CALL(stat64(x, &st64)), CALL(lstat(x, &st)),
              CALL(lstat64(x, &st64)), CALL(fstatat(-1, x, &st, 0)),
              CALL(fstatat64(-1, x, &st64, 0)), CALL(statx(-1, x, 0, 0, &stX))),
    Spellings("stat", 0, CALL(__xstat(1, x, &st)), CALL(__xstat64(1, x, &st64)),
              CALL(__lxstat(1, x, &st)), CALL(__lxstat64(1, x, &st64)),
              CALL(__fxstatat(1, -1, x, &st, 0)), CALL(__fxstatat64(1, -1, x, &st64, 0))),
    Spellings("statfs", 0, CALL(statfs(x, &fs1)), CALL(statfs64(x, &fs2)), CALL(statvfs(x, &fs3)),
              CALL(statvfs64(x, &fs4))),
    Spellings("access", 0, CALL(access(x, F_OK)), CALL(faccessat(-1, x, F_OK, 0))),
    Spellings("inotify_add_watch", 0, CALL(watch(x))),
    Spellings("chdir", ENOTDIR, CALL(chdir(x))),
    Spellings("opendir", ENOTDIR, CALL(opendir(x) ? 0 : -1)),
    Spellings("readlink", EINVAL, CALL(readlink(x, text, 9)), CALL(readlinkat(-1, x, text, 9)),
              CALL(__readlink_chk(x, text, 9, 9)), CALL(__readlinkat_chk(-1, x, text, 9, 9))),
    Spellings("unlink", EPERM, CALL(unlink(x)), CALL(unlinkat(-1, x, 0)), CALL(remove(x))),
    Spellings("rmdir", EPERM, CALL(rmdir(x)), CALL(unlinkat(-1, x, AT_REMOVEDIR))),
    Spellings("mkdir", EPERM, CALL(mkdir(x, 0755)), CALL(mkdirat(-1, x, 0755))),
    Spellings("mknod", EPERM, CALL(mknod(x, S_IFIFO, 0)), CALL(mknodat(-1, x, S_IFIFO, 0)),
              CALL(__xmknod(0, x, S_IFIFO, &noDevice)),
              CALL(__xmknodat(0, -1, x, S_IFIFO, &noDevice))),
    Spellings("mkfifo", EPERM, CALL(mkfifo(x, 0600)), CALL(mkfifoat(-1, x, 0600))),
    Spellings("chmod", EPERM, CALL(chmod(x, 0755)), CALL(fchmodat(-1, x, 0755, 0))),
    Spellings("chown", EPERM, CALL(chown(x, -1U, -1U)), CALL(lchown(x, -1U, -1U)),
              CALL(fchownat(-1, x, -1U, -1U, 0))),
    Spellings("utimes", EPERM, CALL(utimensat(-1, x, Same, 0)), CALL(utimes(x, nullptr)),
              CALL(utime(x, nullptr)), CALL(lutimes(x, nullptr)), CALL(futimesat(-1, x, nullptr))),
    Spellings("setxattr", EPERM, CALL(setxattr(x, "user.a", text, 1, 0)),
              CALL(lsetxattr(x, "user.a", text, 1, 0))),
    Spellings("removexattr", EPERM, CALL(removexattr(x, "user.a")),
              CALL(lremovexattr(x, "user.a"))),
    Spellings("truncate", EPERM, CALL(truncate(x, 4)), CALL(truncate64(x, 4))),
    Spellings("rename", EPERM, CALL(rename(x, Other)), CALL(renameat(-1, x, -1, Other)),
              CALL(renameat2(-1, x, -1, Other, 0))),
    Spellings("link", EPERM, CALL(link(x, Other)), CALL(linkat(-1, x, -1, Other, 0))),
    Spellings("symlink", EPERM, CALL(symlink("/tmp", x)), CALL(symlinkat("/tmp", -1, x))),
};

constexpr struct {
    long (*make)(char* name);
    const char* suffix;
} Temporaries[] = {
    {[](char* x) -> long { return mkstemp(x); }, ""},
    {[](char* x) -> long { return mkstemp64(x); }, ""},
    {[](char* x) -> long { return mkostemp(x, O_APPEND); }, ""},
    {[](char* x) -> long { return mkostemp64(x, O_APPEND); }, ""},
    {[](char* x) -> long { return mkstemps(x, 4); }, ".txt"},
    {[](char* x) -> long { return mkstemps64(x, 4); }, ".txt"},
    {[](char* x) -> long { return mkostemps(x, 4, O_APPEND); }, ".txt"},
    {[](char* x) -> long { return mkostemps64(x, 4, O_APPEND); }, ".txt"},
    {[](char* x) -> long { return mkdtemp(x) ? 0 : -1; }, ""},
};

using InterposedPathsTest = test::TerminalTest;

TEST_F(InterposedPathsTest, EachSpellingFailsByFaultsAndFindsNothingOfTheHost) {
    if (syscall(SYS_faccessat, AT_FDCWD, Missing, F_OK) != 0)
        GTEST_SKIP() << "the host has no " << Missing << ": this would prove nothing";
    terminal.files().write(File, "");
    test::forEachCall(Others, [&](const auto& spellings, const auto& tried) {
        EXPECT_EQ(errorOf([&] { return tried.on(Missing); }), ENOENT) << tried.name;
        terminal.faults().fail(spellings.fault, File, EBADE);
        EXPECT_EQ(errorOf([&] { return tried.on(File); }), EBADE) << tried.name;
        EXPECT_EQ(errorOf([&] { return tried.on("/dev/rtc"); }), spellings.error) << tried.name;
    });
    EXPECT_TRUE(terminal.files().exists(File) && fs::is_character_file("/dev/rtc"));
}

TEST_F(InterposedPathsTest, OpeningReachesTheTerminalsFilesAndDevices) {
    test::forEachCall(Openings, [&](const auto& spellings, const auto& opening) {
        SCOPED_TRACE(opening.name);
        EXPECT_EQ(errorOf([&] { return opening.on(Missing); }), ENOENT);
        terminal.files().write(File, "");
        const auto file = static_cast<int>(opening.on(File));
        EXPECT_EQ(write(file, opening.name, 4), 4);
        close(file);
        EXPECT_EQ(terminal.files().read(File), string(opening.name, 4));
        terminal.faults().fail(spellings.fault, File, EBADE);
        EXPECT_EQ(errorOf([&] { return opening.on(File); }), EBADE);

        const auto device = static_cast<int>(opening.on(board::PowerControlPath));
        if (strstr(opening.name, "freopen")) {
            EXPECT_EQ(device, -1);
            return;
        }
        EXPECT_EQ(ioctl(device, board::LineHigh, 2), 0);
        EXPECT_EQ(ioctl(device, board::ReadLine, 2), 1);
        EXPECT_EQ(ioctl(device, board::LineLow, 2), 0);
        EXPECT_EQ(close(device), 0);
        EXPECT_EQ(errorOf([=] { return fcntl(device, F_GETFD); }), EBADF);
    });
}

TEST_F(InterposedPathsTest, CallsWorkOnTheTerminalsFiles) {
    const string folder = "/var/run/folder", fifo = folder + "/fifo", node = folder + "/node";
    const string twin = folder + "/twin", linked = folder + "/link";
    const fs::path host = terminal.files().hostPath(folder);
    for (const int result : {mkdir(folder.c_str(), 0700), mkfifo(fifo.c_str(), 0600),
                             mknod(node.c_str(), S_IFREG | 0600, 0), truncate(node.c_str(), 7),
                             stat(node.c_str(), &st), chmod(node.c_str(), 0400),
                             link(node.c_str(), twin.c_str()), symlink("twin", linked.c_str())})
        EXPECT_EQ(result, 0);
    EXPECT_TRUE(is_fifo(host / "fifo"));
    EXPECT_EQ(st.st_size, 7);
    EXPECT_EQ(file_size(host / "node"), 7U);
    EXPECT_EQ(status(host / "node").permissions(), fs::perms::owner_read);
    EXPECT_EQ(hard_link_count(host / "node"), 2U);
    EXPECT_EQ(readlink(linked.c_str(), text, sizeof text), 4);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 4);
    EXPECT_EQ(rename(twin.c_str(), "/etc/ppp/moved"), 0);
    EXPECT_TRUE(terminal.files().exists("/etc/ppp/moved"));
    EXPECT_EQ(remove("/etc/ppp/moved"), 0);
    EXPECT_EQ(fs::remove_all(folder), 4U);
    EXPECT_FALSE(exists(host) || terminal.files().exists("/etc/ppp/moved"));
}

TEST_F(InterposedPathsTest, WhatSomebodyElseMakesIsMadeBelowTheRootFolder) {
    terminal.files().makeFolder("/data/folder");
    for (const auto& tried : Temporaries) {
        string name = string("/data/folder/x-XXXXXX") + tried.suffix;
        const string given = name;
        const auto fd = static_cast<int>(tried.make(name.data()));
        ASSERT_GE(fd, 0) << given;
        EXPECT_NE(name, given);
        EXPECT_TRUE(terminal.files().exists(name)) << name;
        if (fd > 0)
            close(fd);
        terminal.faults().fail("", "", EBADE);
        EXPECT_EQ(errorOf([&] { return tried.make(name.data()); }), EBADE);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const auto addOpen = [&](const char* path) {
        return posix_spawn_file_actions_addopen(&actions, 1, path, O_WRONLY | O_CREAT, 0600);
    };
    EXPECT_EQ(addOpen("/dev/rtc"), ENXIO);
    terminal.faults().fail("open", "/data/out", EACCES);
    EXPECT_EQ(addOpen("/data/out"), EACCES);
    EXPECT_EQ(addOpen("/data/out"), 0);
    char program[] = "modprobe", module[] = "ohci-hcd";
    char* const arguments[] = {program, module, nullptr};
    pid_t child = 0;
    EXPECT_EQ(posix_spawnp(&child, program, &actions, nullptr, arguments, environ), 0);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(terminal.files().exists("/data/out"));
    posix_spawn_file_actions_destroy(&actions);
}

TEST_F(InterposedPathsTest, APathIsWhoseItIsHoweverItIsSpelled) {
    const fs::path before = fs::current_path();
    fs::current_path("/tmp");
    const int folder = open(".", O_RDONLY | O_DIRECTORY);
    terminal.files().write(File, "");
    for (const char* path : {"//dev//rtc", "/dev/./rtc", "/tmp/../dev/rtc", "/../dev/rtc/",
                             "../dev/rtc", "./../dev/rtc"})
        EXPECT_EQ(access(path, F_OK), 0) << path;
    for (const string& process : {string("self"), string("thread-self")})
        EXPECT_EQ(access(("/proc/" + process + "/root" + "/dev/rtc").c_str(), F_OK), 0) << process;
    EXPECT_EQ(errorOf([] { return open("../sys/kernel", O_RDONLY); }), ENOENT);
    EXPECT_EQ(errorOf([=] { return openat(folder, "../sys/kernel", O_RDONLY); }), ENOENT);
    EXPECT_EQ(unlinkat(folder, ".././etc/./ppp/peer", 0), 0);
    EXPECT_FALSE(terminal.files().exists(File));
    EXPECT_EQ(errorOf([] { return openat(-1, "dev/rtc", O_RDONLY); }), EBADF);
    EXPECT_EQ(errorOf([] { return symlink("/dev/mem", "/tmp/terminal-link"); }), EPERM);
    close(folder);
    fs::current_path(before);

    // The rest is the host's, but for what would set its kernel.
    terminal.files().write("/var/run/file", "");
    terminal.files().write("/proc/self/mounts", "mounts");
    EXPECT_EQ(access("/run/file", F_OK), 0);
    for (const string& path : {string("/etc/mtab"), "/proc/" + std::to_string(getpid()) + "/mounts",
                               string("/proc/thread-self/mounts")})
        EXPECT_EQ(fs::file_size(path), 6U) << path;
    EXPECT_EQ(errorOf([] { return access("/proc/self/mountinfo", F_OK); }), ENOENT);

    string made = (fs::temp_directory_path() / "interposed-XXXXXX").string();
    ASSERT_TRUE(mkdtemp(made.data()));
    std::ofstream(made + "/file") << "host";
    EXPECT_EQ(rename((made + "/file").c_str(), (made + "/moved").c_str()), 0);
    EXPECT_EQ(fs::file_size(made + "/moved"), 4U);

    // Through links that the host has, and none that lead there are made.
    for (const auto& [target, link] : {std::pair("/sys", "/folder"), {"/dev/rtc", "/node"}})
        ASSERT_EQ(syscall(SYS_symlinkat, target, AT_FDCWD, (made + link).c_str()), 0);
    EXPECT_EQ(errorOf([&] { return access((made + "/folder/kernel").c_str(), F_OK); }), ENOENT);
    EXPECT_EQ(access((made + "/node").c_str(), F_OK), 0);
    const string upwards = fs::path("/dev").lexically_relative(made);
    fs::current_path(made);
    EXPECT_EQ(errorOf([&] { return access((upwards + "/../sys/kernel").c_str(), F_OK); }), ENOENT);
    fs::create_directories(made + "/a/b");
    fs::current_path(made + "/a/b");
    EXPECT_EQ(errorOf([&] { return symlink(upwards.c_str(), (made + "/c").c_str()); }), EPERM);
    fs::current_path(before);
    for (const char* link : {"/folder", "/node"})
        ASSERT_EQ(syscall(SYS_unlinkat, AT_FDCWD, (made + link).c_str(), 0), 0);
    fs::remove_all(made + "/a");

    EXPECT_EQ(fs::remove_all(made), 2U);
    EXPECT_EQ(errorOf([] { return open("/proc/sys/kernel/hostname", O_WRONLY); }), EACCES);
    EXPECT_EQ(access("/dev/null", W_OK), 0);
}

TEST_F(InterposedPathsTest, WithoutATerminalItsPathsLeadNowhere) {
    const int fd = open(board::PowerControlPath, O_RDWR);
    const string folder = terminal.files().hostPath("");
    terminal.~Terminal();
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_EQ(errorOf([] { return access(board::ClockPath, F_OK); }), ENOENT);
    EXPECT_NE(errorOf([=] { return ioctl(fd, board::LineHigh, 1); }), 0) << "left to the host";
    EXPECT_EQ(close(fd), 0);
    new (&terminal) sim::Terminal;
    EXPECT_EQ(access(board::ClockPath, F_OK), 0);
}

}  // namespace
