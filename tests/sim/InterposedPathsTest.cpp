// Every call that takes a path, in every spelling: it reaches the terminal's files and devices, and
// never those of the host.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "power/BoardProtocol.h"
#include "sim/Terminal.h"

// What a fortified program calls.
extern "C" {
int __open_2(const char*, int);
int __open64_2(const char*, int);
int __openat_2(int, const char*, int);
int __openat64_2(int, const char*, int);
ssize_t __readlink_chk(const char*, char*, size_t, size_t) noexcept;
ssize_t __readlinkat_chk(int, const char*, char*, size_t, size_t) noexcept;
}

namespace {

namespace fs = std::filesystem;

constexpr char Missing[] = "/sys/kernel";  // the host has it, the terminal does not
constexpr char File[] = "/etc/ppp/peer";
constexpr char Folder[] = "/var/run/folder";

/// The descriptor of a stream, which is closed.
int ofStream(FILE* stream) {
    const int fd = stream ? dup(fileno(stream)) : -1;
    const int error = errno;
    if (stream)
        fclose(stream);
    errno = error;
    return fd;
}

struct Opening {
    const char* name;
    int (*open)(const char* path);  // for reading and writing, but for creat
};

constexpr Opening Openings[] = {
    {"open", [](const char* path) { return open(path, O_RDWR); }},
    {"open64", [](const char* path) { return open64(path, O_RDWR); }},
    {"openat", [](const char* path) { return openat(-1, path, O_RDWR); }},
    {"openat64", [](const char* path) { return openat64(AT_FDCWD, path, O_RDWR); }},
    {"__open_2", [](const char* path) { return __open_2(path, O_RDWR); }},
    {"__open64_2", [](const char* path) { return __open64_2(path, O_RDWR); }},
    {"__openat_2", [](const char* path) { return __openat_2(-1, path, O_RDWR); }},
    {"__openat64_2", [](const char* path) { return __openat64_2(-1, path, O_RDWR); }},
    {"creat", [](const char* path) { return creat(path, 0600); }},
    {"creat64", [](const char* path) { return creat64(path, 0600); }},
    {"fopen", [](const char* path) { return ofStream(fopen(path, "r+")); }},
    {"fopen64", [](const char* path) { return ofStream(fopen64(path, "r+")); }},
    {"freopen",
     [](const char* path) { return ofStream(freopen(path, "r+", fopen("/dev/null", "r"))); }},
    {"freopen64",
     [](const char* path) { return ofStream(freopen64(path, "r+", fopen("/dev/null", "r"))); }},
};

struct PathCall {
    const char* name;
    const char* fault;  // the name that the calls have for the fault rules
    long (*call)(const char* path);
};

struct stat status;
struct stat64 status64;
struct statx statusX;
struct statfs system1;
struct statfs64 system2;
struct statvfs system3;
struct statvfs64 system4;
char text[PATH_MAX];
const timespec Unchanged[2] = {{0, UTIME_OMIT}, {0, UTIME_OMIT}};

/// None of them would do harm if it reached the host's folder.
constexpr PathCall PathCalls[] = {
    {"stat", "stat", [](auto path) -> long { return stat(path, &status); }},
    {"stat64", "stat", [](auto path) -> long { return stat64(path, &status64); }},
    {"lstat", "stat", [](auto path) -> long { return lstat(path, &status); }},
    {"lstat64", "stat", [](auto path) -> long { return lstat64(path, &status64); }},
    {"fstatat", "stat", [](auto path) -> long { return fstatat(-1, path, &status, 0); }},
    {"fstatat64", "stat", [](auto path) -> long { return fstatat64(-1, path, &status64, 0); }},
    {"statx", "stat", [](auto path) -> long { return statx(-1, path, 0, 0, &statusX); }},
    {"statfs", "statfs", [](auto path) -> long { return statfs(path, &system1); }},
    {"statfs64", "statfs", [](auto path) -> long { return statfs64(path, &system2); }},
    {"statvfs", "statfs", [](auto path) -> long { return statvfs(path, &system3); }},
    {"statvfs64", "statfs", [](auto path) -> long { return statvfs64(path, &system4); }},
    {"access", "access", [](auto path) -> long { return access(path, F_OK); }},
    {"faccessat", "access", [](auto path) -> long { return faccessat(-1, path, F_OK, 0); }},
    {"opendir", "opendir", [](auto path) -> long { return opendir(path) ? 0 : -1; }},
    {"readlink", "readlink", [](auto path) -> long { return readlink(path, text, 9); }},
    {"readlinkat", "readlink", [](auto path) -> long { return readlinkat(-1, path, text, 9); }},
    {"__readlink_chk", "readlink",
     [](auto path) -> long { return __readlink_chk(path, text, 9, 9); }},
    {"__readlinkat_chk", "readlink",
     [](auto path) -> long { return __readlinkat_chk(-1, path, text, 9, 9); }},
    {"unlink", "unlink", [](auto path) -> long { return unlink(path); }},
    {"unlinkat", "unlink", [](auto path) -> long { return unlinkat(-1, path, 0); }},
    {"rmdir", "rmdir", [](auto path) -> long { return rmdir(path); }},
    {"unlinkat of a folder", "rmdir",
     [](auto path) -> long { return unlinkat(-1, path, AT_REMOVEDIR); }},
    {"remove", "unlink", [](auto path) -> long { return remove(path); }},
    {"mkdir", "mkdir", [](auto path) -> long { return mkdir(path, 0755); }},
    {"mkdirat", "mkdir", [](auto path) -> long { return mkdirat(-1, path, 0755); }},
    {"mknod", "mknod", [](auto path) -> long { return mknod(path, S_IFIFO, 0); }},
    {"mknodat", "mknod", [](auto path) -> long { return mknodat(-1, path, S_IFIFO, 0); }},
    {"mkfifo", "mkfifo", [](auto path) -> long { return mkfifo(path, 0600); }},
    {"mkfifoat", "mkfifo", [](auto path) -> long { return mkfifoat(-1, path, 0600); }},
    {"chmod", "chmod", [](auto path) -> long { return chmod(path, 0755); }},
    {"fchmodat", "chmod", [](auto path) -> long { return fchmodat(-1, path, 0755, 0); }},
    {"chown", "chown", [](auto path) -> long { return chown(path, -1U, -1U); }},
    {"lchown", "chown", [](auto path) -> long { return lchown(path, -1U, -1U); }},
    {"fchownat", "chown", [](auto path) -> long { return fchownat(-1, path, -1U, -1U, 0); }},
    {"utimensat", "utimes", [](auto path) -> long { return utimensat(-1, path, Unchanged, 0); }},
    {"utimes", "utimes", [](auto path) -> long { return utimes(path, nullptr); }},
    {"utime", "utimes", [](auto path) -> long { return utime(path, nullptr); }},
    {"truncate", "truncate", [](auto path) -> long { return truncate(path, 4); }},
    {"truncate64", "truncate", [](auto path) -> long { return truncate64(path, 4); }},
    {"rename", "rename", [](auto path) -> long { return rename(path, "/sys/other"); }},
    {"renameat", "rename", [](auto path) -> long { return renameat(-1, path, -1, "/sys/other"); }},
    {"renameat2", "rename",
     [](auto path) -> long { return renameat2(-1, path, -1, "/sys/other", 0); }},
    {"link", "link", [](auto path) -> long { return link(path, "/sys/other"); }},
    {"linkat", "link", [](auto path) -> long { return linkat(-1, path, -1, "/sys/other", 0); }},
    {"symlink", "symlink", [](auto path) -> long { return symlink("/tmp", path); }},
    {"symlinkat", "symlink", [](auto path) -> long { return symlinkat("/tmp", -1, path); }},
};

/// What a call fails with; 0 when it does not.
template <class Call> int errorOf(Call call) {
    errno = 0;
    return call() == -1 ? errno : 0;
}

class InterposedPathsTest : public testing::Test {
protected:
    bool exists(const std::string& path) { return terminal.files().exists(path); }

    sim::Terminal terminal;
};

TEST_F(InterposedPathsTest, WhatTheTerminalDoesNotHaveIsNotFoundOnTheHost) {
    ASSERT_EQ(access("/proc/self/root/sys/kernel", F_OK), 0) << "else this proves nothing";
    for (const Opening& opening : Openings)
        EXPECT_EQ(errorOf([&] { return opening.open(Missing); }), ENOENT) << opening.name;
    for (const PathCall& call : PathCalls)
        EXPECT_EQ(errorOf([&] { return call.call(Missing); }), ENOENT) << call.name;
}

TEST_F(InterposedPathsTest, AFaultRuleMakesTheCallFailByItsName) {
    terminal.files().write(File, "");
    for (const Opening& opening : Openings) {
        terminal.faults().fail(*opening.name == 'f' ? "fopen" : "open", File, EBADE);
        EXPECT_EQ(errorOf([&] { return opening.open(File); }), EBADE) << opening.name;
    }
    for (const PathCall& call : PathCalls) {
        terminal.faults().fail(call.fault, File, EBADE);
        EXPECT_EQ(errorOf([&] { return call.call(File); }), EBADE) << call.name;
    }
    EXPECT_TRUE(exists(File));
}

TEST_F(InterposedPathsTest, OpeningReachesTheTerminalsFiles) {
    for (const Opening& opening : Openings) {
        terminal.files().write(File, "");
        const int fd = opening.open(File);
        EXPECT_EQ(write(fd, opening.name, 4), 4) << opening.name;
        close(fd);
        EXPECT_EQ(terminal.files().read(File), std::string(opening.name, 4));
    }
}

TEST_F(InterposedPathsTest, OpeningReachesTheTerminalsDevices) {
    for (const Opening& opening : Openings) {
        const int fd = opening.open(board::PowerControlPath);
        if (std::string(opening.name).find("freopen") == 0) {
            EXPECT_EQ(fd, -1) << opening.name;
            continue;
        }
        EXPECT_EQ(ioctl(fd, board::LineHigh, board::LineScannerControl), 0) << opening.name;
        EXPECT_EQ(ioctl(fd, board::ReadLine, board::LineScannerControl), 1);
        EXPECT_EQ(ioctl(fd, board::LineLow, board::LineScannerControl), 0);
        EXPECT_EQ(close(fd), 0);
        EXPECT_EQ(errorOf([=] { return fcntl(fd, F_GETFD); }), EBADF);
    }
}

TEST_F(InterposedPathsTest, CallsOnPathsWorkOnTheTerminalsFiles) {
    const auto host = [&](const std::string& path) { return terminal.files().hostPath(path); };
    for (const auto& make : {+[](const char* path) { return mkdir(path, 0700); },
                             +[](const char* path) { return mkdirat(-1, path, 0700); }}) {
        EXPECT_EQ(make(Folder), 0);
        EXPECT_TRUE(fs::is_directory(host(Folder)));
        EXPECT_EQ(rmdir(Folder), 0);
    }
    ASSERT_EQ(mkdir(Folder, 0700), 0);
    EXPECT_EQ(mkfifo("/var/run/folder/fifo", 0600), 0);
    EXPECT_TRUE(fs::is_fifo(host("/var/run/folder/fifo")));
    EXPECT_EQ(mknod("/var/run/folder/node", S_IFREG | 0600, 0), 0);
    EXPECT_EQ(truncate("/var/run/folder/node", 7), 0);
    EXPECT_EQ(fs::file_size(host("/var/run/folder/node")), 7U);
    EXPECT_EQ(stat("/var/run/folder/node", &status), 0);
    EXPECT_EQ(status.st_size, 7);
    EXPECT_EQ(chmod("/var/run/folder/node", 0400), 0);
    EXPECT_EQ(fs::status(host("/var/run/folder/node")).permissions(), fs::perms::owner_read);
    EXPECT_EQ(link("/var/run/folder/node", "/var/run/folder/twin"), 0);
    EXPECT_EQ(fs::hard_link_count(host("/var/run/folder/node")), 2U);
    EXPECT_EQ(symlink("twin", "/var/run/folder/link"), 0);
    EXPECT_EQ(readlink("/var/run/folder/link", text, sizeof text), 4);
    EXPECT_EQ(statvfs(Folder, &system3), 0);

    DIR* const folder = opendir(Folder);
    ASSERT_TRUE(folder);
    int entries = 0;
    while (readdir(folder))
        ++entries;
    closedir(folder);
    EXPECT_EQ(entries, 2 + 4);

    EXPECT_EQ(rename("/var/run/folder/twin", "/etc/ppp/moved"), 0);
    EXPECT_TRUE(exists("/etc/ppp/moved"));
    EXPECT_EQ(remove("/etc/ppp/moved"), 0);
    EXPECT_EQ(unlink("/var/run/folder/fifo"), 0);
    EXPECT_FALSE(exists("/var/run/folder/fifo"));
    EXPECT_EQ(fs::remove_all(Folder), 3U);
    EXPECT_FALSE(exists(Folder));
}

TEST_F(InterposedPathsTest, DeviceNodesAreSeenButNotChanged) {
    for (const PathCall& call : PathCalls) {
        const std::string name = call.fault;
        const int expected = name == "stat" || name == "statfs" || name == "access" ? 0
                             : name == "opendir"                                    ? ENOTDIR
                             : name == "readlink"                                   ? EINVAL
                                                                                    : EPERM;
        EXPECT_EQ(errorOf([&] { return call.call("/dev/rtc"); }), expected) << call.name;
    }
    EXPECT_TRUE(fs::is_character_file("/dev/rtc"));
    terminal.setPresent("/dev/rtc", false);
    EXPECT_FALSE(fs::exists("/dev/rtc"));
    terminal.setPresent("/dev/rtc", true);
    EXPECT_TRUE(fs::exists("/dev/rtc"));
}

TEST_F(InterposedPathsTest, APathIsTheTerminalsHoweverItIsSpelled) {
    const fs::path before = fs::current_path();
    const int temporary = open("/tmp", O_RDONLY | O_DIRECTORY);
    terminal.files().write(File, "");
    for (const char* folder : {"/", "/tmp"}) {
        fs::current_path(folder);
        const std::string up = *(folder + 1) ? "../" : "";
        for (const char* path : {"//dev//rtc", "/dev/./rtc", "/tmp/../dev/rtc", "/../dev/rtc/"})
            EXPECT_EQ(access(path, F_OK), 0) << path;
        EXPECT_EQ(access((up + "dev/rtc").c_str(), F_OK), 0);
        EXPECT_EQ(errorOf([&] { return access((up + "sys/kernel").c_str(), F_OK); }), ENOENT);
        EXPECT_EQ(errorOf([&] { return open((up + "sys/kernel").c_str(), O_RDONLY); }), ENOENT);
    }
    EXPECT_EQ(faccessat(temporary, "../dev/rtc", F_OK, 0), 0);
    EXPECT_EQ(errorOf([&] { return openat(temporary, "../sys/kernel", O_RDONLY); }), ENOENT);
    EXPECT_EQ(unlinkat(temporary, ".././etc/./ppp/peer", 0), 0);
    EXPECT_FALSE(exists(File));
    EXPECT_EQ(errorOf([] { return openat(-1, "dev/rtc", O_RDONLY); }), EBADF);
    EXPECT_EQ(errorOf([] { return open("", O_RDONLY); }), ENOENT);
    EXPECT_EQ(errorOf([] { return symlink("/dev/mem", "/tmp/terminal-link"); }), EPERM);
    close(temporary);
    fs::current_path(before);
}

TEST_F(InterposedPathsTest, OtherPathsAreTheHosts) {
    const std::string folder = fs::temp_directory_path() / "interposed-XXXXXX";
    std::string made = folder;
    ASSERT_TRUE(mkdtemp(made.data()));
    const std::string file = made + "/file";
    std::ofstream(file) << "host";
    EXPECT_EQ(rename(file.c_str(), (file + "2").c_str()), 0);
    const int fd = open((file + "2").c_str(), O_RDONLY);
    EXPECT_EQ(read(fd, text, sizeof text), 4);
    close(fd);
    EXPECT_EQ(fs::remove_all(made), 2U);
    EXPECT_EQ(errorOf([] { return open("/proc/sys/kernel/hostname", O_WRONLY); }), EACCES)
        << "the host's kernel is not the program's to set";
    EXPECT_EQ(access("/dev/null", W_OK), 0);
}

TEST_F(InterposedPathsTest, StreamsOnDevicesReachThem) {
    std::ofstream(board::SuspendPath) << "wrong\n";
    EXPECT_EQ(terminal.power().suspends(), 0);
    terminal.power().wakeByKey(28, std::chrono::seconds(1));
    std::ofstream state(board::SuspendPath);
    EXPECT_TRUE(state << "mem\n" << std::flush);
    EXPECT_EQ(terminal.power().suspends(), 1);

    terminal.power().wakeByKey(28, std::chrono::seconds(1));
    FILE* const stream = fdopen(open(board::SuspendPath, O_WRONLY), "w");
    ASSERT_TRUE(stream);
    EXPECT_GE(fputs("mem", stream), 0);
    EXPECT_EQ(terminal.power().suspends(), 1) << "not written yet";
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_EQ(terminal.power().suspends(), 2);

    terminal.faults().fail("write", board::SuspendPath, EBUSY);
    FILE* const failing = fopen(board::SuspendPath, "w");
    fputs("mem", failing);
    EXPECT_EQ(errorOf([=] { return fclose(failing); }), EBUSY);
}

TEST_F(InterposedPathsTest, WithoutATerminalItsPathsLeadNowhere) {
    EXPECT_EQ(access(board::ClockPath, F_OK), 0);
    const int fd = open(board::PowerControlPath, O_RDWR);
    {
        // The test's own one goes first: there is at most one.
        terminal.~Terminal();
        EXPECT_EQ(errorOf([] { return access(board::ClockPath, F_OK); }), ENOENT);
        EXPECT_EQ(errorOf([] { return access("/mnt", F_OK); }), ENOENT);
        EXPECT_NE(errorOf([=] { return ioctl(fd, board::LineHigh, 1); }), 0) << "left to the host";
        EXPECT_EQ(close(fd), 0);
        new (&terminal) sim::Terminal;
    }
    EXPECT_EQ(access(board::ClockPath, F_OK), 0);
    EXPECT_EQ(terminal.powerControl().line(1), 0);
}

}  // namespace
