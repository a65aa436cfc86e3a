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
#include <cstdio>
#include <cstring>
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
constexpr char Other[] = "/sys/other";     // nobody has it
constexpr char File[] = "/etc/ppp/peer";
constexpr timespec Unchanged[2] = {{0, UTIME_OMIT}, {0, UTIME_OMIT}};

struct stat st;
struct stat64 st64;
struct statx stX;
struct statfs fs1;
struct statfs64 fs2;
struct statvfs fs3;
struct statvfs64 fs4;
char text[16];

/// The descriptor of a stream, which is closed.
int of(FILE* stream) {
    const int fd = stream ? dup(fileno(stream)) : -1;
    const int error = errno;
    if (stream)
        fclose(stream);
    errno = error;
    return fd;
}

using Call = long (*)(const char* p);

struct PathCall {
    const char* fault;  // the name that the call has for the fault rules
    const char* name;
    Call call;
};

constexpr PathCall pathCall(const char* fault, const char* name, Call call) {
    return {fault, name, call};
}

#define PATH_CALL(fault, expression) \
    pathCall(fault, #expression, [](const char* p) -> long { return expression; })

constexpr PathCall Openings[] = {
    PATH_CALL("open", open(p, O_RDWR)),
    PATH_CALL("open", open64(p, O_RDWR)),
    PATH_CALL("open", openat(-1, p, O_RDWR)),
    PATH_CALL("open", openat64(AT_FDCWD, p, O_RDWR)),
    PATH_CALL("open", __open_2(p, O_RDWR)),
    PATH_CALL("open", __open64_2(p, O_RDWR)),
    PATH_CALL("open", __openat_2(-1, p, O_RDWR)),
    PATH_CALL("open", __openat64_2(-1, p, O_RDWR)),
    PATH_CALL("open", creat(p, 0600)),
    PATH_CALL("open", creat64(p, 0600)),
    PATH_CALL("fopen", of(fopen(p, "r+"))),
    PATH_CALL("fopen", of(fopen64(p, "r+"))),
    PATH_CALL("fopen", of(freopen(p, "r+", fopen("/dev/null", "r")))),
    PATH_CALL("fopen", of(freopen64(p, "r+", fopen("/dev/null", "r")))),
};

// None of them would do harm if it reached the host's folder.
constexpr PathCall PathCalls[] = {
    PATH_CALL("stat", stat(p, &st)),
    PATH_CALL("stat", stat64(p, &st64)),
    PATH_CALL("stat", lstat(p, &st)),
    PATH_CALL("stat", lstat64(p, &st64)),
    PATH_CALL("stat", fstatat(-1, p, &st, 0)),
    PATH_CALL("stat", fstatat64(-1, p, &st64, 0)),
    PATH_CALL("stat", statx(-1, p, 0, 0, &stX)),
    PATH_CALL("statfs", statfs(p, &fs1)),
    PATH_CALL("statfs", statfs64(p, &fs2)),
    PATH_CALL("statfs", statvfs(p, &fs3)),
    PATH_CALL("statfs", statvfs64(p, &fs4)),
    PATH_CALL("access", access(p, F_OK)),
    PATH_CALL("access", faccessat(-1, p, F_OK, 0)),
    PATH_CALL("opendir", opendir(p) ? 0 : -1),
    PATH_CALL("readlink", readlink(p, text, 9)),
    PATH_CALL("readlink", readlinkat(-1, p, text, 9)),
    PATH_CALL("readlink", __readlink_chk(p, text, 9, 9)),
    PATH_CALL("readlink", __readlinkat_chk(-1, p, text, 9, 9)),
    PATH_CALL("unlink", unlink(p)),
    PATH_CALL("unlink", unlinkat(-1, p, 0)),
    PATH_CALL("unlink", remove(p)),
    PATH_CALL("rmdir", rmdir(p)),
    PATH_CALL("rmdir", unlinkat(-1, p, AT_REMOVEDIR)),
    PATH_CALL("mkdir", mkdir(p, 0755)),
    PATH_CALL("mkdir", mkdirat(-1, p, 0755)),
    PATH_CALL("mknod", mknod(p, S_IFIFO, 0)),
    PATH_CALL("mknod", mknodat(-1, p, S_IFIFO, 0)),
    PATH_CALL("mkfifo", mkfifo(p, 0600)),
    PATH_CALL("mkfifo", mkfifoat(-1, p, 0600)),
    PATH_CALL("chmod", chmod(p, 0755)),
    PATH_CALL("chmod", fchmodat(-1, p, 0755, 0)),
    PATH_CALL("chown", chown(p, -1U, -1U)),
    PATH_CALL("chown", lchown(p, -1U, -1U)),
    PATH_CALL("chown", fchownat(-1, p, -1U, -1U, 0)),
    PATH_CALL("utimes", utimensat(-1, p, Unchanged, 0)),
    PATH_CALL("utimes", utimes(p, nullptr)),
    PATH_CALL("utimes", utime(p, nullptr)),
    PATH_CALL("truncate", truncate(p, 4)),
    PATH_CALL("truncate", truncate64(p, 4)),
    PATH_CALL("rename", rename(p, Other)),
    PATH_CALL("rename", renameat(-1, p, -1, Other)),
    PATH_CALL("rename", renameat2(-1, p, -1, Other, 0)),
    PATH_CALL("link", link(p, Other)),
    PATH_CALL("link", linkat(-1, p, -1, Other, 0)),
    PATH_CALL("symlink", symlink("/tmp", p)),
    PATH_CALL("symlink", symlinkat("/tmp", -1, p)),
};

/// What a call fails with; 0 when it does not.
template <class Call> int errorOf(Call call) {
    errno = 0;
    return call() == -1 ? errno : 0;
}

class InterposedPathsTest : public testing::Test {
protected:
    template <class Check> static void forEveryCall(Check check) {
        for (const PathCall& opening : Openings)
            check(opening);
        for (const PathCall& call : PathCalls)
            check(call);
    }

    fs::path host(const std::string& path) { return terminal.files().hostPath(path); }

    sim::Terminal terminal;
};

TEST_F(InterposedPathsTest, CallsFailByFaultsAndFindNothingOfTheHost) {
    const std::string detour = "/proc/self/root";
    if (access((detour + Missing).c_str(), F_OK) != 0)
        GTEST_SKIP() << "the host has no " << Missing << ": this would prove nothing";
    terminal.files().write(File, "");
    forEveryCall([&](const PathCall& call) {
        EXPECT_EQ(errorOf([&] { return call.call(Missing); }), ENOENT) << call.name;
        terminal.faults().fail(call.fault, File, EBADE);
        EXPECT_EQ(errorOf([&] { return call.call(File); }), EBADE) << call.name;
    });
    EXPECT_TRUE(exists(host(File)));
}

TEST_F(InterposedPathsTest, OpeningReachesTheTerminalsFilesAndDevices) {
    for (const PathCall& opening : Openings) {
        terminal.files().write(File, "");
        const auto file = static_cast<int>(opening.call(File));
        EXPECT_EQ(write(file, opening.name, 4), 4) << opening.name;
        close(file);
        EXPECT_EQ(terminal.files().read(File), std::string(opening.name, 4));

        const auto device = static_cast<int>(opening.call(board::PowerControlPath));
        if (strstr(opening.name, "freopen")) {
            EXPECT_EQ(device, -1) << opening.name;
            continue;
        }
        EXPECT_EQ(ioctl(device, board::LineHigh, 2), 0) << opening.name;
        EXPECT_EQ(ioctl(device, board::ReadLine, 2), 1);
        EXPECT_EQ(ioctl(device, board::LineLow, 2), 0);
        EXPECT_EQ(close(device), 0);
        EXPECT_EQ(errorOf([=] { return fcntl(device, F_GETFD); }), EBADF);
    }
}

TEST_F(InterposedPathsTest, CallsWorkOnTheTerminalsFiles) {
    const std::string folder = "/var/run/folder";
    const std::string node = folder + "/node";
    const auto in = [&](const char* name) { return folder + name; };
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    EXPECT_EQ(mkfifo(in("/fifo").c_str(), 0600), 0);
    EXPECT_TRUE(is_fifo(host(in("/fifo"))));
    EXPECT_EQ(mknod(node.c_str(), S_IFREG | 0600, 0), 0);
    EXPECT_EQ(truncate(node.c_str(), 7), 0);
    EXPECT_EQ(file_size(host(node)), 7U);
    EXPECT_EQ(stat(node.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 7);
    EXPECT_EQ(chmod(node.c_str(), 0400), 0);
    EXPECT_EQ(status(host(node)).permissions(), fs::perms::owner_read);
    EXPECT_EQ(link(node.c_str(), in("/twin").c_str()), 0);
    EXPECT_EQ(hard_link_count(host(node)), 2U);
    EXPECT_EQ(symlink("twin", in("/link").c_str()), 0);
    EXPECT_EQ(readlink(in("/link").c_str(), text, sizeof text), 4);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 4);
    EXPECT_EQ(rename(in("/twin").c_str(), "/etc/ppp/moved"), 0);
    EXPECT_TRUE(exists(host("/etc/ppp/moved")));
    EXPECT_EQ(remove("/etc/ppp/moved"), 0);
    EXPECT_EQ(fs::remove_all(folder), 4U);
    EXPECT_FALSE(exists(host(folder)) || exists(host("/etc/ppp/moved")));
}

TEST_F(InterposedPathsTest, APathIsWhoseItIsHoweverItIsSpelled) {
    const fs::path before = fs::current_path();
    fs::current_path("/tmp");
    const int folder = open(".", O_RDONLY | O_DIRECTORY);
    terminal.files().write(File, "");
    for (const char* path : {"//dev//rtc", "/dev/./rtc", "/tmp/../dev/rtc", "/../dev/rtc/",
                             "../dev/rtc", "./../dev/rtc"})
        EXPECT_EQ(access(path, F_OK), 0) << path;
    EXPECT_EQ(errorOf([] { return open("../sys/kernel", O_RDONLY); }), ENOENT);
    EXPECT_EQ(errorOf([=] { return openat(folder, "../sys/kernel", O_RDONLY); }), ENOENT);
    EXPECT_EQ(unlinkat(folder, ".././etc/./ppp/peer", 0), 0);
    EXPECT_FALSE(exists(host(File)));
    EXPECT_EQ(errorOf([] { return openat(-1, "dev/rtc", O_RDONLY); }), EBADF);
    EXPECT_EQ(errorOf([] { return symlink("/dev/mem", "/tmp/terminal-link"); }), EPERM);
    close(folder);
    fs::current_path(before);

    // The rest is the host's, but for what would set its kernel.
    std::string made = (fs::temp_directory_path() / "interposed-XXXXXX").string();
    ASSERT_TRUE(mkdtemp(made.data()));
    std::ofstream(made + "/file") << "host";
    EXPECT_EQ(rename((made + "/file").c_str(), (made + "/moved").c_str()), 0);
    EXPECT_EQ(fs::file_size(made + "/moved"), 4U);
    EXPECT_EQ(fs::remove_all(made), 2U);
    EXPECT_EQ(errorOf([] { return open("/proc/sys/kernel/hostname", O_WRONLY); }), EACCES);
    EXPECT_EQ(access("/dev/null", W_OK), 0);
}

TEST_F(InterposedPathsTest, WithoutATerminalItsPathsLeadNowhere) {
    const int fd = open(board::PowerControlPath, O_RDWR);
    terminal.~Terminal();
    EXPECT_EQ(errorOf([] { return access(board::ClockPath, F_OK); }), ENOENT);
    EXPECT_NE(errorOf([=] { return ioctl(fd, board::LineHigh, 1); }), 0) << "left to the host";
    EXPECT_EQ(close(fd), 0);
    new (&terminal) sim::Terminal;
    EXPECT_EQ(access(board::ClockPath, F_OK), 0);
}

}  // namespace
