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

TEST_F(DevicesTest, TheClockChipKeepsItsOwnTimeAndItsAlarmIsReadOnceAndWakes) {
    const io::FileDescriptor rtc(open(board::ClockPath, O_RDWR | O_NONBLOCK));
    const io::FileDescriptor state(open(board::SuspendPath, O_WRONLY));
    const auto setTime = [&](int month, int second) {  // 2023-11-14 12:00:00 for (10, 0)
        board::ClockTime noon{second, 0, 12, 14, month, 123, 0, 0, 0};
        return errorOf([&] { return ioctl(rtc.get(), board::SetTime, &noon); });
    };
    const auto setAlarm = [&](int minute) {
        board::WakeAlarm alarm{1, 0, {0, minute, 12, 14, 10, 123, 0, 0, 0}};
        EXPECT_EQ(setTime(10, 0) + ioctl(rtc.get(), board::SetWakeAlarm, &alarm), 0);
    };
    board::ClockInterrupt interrupt = 0;
    const auto readError = [&] {
        return errorOf([&] { return read(rtc.get(), &interrupt, sizeof interrupt); });
    };
    const timespec systems{1000, 0};
    EXPECT_EQ(setTime(10, 0) + clock_settime(CLOCK_REALTIME, &systems), 0);
    terminal.clock().sleepThrough(1h);
    board::ClockTime found{};
    EXPECT_EQ(ioctl(rtc.get(), board::ReadTime, &found), 0);
    EXPECT_TRUE(found.hour == 13 && found.dayOfMonth == 14 && found.month == 10);
    EXPECT_EQ(setTime(99, 0), EINVAL);
    EXPECT_EQ(setTime(10, 99), EINVAL);
    terminal.rtc().loseTime();
    EXPECT_EQ(errorOf([&] { return ioctl(rtc.get(), board::ReadTime, &found); }), EINVAL);

    setAlarm(1);
    EXPECT_EQ(ioctl(rtc.get(), board::AlarmInterruptOn), 0);
    EXPECT_EQ(readError(), EAGAIN) << "not yet";
    terminal.clock().sleepThrough(61s);
    EXPECT_EQ(readError(), 0);
    EXPECT_EQ(readError(), EAGAIN) << "once";
    EXPECT_EQ(ioctl(rtc.get(), board::AlarmInterruptOff), 0);

    setAlarm(10);
    terminal.power().wakeByKey(28, 100s);
    for (const int end : {100, 600}) {
        EXPECT_EQ(write(state.get(), "mem\n", 4), 4);
        EXPECT_NEAR(static_cast<double>(terminal.rtc().seconds()), 1699963200 + end, 20);
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
    const auto hear = [&](size_t size) {
        string text(size, '\0');
        for (char& byte : text)
            EXPECT_EQ(read(port.get(), &byte, 1), 1);
        return text;
    };
    reopen();
    terminal.clock().setSpeed(10);
    const auto begin = terminal.clock().monotonic();
    line.send("one ", 400ms);
    line.send("two ", 200ms);  // not before the first
    line.send("three ");
    line.send("four", 600ms);
    EXPECT_EQ(hear(14), "one two three ");
    EXPECT_GE(terminal.clock().monotonic() - begin, 400ms);
    EXPECT_EQ(hear(4), "four");
    EXPECT_GE(terminal.clock().monotonic() - begin, 600ms);

    line.send("unread by the one before");
    int pending = 0;
    EXPECT_TRUE(test::soon([&] { return ioctl(port.get(), FIONREAD, &pending) == 0 && pending; }));
    reopen();
    line.send("now");
    EXPECT_EQ(hear(3), "now");
}

}  // namespace
