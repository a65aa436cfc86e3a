// The devices of the terminal, as a program sees them through their nodes and files.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "power/BoardProtocol.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr char Keypad[] = "/dev/input/event0";
constexpr char Card[] = "/dev/mmcblk0p1";
constexpr char MountPoint[] = "/mnt/mmc";

template <class Call> int errorOf(Call call) {
    errno = 0;
    return call() == -1 ? errno : 0;
}

/// A descriptor for the length of a scope.
class Opened {
public:
    explicit Opened(const char* path, int flags = O_RDWR | O_NONBLOCK) : fd(open(path, flags)) {}
    Opened(const Opened&) = delete;
    Opened& operator=(const Opened&) = delete;
    ~Opened() { close(fd); }

    operator int() const { return fd; }  // NOLINT(google-explicit-constructor)

private:
    const int fd;
};

std::string textOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

bool isReadable(int fd) {
    pollfd file{fd, POLLIN, 0};
    return poll(&file, 1, 0) == 1 && (file.revents & POLLIN);
}

class DevicesTest : public testing::Test {
protected:
    std::string take(const char* device) {
        std::string history = terminal.journal().history(device);
        terminal.journal().clear();
        return history;
    }

    sim::Terminal terminal;
};

TEST_F(DevicesTest, RequestsThatTheDriversDoNotKnowAreRefused) {
    const struct {
        const char* path;
        unsigned request, argument;
        int error;
    } calls[] = {
        {board::PowerControlPath, board::LineHigh, 16, EINVAL},
        {board::PowerControlPath, board::ReadLine, ~0U, EINVAL},
        {board::PowerControlPath, board::SupplyOn, 8, EINVAL},
        {board::PowerControlPath, board::SetKeyboardLight, 256, EINVAL},
        {board::PowerControlPath, board::DisplayOn, 0, ENOTTY},
        {board::DisplayPath, board::SetBrightness, 256, EINVAL},
        {board::DisplayPath, board::LineHigh, 1, ENOTTY},
        {board::ClockPath, board::LineHigh, 1, ENOTTY},
        {"/dev/input/event0", 0x80044521, 0, EINVAL},
    };
    for (const auto& call : calls) {
        const Opened fd(call.path);
        EXPECT_EQ(errorOf([&] { return ioctl(fd, call.request, call.argument); }), call.error);
        char byte = 0;
        EXPECT_EQ(errorOf([&] { return read(fd, &byte, 1); }), EINVAL);
        EXPECT_EQ(errorOf([&] { return write(fd, &byte, 1); }), EINVAL);
    }
    EXPECT_TRUE(terminal.journal().lines().empty());
}

class ClockChipTest : public DevicesTest {
protected:
    static constexpr board::ClockTime Noon{0, 0, 12, 14, 10, 123, 0, 0, 0};  // 2023-11-14
    static constexpr double NoonSeconds = 1699963200;

    double seconds() { return static_cast<double>(terminal.rtc().seconds()); }

    int setTime(board::ClockTime time) { return ioctl(rtc, board::SetTime, &time); }

    /// Sets the time to noon and the alarm to some minutes later.
    void setAlarm(int minutes) {
        EXPECT_EQ(setTime(Noon), 0);
        board::WakeAlarm alarm{1, 0, Noon};
        alarm.time.minute = minutes;
        EXPECT_EQ(ioctl(rtc, board::SetWakeAlarm, &alarm), 0);
    }

    /// The size of an interrupt that is read, or -1.
    ssize_t readInterrupt() {
        board::ClockInterrupt interrupt = 0;
        return read(rtc, &interrupt, sizeof interrupt);
    }

    const Opened rtc{board::ClockPath};
};

TEST_F(ClockChipTest, ItsTimeIsItsOwn) {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    EXPECT_NEAR(seconds(), static_cast<double>(timegm(&local)), 5);
    EXPECT_EQ(setTime(Noon), 0);
    const timespec systems{1000, 0};
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &systems), 0);
    EXPECT_NEAR(seconds(), NoonSeconds, 5) << "not the system's clock";
    terminal.clock().sleepThrough(1h);
    EXPECT_NEAR(seconds(), NoonSeconds + 3600, 5) << "runs on in sleep";
    board::ClockTime read{};
    EXPECT_EQ(ioctl(rtc, board::ReadTime, &read), 0);
    EXPECT_TRUE(read.hour == 13 && read.dayOfMonth == 14 && read.month == 10 && read.year == 123);

    for (const auto field : {&board::ClockTime::month, &board::ClockTime::second}) {
        board::ClockTime wrong = Noon;
        wrong.*field = 99;
        EXPECT_EQ(errorOf([&] { return setTime(wrong); }), EINVAL);
    }
    terminal.rtc().loseTime();
    EXPECT_EQ(errorOf([&] { return ioctl(rtc, board::ReadTime, &read); }), EINVAL);
    EXPECT_EQ(setTime(Noon), 0);
    EXPECT_EQ(ioctl(rtc, board::ReadTime, &read), 0);
}

TEST_F(ClockChipTest, AnAlarmIsReadOnce) {
    EXPECT_EQ(errorOf([&] { return readInterrupt(); }), EAGAIN);
    setAlarm(1);
    EXPECT_EQ(ioctl(rtc, board::AlarmInterruptOn), 0);
    EXPECT_EQ(readInterrupt(), -1) << "not yet";
    EXPECT_LE(terminal.rtc().untilAlarm(), 60s);
    terminal.clock().sleepThrough(61s);
    EXPECT_EQ(readInterrupt(), 4);
    EXPECT_EQ(readInterrupt(), -1);
    setAlarm(2);
    EXPECT_EQ(ioctl(rtc, board::AlarmInterruptOff), 0);
    terminal.clock().sleepThrough(1h);
    EXPECT_EQ(readInterrupt(), -1) << "switched off";
    EXPECT_EQ(take("rtc"), "set 2023-11-14 12:00:00, alarm in 60 s, alarm on, "
                           "set 2023-11-14 12:00:00, alarm in 120 s, alarm off");
}

TEST_F(ClockChipTest, ASuspendEndsWithTheAlarmOrAKey) {
    const Opened keypad(Keypad);
    const Opened state(board::SuspendPath, O_WRONLY);
    const auto suspend = [&] {  // the seconds asleep
        const double before = seconds();
        EXPECT_EQ(write(state, "mem\n", 4), 4);
        return seconds() - before;
    };
    EXPECT_EQ(errorOf([&] { return write(state, "disk", 4); }), EINVAL);
    const sim::Nanoseconds awake = terminal.clock().monotonic();
    setAlarm(10);
    EXPECT_NEAR(suspend(), 600, 5);
    EXPECT_LT(terminal.clock().monotonic() - awake, 30s) << "does not count";
    EXPECT_EQ(readInterrupt(), 4);
    EXPECT_FALSE(isReadable(keypad));
    setAlarm(10);
    terminal.power().wakeByKey(28, 100s);
    EXPECT_NEAR(suspend(), 100, 5);
    EXPECT_EQ(readInterrupt(), -1);
    EXPECT_TRUE(isReadable(keypad));
    EXPECT_NEAR(suspend(), 500, 5) << "what was left until the alarm";
    EXPECT_EQ(take("power"), "suspend, woken by alarm, suspend, woken by key, "
                             "suspend, woken by alarm");

    // Without an end in sight it lasts until a key is pressed, whenever that is.
    for (int i = 0; i < 20; ++i) {
        std::thread presser([&] {
            EXPECT_NE(terminal.journal().await("power: suspend", 0, 60s), 0U);
            terminal.pressKey(30, true);
        });
        suspend();
        presser.join();
        EXPECT_EQ(take("power"), "suspend, woken by key");
    }
    EXPECT_EQ(terminal.power().suspends(), 23);

    // On request it also lasts until the alarm, in scaled time.
    terminal.power().setLasting(true);
    terminal.clock().setSpeed(1000);
    setAlarm(1);
    EXPECT_GE(suspend(), 59);
    EXPECT_EQ(take("power"), "suspend, woken by alarm");
}

TEST_F(DevicesTest, EveryOpenOfTheKeypadHasItsOwnQueue) {
    const Opened first(Keypad);
    const Opened second(Keypad);
    board::InputEvent event{};
    EXPECT_EQ(errorOf([&] { return read(first, &event, sizeof event); }), EAGAIN);
    EXPECT_FALSE(isReadable(first));
    terminal.keypad().key(30, true);
    terminal.keypad().key(30, false);
    terminal.keypad().event(4, 4, 1234);
    EXPECT_TRUE(isReadable(first) && isReadable(second));

    EXPECT_EQ(read(first, &event, sizeof event), 16);
    EXPECT_TRUE(event.type == board::InputKey && event.code == 30 && event.value == 1);
    uint32_t seconds = 0;
    memcpy(&seconds, event.time, sizeof seconds);
    EXPECT_NEAR(seconds, static_cast<double>(time(nullptr)), 30);
    EXPECT_TRUE(isReadable(first)) << "two are left";
    char rest[47];
    EXPECT_EQ(read(first, rest, sizeof rest), 32) << "whole records only";
    EXPECT_FALSE(isReadable(first));
    EXPECT_TRUE(isReadable(second)) << "has read none";
    EXPECT_EQ(take("keypad"), "key 30 down, key 30 up");

    // A blocking open waits.
    const Opened blocking(Keypad, O_RDONLY);
    std::thread reader([&] {
        board::InputEvent waitedFor{};
        EXPECT_EQ(read(blocking, &waitedFor, sizeof waitedFor), 16);
        EXPECT_EQ(waitedFor.code, 32);
    });
    terminal.keypad().key(32, true);
    reader.join();
}

class CardTest : public DevicesTest {
protected:
    static int mountCard(unsigned long flags) {
        return errorOf([=] { return mount(Card, MountPoint, "vfat", flags, ""); });
    }
    static int unmountCard() {
        return errorOf([] { return umount(MountPoint); });
    }
    static std::string mountedAs() {
        const std::string mounts = textOf("/proc/mounts");
        EXPECT_EQ(mounts, textOf("/proc/self/mounts"));
        const size_t at = mounts.find("/dev/mmcblk0p1 /mnt/mmc vfat ");
        return at == std::string::npos ? "" : mounts.substr(at + 29, 2);
    }
};

TEST_F(CardTest, ItIsMountedRemountedAndUnmounted) {
    terminal.card().writeFile("from/outside", "text");
    EXPECT_EQ(mountedAs(), "");
    EXPECT_EQ(textOf("/mnt/mmc/from/outside"), "");
    EXPECT_EQ(unmountCard(), EINVAL);
    EXPECT_EQ(mountCard(MS_REMOUNT), EINVAL);
    EXPECT_EQ(mountCard(MS_RDONLY), 0);
    EXPECT_EQ(mountCard(MS_RDONLY), EBUSY);
    EXPECT_EQ(mountedAs(), "ro");
    EXPECT_EQ(textOf("/mnt/mmc/from/outside"), "text");

    const char* const file = "/mnt/mmc/from/outside";
    EXPECT_EQ(errorOf([&] { return open(file, O_RDWR); }), EROFS);
    EXPECT_EQ(errorOf([&] { return open("/mnt/mmc/new", O_CREAT, 0600); }), EROFS);
    EXPECT_EQ(errorOf([&] { return access(file, W_OK); }), EROFS);
    EXPECT_FALSE(fopen(file, "a"));
    std::error_code error;
    fs::remove_all("/mnt/mmc/from", error);
    EXPECT_EQ(error.value(), EROFS) << "by way of an open folder too";

    EXPECT_EQ(mountCard(MS_REMOUNT), 0);
    EXPECT_EQ(mountedAs(), "rw");
    std::ofstream("/mnt/mmc/new") << "written";
    EXPECT_EQ(terminal.card().readFile("new"), "written");
    EXPECT_EQ(fs::remove_all("/mnt/mmc/from"), 2U);
    EXPECT_EQ(mountCard(MS_REMOUNT | MS_RDONLY), 0);
    EXPECT_EQ(unmountCard(), 0);
    EXPECT_EQ(mountedAs(), "");
    EXPECT_EQ(access("/mnt/mmc/new", F_OK), -1);
    EXPECT_EQ(take("card"), "mount ro, remount rw, remount ro, unmount");

    EXPECT_EQ(errorOf([] { return mount(Card, MountPoint, "ext9", 0, ""); }), ENODEV);
    EXPECT_EQ(errorOf([] { return mount("/dev/sda1", MountPoint, "vfat", 0, ""); }), ENOENT);
    EXPECT_EQ(errorOf([] { return mount(Card, "/mnt", "vfat", 0, ""); }), EINVAL);
}

TEST_F(CardTest, ItIsBusyWhileFilesOnItAreOpen) {
    mountCard(0);
    {
        const Opened written("/mnt/mmc/file", O_WRONLY | O_CREAT);
        EXPECT_EQ(mountCard(MS_REMOUNT | MS_RDONLY), EBUSY);
        EXPECT_EQ(unmountCard(), EBUSY);
    }
    {
        const Opened folder(MountPoint, O_RDONLY);
        const Opened read("/mnt/mmc/file", O_RDONLY);
        EXPECT_EQ(mountCard(MS_REMOUNT | MS_RDONLY), 0) << "readers may stay";
        EXPECT_EQ(unmountCard(), EBUSY);
    }
    DIR* const folder = opendir(MountPoint);
    EXPECT_EQ(unmountCard(), EBUSY);
    closedir(folder);
    EXPECT_EQ(unmountCard(), 0);
}

TEST_F(CardTest, WithoutACardThereIsNothingToMountOrRead) {
    mountCard(0);
    std::ofstream("/mnt/mmc/file") << "text";
    terminal.card().setInserted(false);
    EXPECT_EQ(errorOf([] { return open("/mnt/mmc/file", O_RDONLY); }), EIO);
    EXPECT_EQ(unmountCard(), 0);
    EXPECT_EQ(mountCard(0), ENXIO);
    terminal.card().setInserted(true);
    EXPECT_EQ(mountCard(0), 0);
    EXPECT_EQ(textOf("/mnt/mmc/file"), "text");
    EXPECT_EQ(take("card"), "mount rw, taken out, unmount, inserted, mount rw");
}

TEST_F(DevicesTest, FilesChangeAndGoAsTheDriversSay) {
    const std::string& path = terminal.battery().path();
    EXPECT_EQ(textOf(path) + textOf(board::UsbSupplyPath), "4200\n0\n");
    terminal.battery().set(3499);
    EXPECT_EQ(textOf(path), "3499\n");
    terminal.battery().remove();
    EXPECT_EQ(errorOf([&] { return open(path.c_str(), O_RDWR | O_CREAT, 0600); }), ENOENT)
        << "only a driver makes one";
    terminal.setPresent(board::AmbientLightPath, false);
    EXPECT_EQ(access(board::AmbientLightPath, F_OK), -1);
    terminal.setPresent(board::AmbientLightPath, true);
    EXPECT_EQ(textOf(board::AmbientLightPath), "20\n");
}

TEST(TerminalFilesTest, TheirFolderGoesWithTheTerminalThatMadeIt) {
    std::string folder;
    {
        sim::Terminal terminal;
        folder = terminal.files().hostPath("");
        terminal.card().writeFile("a/b", "");
        mount(Card, MountPoint, "vfat", MS_RDONLY, "");
        EXPECT_TRUE(fs::exists(folder));
    }
    EXPECT_FALSE(fs::exists(folder));
    std::string given = (fs::temp_directory_path() / "given-XXXXXX").string();
    ASSERT_TRUE(mkdtemp(given.data()));
    sim::Terminal(given).files().write("/release_version", "1");
    EXPECT_EQ(textOf(given + "/release_version"), "1") << "stays";
    fs::remove_all(given);
}

TEST_F(DevicesTest, TheBarcodeEngineObeysWhileItHasPower) {
    const Opened line("/dev/ttyAT2", O_RDWR | O_NOCTTY);
    const Opened control(board::PowerControlPath);
    sim::BarcodeEngine& engine = terminal.barcode();
    const auto command = [&](const char* bytes) {
        EXPECT_GT(write(line, bytes, strlen(bytes)), 0);
        EXPECT_EQ(tcdrain(line), 0);
    };
    termios raw = terminal.barcodeLine().attributes();
    cfmakeraw(&raw);
    tcsetattr(line, TCSANOW, &raw);
    engine.present("123");
    command("\x1BZ\r");
    EXPECT_EQ(take("barcode"), "") << "without power";
    ioctl(control, board::SupplyOn, board::SupplyScanner);
    command("\x1BYM\r\x1B");
    command("Z\r");  // cut in two
    char code[5];
    for (char& byte : code)
        EXPECT_EQ(read(line, &byte, 1), 1);
    EXPECT_EQ(std::string(code, 5), "123\r\n");
    EXPECT_FALSE(engine.isScanning()) << "it has read one";
    command("\x1BZ\r\x1BY\r");
    EXPECT_FALSE(engine.isScanning());
    engine.setSilent(true);
    command("\x1BZ\r");
    EXPECT_FALSE(engine.isScanning());
    engine.setSilent(false);
    command("\x1BZ\r");
    EXPECT_TRUE(engine.isScanning());
    ioctl(control, board::SupplyOff, board::SupplyScanner);
    EXPECT_FALSE(engine.isScanning());
    EXPECT_EQ(take("barcode"), "command ESC YM CR, command ESC Z CR, read 123, command ESC Z CR, "
                               "command ESC Y CR, command ESC Z CR");
}

}  // namespace
