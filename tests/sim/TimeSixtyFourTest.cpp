// What a program calls where time_t can have 32 or 64 bits and it is built for 64: other functions
// under the same names. Elsewhere these are the usual ones.

#ifndef __LP64__
#define _TIME_BITS 64  // asks the headers for them
#define _FILE_OFFSET_BITS 64
#endif

#define TIMED_CALLS_TEST TimeSixtyFourTest
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <utime.h>

#include "power/BoardProtocol.h"
#include "sim/TimedCalls.h"

namespace {

static_assert(sizeof(time_t) == 8);

TEST_F(TimeSixtyFourTest, PathsAndDescriptorsAreTheTerminals) {
    const char* const missing = "/sys/kernel";  // the host has it
    struct stat status {};
    for (const int result :
         {stat(missing, &status), lstat(missing, &status), fstatat(-1, missing, &status, 0),
          utimensat(-1, missing, nullptr, 0), utimes(missing, nullptr), utime(missing, nullptr),
          lutimes(missing, nullptr), futimesat(-1, missing, nullptr)})
        EXPECT_EQ(result, -1);

    const char* const file = "/etc/ppp/peer";
    terminal.files().write(file, "7 bytes");
    const timespec times[2] = {{1000, 0}, {2000, 0}};
    const timeval coarse[2] = {{3000, 0}, {4000, 0}};
    const utimbuf coarser{5000, 6000};
    EXPECT_EQ(utimensat(-1, file, times, 0) + stat(file, &status), 0);
    EXPECT_EQ(status.st_size, 7);
    EXPECT_EQ(status.st_mtime, 2000);
    EXPECT_EQ(utimes(file, coarse) + lstat(file, &status), 0);
    EXPECT_EQ(status.st_mtime, 4000);
    EXPECT_EQ(utime(file, &coarser) + fstatat(-1, file, &status, 0), 0);
    EXPECT_EQ(status.st_mtime, 6000);
    const timeval linkTimes[2] = {{7000, 0}, {8000, 0}};
    EXPECT_EQ(lutimes(file, linkTimes) + stat(file, &status), 0);
    EXPECT_EQ(status.st_mtime, 8000);
    EXPECT_EQ(futimesat(-1, file, coarse) + stat(file, &status), 0);
    EXPECT_EQ(status.st_mtime, 4000);
    EXPECT_EQ(stat(board::ClockPath, &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(stat("/", &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode)) << "the host's";

    sockaddr_un address{AF_UNIX, "/var/run/socket"};
    mmsghdr several{};
    several.msg_hdr.msg_name = &address;
    several.msg_hdr.msg_namelen = sizeof address;
    const io::FileDescriptor sender(socket(AF_UNIX, SOCK_DGRAM, 0));
    terminal.faults().fail("sendmsg", address.sun_path, EBADE, 0, 2);
    EXPECT_EQ(sendmsg(sender.get(), &several.msg_hdr, 0), -1);
    EXPECT_EQ(sendmmsg(sender.get(), &several, 1, 0), -1);
    EXPECT_EQ(terminal.faults().failed(), 2);

    const int fd = open(board::PowerControlPath, O_RDWR);
    const int copy = fcntl(fd, F_DUPFD, 100);
    close(fd);
    EXPECT_EQ(ioctl(copy, board::LineHigh, 1), 0);
    EXPECT_EQ(terminal.powerControl().line(1), 1);
    EXPECT_EQ(close(copy), 0);
}

}  // namespace
