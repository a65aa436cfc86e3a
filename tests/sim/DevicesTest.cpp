// What a program relies on that talks to the devices by their nodes and files.

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <termios.h>
#include <unistd.h>

#include "io/FileDescriptor.h"
#include "power/BoardProtocol.h"
#include "sim/Spellings.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::errorOf;

using DevicesTest = test::TerminalTest;

TEST_F(DevicesTest, TheAlarmOfTheClockChipIsReadOnceAndEndsASuspend) {
    const io::FileDescriptor rtc(open(board::ClockPath, O_RDWR | O_NONBLOCK));
    const io::FileDescriptor state(open(board::SuspendPath, O_WRONLY));
    const auto setAlarm = [&](int minute) {  // the time is noon of 2023-11-14 then
        board::ClockTime noon{0, 0, 12, 14, 10, 123, 0, 0, 0};
        board::WakeAlarm alarm{1, 0, {0, minute, 12, 14, 10, 123, 0, 0, 0}};
        EXPECT_EQ(ioctl(rtc.get(), board::SetTime, &noon), 0);
        EXPECT_EQ(ioctl(rtc.get(), board::SetWakeAlarm, &alarm), 0);
    };
    const auto readError = [&] {
        board::ClockInterrupt interrupt = 0;
        return errorOf([&] { return read(rtc.get(), &interrupt, sizeof interrupt); });
    };
    setAlarm(1);
    EXPECT_EQ(ioctl(rtc.get(), board::AlarmInterruptOn), 0);
    EXPECT_EQ(readError(), EAGAIN) << "not yet";
    terminal.clock().sleepThrough(61s);
    EXPECT_EQ(readError(), 0);
    EXPECT_EQ(readError(), EAGAIN) << "once";
    setAlarm(2);
    EXPECT_EQ(ioctl(rtc.get(), board::AlarmInterruptOff), 0);
    terminal.clock().sleepThrough(1h);
    EXPECT_EQ(readError(), EAGAIN) << "switched off";

    setAlarm(10);
    terminal.power().wakeByKey(28, 100s);
    for (const int end : {100, 600}) {
        EXPECT_EQ(write(state.get(), "mem\n", 4), 4);
        board::ClockTime found{};
        EXPECT_EQ(ioctl(rtc.get(), board::ReadTime, &found), 0);
        EXPECT_NEAR(found.hour * 3600 + found.minute * 60 + found.second, 12 * 3600 + end, 20);
        EXPECT_EQ(readError(), end == 100 ? EAGAIN : 0);
    }
    EXPECT_EQ(take("power"), "suspend, woken by key, suspend, woken by alarm");
}

TEST_F(DevicesTest, ACardIsBusyWhileFilesOnItAreOpenAndReadOnlyWhenMountedSo) {
    const auto mountCard = [](unsigned long flags) {
        return errorOf([=] { return mount("/dev/mmcblk0p1", "/mnt/mmc", "vfat", flags, ""); });
    };
    const auto unmountError = [] { return errorOf([] { return umount("/mnt/mmc"); }); };
    EXPECT_EQ(mountCard(0), 0);
    {
        const io::FileDescriptor written(open("/mnt/mmc/file", O_WRONLY | O_CREAT, 0600));
        EXPECT_EQ(mountCard(MS_REMOUNT | MS_RDONLY), EBUSY);
        EXPECT_EQ(unmountError(), EBUSY);
        EXPECT_EQ(write(written.get(), "text", 4), 4);
    }
    {
        const io::FileDescriptor read(open("/mnt/mmc/file", O_RDONLY));
        EXPECT_EQ(mountCard(MS_REMOUNT | MS_RDONLY), 0) << "a reader may stay";
        EXPECT_EQ(unmountError(), EBUSY);
    }
    for (const int flags : {O_RDWR, O_WRONLY | O_TRUNC})
        EXPECT_EQ(errorOf([=] { return open("/mnt/mmc/file", flags); }), EROFS);
    EXPECT_EQ(errorOf([] { return open("/mnt/mmc/new", O_CREAT | O_RDWR, 0600); }), EROFS);
    EXPECT_EQ(errorOf([] { return unlink("/mnt/mmc/file"); }), EROFS);
    EXPECT_EQ(terminal.card().readFile("file"), "text");
    DIR* const folder = opendir("/mnt/mmc");
    EXPECT_EQ(unmountError(), EBUSY);
    closedir(folder);
    EXPECT_EQ(unmountError(), 0);
}

TEST_F(DevicesTest, ALineLosesWhatNobodyListensToAndKeepsTheOrderOfDelays) {
    sim::SerialLine& line = terminal.barcodeLine();
    io::FileDescriptor port;
    const auto reopen = [&] {
        port.reset();
        line.send("to nobody");
        port.reset(open("/dev/ttyAT2", O_RDWR | O_NOCTTY));
        termios raw{};
        tcgetattr(port.get(), &raw);
        cfmakeraw(&raw);
        tcsetattr(port.get(), TCSANOW, &raw);
    };
    reopen();
    terminal.clock().setSpeed(10);
    const auto begin = terminal.clock().monotonic();
    line.send("one ", 400ms);
    line.send("two ", 200ms);  // not before the first
    line.send("three ");
    line.send("four", 600ms);
    EXPECT_EQ(test::readFrom(port.get(), 14), "one two three ");
    EXPECT_GE(terminal.clock().monotonic() - begin, 400ms);
    EXPECT_EQ(test::readFrom(port.get(), 4), "four");
    EXPECT_GE(terminal.clock().monotonic() - begin, 600ms);

    line.send("unread by the one before");
    int pending = 0;
    EXPECT_TRUE(test::soon([&] { return ioctl(port.get(), FIONREAD, &pending) == 0 && pending; }));
    reopen();
    line.send("now");
    EXPECT_EQ(test::readFrom(port.get(), 3), "now");
}

}  // namespace
