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

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "power/BoardProtocol.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;

constexpr auto Limit = 60s;  // of the host's time, far beyond anything that works
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
        const std::string history = terminal.journal().history(device);
        terminal.journal().clear();
        return history;
    }

    sim::Terminal terminal;
};

TEST_F(DevicesTest, PowerControlDrivesLinesSuppliesAndLight) {
    const Opened fd(board::PowerControlPath);
    sim::PowerControl& control = terminal.powerControl();
    EXPECT_EQ(ioctl(fd, board::LineHigh, board::LineScannerAim), 0);
    EXPECT_EQ(ioctl(fd, board::ReadLine, board::LineScannerAim), 1);
    EXPECT_EQ(control.line(board::LineScannerAim), 1);
    EXPECT_EQ(ioctl(fd, board::LineLow, board::LineScannerAim), 0);
    EXPECT_EQ(ioctl(fd, board::ReadLine, board::LineScannerAim), 0);
    EXPECT_EQ(ioctl(fd, board::SupplyOn, board::SupplyScanner), 0);
    EXPECT_TRUE(control.supply(board::SupplyScanner));
    EXPECT_FALSE(control.supply(board::SupplyGprs));
    EXPECT_EQ(ioctl(fd, board::SupplyOff, board::SupplyScanner), 0);
    EXPECT_FALSE(control.supply(board::SupplyScanner));
    EXPECT_EQ(ioctl(fd, board::SetKeyboardLight, 255), 0);
    EXPECT_EQ(ioctl(fd, board::FadeKeyboardLight, 7), 0);
    EXPECT_EQ(control.keyboardLight(), 7);
    EXPECT_EQ(take("pwrctrl"), "line 9 high, read line 9, line 9 low, read line 9, supply 2 on, "
                               "supply 2 off, keyboard light 255, keyboard fade 7");

    const struct {
        unsigned long request, argument;
        int error;
    } wrong[] = {{board::LineHigh, 16, EINVAL},          {board::LineLow, -1UL, EINVAL},
                 {board::ReadLine, 16, EINVAL},          {board::SupplyOn, 8, EINVAL},
                 {board::SetKeyboardLight, 256, EINVAL}, {board::DisplayOn, 0, ENOTTY}};
    for (const auto& call : wrong)
        EXPECT_EQ(errorOf([&] { return ioctl(fd, call.request, call.argument); }), call.error);
    char byte = 0;
    EXPECT_EQ(errorOf([&] { return read(fd, &byte, 1); }), EINVAL);
    EXPECT_EQ(take("pwrctrl"), "");
}

TEST_F(DevicesTest, TheModemTakesItsPowerKeyWhileItsControlLineIsHigh) {
    const Opened fd(board::PowerControlPath);
    const auto pulse = [&] {
        ioctl(fd, board::LineHigh, board::LineGprsPowerKey);
        terminal.clock().setMonotonic(terminal.clock().monotonic() + 2s);
        ioctl(fd, board::LineLow, board::LineGprsPowerKey);
        return ioctl(fd, board::ReadLine, board::LineGprsPowerStatus);
    };
    ioctl(fd, board::SupplyOn, board::SupplyGprs);
    ioctl(fd, board::LineLow, board::LineGprsControl);
    EXPECT_EQ(pulse(), 0) << "forced off";
    ioctl(fd, board::LineHigh, board::LineGprsControl);
    terminal.radio().answerPulse(2);
    EXPECT_EQ(pulse(), 0);
    EXPECT_EQ(pulse(), 1);
    terminal.radio().lingerFor(2);
    EXPECT_EQ(pulse(), 1);
    EXPECT_EQ(ioctl(fd, board::ReadLine, board::LineGprsPowerStatus), 1);
    EXPECT_EQ(ioctl(fd, board::ReadLine, board::LineGprsPowerStatus), 0);
    EXPECT_EQ(pulse(), 1);
    ioctl(fd, board::LineLow, board::LineGprsControl);
    EXPECT_FALSE(terminal.radio().isOn());
}

TEST_F(DevicesTest, TheDisplayHasBrightnessAndAPictureThatFreezes) {
    const Opened fd(board::DisplayPath);
    const sim::Display& display = terminal.display();
    EXPECT_FALSE(display.isOn());
    EXPECT_EQ(ioctl(fd, board::DisplayOn), 0);
    EXPECT_EQ(ioctl(fd, board::FreezePicture), 0);
    EXPECT_TRUE(display.isOn() && display.isFrozen());
    EXPECT_EQ(ioctl(fd, board::SetBrightness, 255), 0);
    EXPECT_EQ(ioctl(fd, board::FadeBrightness, 0), 0);
    EXPECT_EQ(display.brightness(), 0);
    EXPECT_EQ(errorOf([&] { return ioctl(fd, board::SetBrightness, 256); }), EINVAL);
    EXPECT_EQ(ioctl(fd, board::UnfreezePicture), 0);
    EXPECT_EQ(ioctl(fd, board::DisplayOff), 0);
    EXPECT_FALSE(display.isOn() || display.isFrozen());
    EXPECT_EQ(take("oled"), "on, freeze, brightness 255, fade 0, unfreeze, off");
}

class ClockChipTest : public DevicesTest {
protected:
    std::optional<time_t> chipTime() {
        board::ClockTime time{};
        if (ioctl(rtc, board::ReadTime, &time) != 0)
            return std::nullopt;
        tm fields{};
        fields.tm_sec = time.second;
        fields.tm_min = time.minute;
        fields.tm_hour = time.hour;
        fields.tm_mday = time.dayOfMonth;
        fields.tm_mon = time.month;
        fields.tm_year = time.year;
        return timegm(&fields);
    }

    static board::ClockTime fieldsOf(time_t time) {
        tm fields{};
        gmtime_r(&time, &fields);
        return {fields.tm_sec,
                fields.tm_min,
                fields.tm_hour,
                fields.tm_mday,
                fields.tm_mon,
                fields.tm_year,
                0,
                0,
                0};
    }

    int setAlarm(time_t at) {
        board::WakeAlarm alarm{1, 0, fieldsOf(at)};
        return ioctl(rtc, board::SetWakeAlarm, &alarm);
    }

    /// The size of an interrupt that is read, or -1.
    ssize_t readInterrupt() {
        board::ClockInterrupt interrupt = 0;
        return read(rtc, &interrupt, sizeof interrupt);
    }

    static constexpr time_t Moment = 1'700'000'000;

    const Opened rtc{board::ClockPath};
};

TEST_F(ClockChipTest, ItsTimeIsItsOwn) {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    EXPECT_NEAR(static_cast<double>(chipTime().value()), static_cast<double>(timegm(&local)), 5);

    board::ClockTime set = fieldsOf(Moment);
    EXPECT_EQ(ioctl(rtc, board::SetTime, &set), 0);
    const timespec systems{1000, 0};
    EXPECT_EQ(clock_settime(CLOCK_REALTIME, &systems), 0);
    EXPECT_NEAR(static_cast<double>(chipTime().value()), Moment, 5) << "not the system's clock";
    EXPECT_NEAR(static_cast<double>(terminal.rtc().seconds()), Moment, 5);
    terminal.clock().sleepThrough(1h);
    EXPECT_NEAR(static_cast<double>(chipTime().value()), Moment + 3600, 5) << "runs on in sleep";

    for (board::ClockTime wrong : {set, set, set, set}) {
        static int turn = 0;
        ++turn;
        (turn == 1 ? wrong.month : turn == 2 ? wrong.second : wrong.dayOfMonth) = 99;
        wrong.year = turn == 4 ? 60 : wrong.year;
        EXPECT_EQ(errorOf([&] { return ioctl(rtc, board::SetTime, &wrong); }), EINVAL);
    }
    terminal.rtc().loseTime();
    EXPECT_EQ(errorOf([&] { return ioctl(rtc, board::ReadTime, &set); }), EINVAL);
    EXPECT_EQ(ioctl(rtc, board::SetTime, &set), 0);
    EXPECT_TRUE(chipTime());
    EXPECT_EQ(take("rtc"), "set 2023-11-14 22:13:20, set 2023-11-14 22:13:20");
}

TEST_F(ClockChipTest, AnAlarmIsReadOnce) {
    EXPECT_EQ(errorOf([&] { return readInterrupt(); }), EAGAIN);
    EXPECT_EQ(setAlarm(chipTime().value() + 60), 0);
    EXPECT_EQ(ioctl(rtc, board::AlarmInterruptOn), 0);
    EXPECT_EQ(readInterrupt(), -1) << "not yet";
    EXPECT_LE(terminal.rtc().untilAlarm(), 60s);
    terminal.clock().sleepThrough(61s);
    char small = 0;
    EXPECT_EQ(errorOf([&] { return read(rtc, &small, 1); }), EINVAL);
    EXPECT_EQ(readInterrupt(), 4);
    EXPECT_EQ(readInterrupt(), -1);
    EXPECT_EQ(setAlarm(chipTime().value() + 1), 0);
    EXPECT_EQ(ioctl(rtc, board::AlarmInterruptOff), 0);
    terminal.clock().sleepThrough(10s);
    EXPECT_EQ(readInterrupt(), -1) << "switched off";
    EXPECT_EQ(terminal.rtc().untilAlarm(), sim::Nanoseconds::max());
    EXPECT_EQ(take("rtc"), "alarm in 60 s, alarm on, alarm in 1 s, alarm off");
}

TEST_F(ClockChipTest, ASuspendEndsWithTheAlarmOrAKey) {
    const Opened keypad(Keypad);
    const Opened state(board::SuspendPath, O_WRONLY);
    const auto suspend = [&] {
        const sim::Nanoseconds before = terminal.clock().boot();
        const sim::Nanoseconds awake = terminal.clock().monotonic();
        EXPECT_EQ(write(state, "mem\n", 4), 4);
        EXPECT_LT(terminal.clock().monotonic() - awake, 30s) << "does not count";
        return std::chrono::duration_cast<std::chrono::seconds>(terminal.clock().boot() - before)
            .count();
    };
    EXPECT_EQ(errorOf([&] { return write(state, "disk", 4); }), EINVAL);
    setAlarm(chipTime().value() + 600);
    EXPECT_NEAR(static_cast<double>(suspend()), 600, 5);
    EXPECT_EQ(readInterrupt(), 4);
    EXPECT_FALSE(isReadable(keypad));
    EXPECT_EQ(take("power"), "suspend, woken by alarm");

    setAlarm(chipTime().value() + 600);
    terminal.power().wakeByKey(28, 100s);
    EXPECT_NEAR(static_cast<double>(suspend()), 100, 5);
    EXPECT_EQ(readInterrupt(), -1);
    EXPECT_TRUE(isReadable(keypad));
    EXPECT_EQ(take("power"), "suspend, woken by key");
    terminal.power().wakeByKey(28, 1000s);
    EXPECT_NEAR(static_cast<double>(suspend()), 500, 5) << "what was left until the alarm";
    EXPECT_EQ(take("power"), "suspend, woken by alarm");
    EXPECT_EQ(readInterrupt(), 4);
    EXPECT_EQ(suspend(), 1000) << "the key planned before";
    EXPECT_EQ(terminal.power().suspends(), 4);
    take("power");

    // Without an end in sight it lasts until a key is pressed, whenever that is.
    for (int i = 0; i < 20; ++i) {
        std::thread presser([&] {
            const size_t entered = terminal.journal().await("power: suspend", 0, Limit);
            EXPECT_NE(entered, 0U);
            terminal.pressKey(30, true);
        });
        suspend();
        presser.join();
        EXPECT_EQ(take("power"), "suspend, woken by key");
    }
    EXPECT_FALSE(terminal.power().isSuspended());

    // On request it also lasts until the alarm, in scaled time.
    terminal.power().setLasting(true);
    terminal.clock().setSpeed(1000);
    setAlarm(chipTime().value() + 60);
    EXPECT_NEAR(static_cast<double>(suspend()), 60, 50);
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

    EXPECT_EQ(errorOf([&] { return read(first, &event, 15); }), EINVAL);
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

    for (int i = 0; i < 300; ++i)
        terminal.keypad().key(31, true);
    int count = 0;
    while (read(first, &event, sizeof event) == 16)
        ++count;
    EXPECT_EQ(count, 256) << "more than that is lost";

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

TEST_F(DevicesTest, EventDevicesTellTheirTypesAndTheSpeakerSounds) {
    const struct {
        const char* path;
        uint32_t types;
    } devices[] = {
        {Keypad, 1U << 1}, {"/dev/input/event1", 1U << 3}, {"/dev/input/event2", 1U << 18}};
    uint32_t types = 0;
    for (const auto& device : devices) {
        const Opened fd(device.path);
        EXPECT_EQ(ioctl(fd, board::GetEventTypes, &types), 4);
        EXPECT_EQ(types, device.types) << device.path;
        EXPECT_EQ(errorOf([&] { return ioctl(fd, 0x80044521, &types); }), EINVAL);
    }
    EXPECT_EQ(errorOf([] { return open("/dev/input/event3", O_RDWR); }), ENOENT);
    const Opened speaker("/dev/input/event2");
    terminal.speaker().setEventTypes(0);
    EXPECT_EQ(ioctl(speaker, board::GetEventTypes, &types), 4);
    EXPECT_EQ(types, 0U);
    board::InputEvent tone{};
    tone.type = board::InputSound;
    tone.code = board::SoundTone;
    for (const int hertz : {2000, 0}) {
        tone.value = hertz;
        EXPECT_EQ(write(speaker, &tone, sizeof tone), 16);
    }
    EXPECT_EQ(errorOf([&] { return write(speaker, &tone, 15); }), EINVAL);
    EXPECT_EQ(take("speaker"), "tone 2000, silence");
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
    EXPECT_EQ(terminal.card().state(), sim::MemoryCard::State::ReadOnly);
    EXPECT_EQ(textOf("/mnt/mmc/from/outside"), "text");

    const char* const file = "/mnt/mmc/from/outside";
    EXPECT_EQ(errorOf([&] { return open(file, O_RDWR); }), EROFS);
    EXPECT_EQ(errorOf([&] { return open("/mnt/mmc/new", O_CREAT, 0600); }), EROFS);
    EXPECT_EQ(errorOf([&] { return access(file, W_OK); }), EROFS);
    EXPECT_EQ(errorOf([&] { return unlink(file); }), EROFS);
    EXPECT_EQ(errorOf([&] { return mkdir("/mnt/mmc/folder", 0700); }), EROFS);
    EXPECT_FALSE(fopen(file, "a"));
    std::error_code error;
    std::filesystem::remove_all("/mnt/mmc/from", error);
    EXPECT_EQ(error.value(), EROFS) << "by way of an open folder too";

    EXPECT_EQ(mountCard(MS_REMOUNT), 0);
    EXPECT_EQ(mountedAs(), "rw");
    std::ofstream("/mnt/mmc/new") << "written";
    EXPECT_EQ(terminal.card().readFile("new"), "written");
    EXPECT_EQ(std::filesystem::remove_all("/mnt/mmc/from"), 2U);
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

TEST_F(DevicesTest, AttributesAreFilesThatChangeAndGo) {
    const std::string& path = terminal.battery().path();
    EXPECT_EQ(path, board::BatteryVoltagePath);
    EXPECT_EQ(textOf(path), "4200\n");
    EXPECT_EQ(textOf(board::TemperaturePath) + textOf(board::UsbSupplyPath), "2200\n0\n");
    terminal.battery().set(3499);
    EXPECT_EQ(textOf(path), "3499\n");
    terminal.battery().setText("no number");
    EXPECT_EQ(textOf(path), "no number");
    terminal.battery().remove();
    EXPECT_EQ(errorOf([&] { return open(path.c_str(), O_RDONLY); }), ENOENT);
    EXPECT_EQ(errorOf([&] { return open(path.c_str(), O_RDWR | O_CREAT, 0600); }), ENOENT)
        << "only a driver makes one";
    terminal.setPresent(board::AmbientLightPath, false);
    EXPECT_EQ(access(board::AmbientLightPath, F_OK), -1);
    terminal.setPresent(board::AmbientLightPath, true);
    EXPECT_EQ(textOf(board::AmbientLightPath), "20\n");
}

TEST(TerminalFilesTest, TheirFolderGoesWithTheTerminal) {
    std::string folder;
    {
        sim::Terminal terminal;
        folder = terminal.files().hostPath("");
        terminal.files().write("/mnt/mmc/a/b", "");
        mount(Card, MountPoint, "vfat", MS_RDONLY, "");
        terminal.card().writeFile("a/b", "");
        EXPECT_TRUE(std::filesystem::exists(folder));
    }
    EXPECT_FALSE(std::filesystem::exists(folder));
    std::string given = (std::filesystem::temp_directory_path() / "given-XXXXXX").string();
    ASSERT_TRUE(mkdtemp(given.data()));
    sim::Terminal(given).files().write("/release_version", "1");
    EXPECT_EQ(textOf(given + "/release_version"), "1") << "stays";
    std::filesystem::remove_all(given);
}

TEST_F(DevicesTest, TheBarcodeEngineObeysWhileItHasPower) {
    const int line = open("/dev/ttyAT2", O_RDWR | O_NOCTTY);
    termios raw{};
    tcgetattr(line, &raw);
    cfmakeraw(&raw);
    tcsetattr(line, TCSANOW, &raw);
    const Opened control(board::PowerControlPath);
    sim::BarcodeEngine& engine = terminal.barcode();
    const auto command = [=](const char* bytes) {
        write(line, bytes, strlen(bytes));
        tcdrain(line);
    };
    const auto readCode = [=](const std::string& expected) {
        std::string text;
        for (char byte = 0; text.size() < expected.size() && read(line, &byte, 1) == 1;)
            text += byte;
        return text == expected;
    };
    engine.present("123");
    command("\x1BZ\r");
    EXPECT_FALSE(engine.isScanning());
    EXPECT_EQ(take("barcode"), "") << "without power";

    ioctl(control, board::SupplyOn, board::SupplyScanner);
    command("\x1BYM\r\x1B");
    command("Z\r");  // cut in two
    EXPECT_TRUE(readCode("123\r\n"));
    EXPECT_FALSE(engine.isScanning()) << "it has read one";
    EXPECT_EQ(take("barcode"), "command ESC YM CR, command ESC Z CR, read 123");

    command("\x1BZ\r");
    EXPECT_TRUE(engine.isScanning());
    engine.present("456");
    EXPECT_TRUE(readCode("456\r\n"));
    command("\x1BZ\r\x1BY\r");
    EXPECT_FALSE(engine.isScanning());
    engine.present("789");
    engine.takeAway();
    engine.transmit("\x01?");
    EXPECT_TRUE(readCode("\x01?"));
    engine.setSilent(true);
    command("\x1BZ\r");
    EXPECT_FALSE(engine.isScanning());
    engine.setSilent(false);
    command("\x1BZ\r");
    EXPECT_TRUE(engine.isScanning());
    ioctl(control, board::SupplyOff, board::SupplyScanner);
    EXPECT_FALSE(engine.isScanning());
    EXPECT_EQ(take("barcode"), "command ESC Z CR, read 456, command ESC Z CR, command ESC Y CR, "
                               "command ESC Z CR");
    close(line);
}

TEST_F(DevicesTest, TheJournalTellsWhatHappenedInOrder) {
    sim::Journal& journal = terminal.journal();
    std::string watched;
    journal.watch([&](const auto& entry) { watched += entry.text + ";"; });
    terminal.clock().setWall(1000s);
    journal.note("one", "first");
    journal.note("two", "second");
    journal.note("one", "third");
    journal.watch(nullptr);
    EXPECT_EQ(watched, "first;second;third;");
    EXPECT_EQ(journal.history("one"), "first, third");
    EXPECT_EQ(journal.lines(),
              (std::vector<std::string>{"one: first", "two: second", "one: third"}));
    EXPECT_GE(journal.entries()[2].wall, 1000s);
    EXPECT_EQ(journal.await("one: ", 0, 0ms), 1U);
    EXPECT_EQ(journal.await("one: ", 1, 0ms), 3U);
    EXPECT_EQ(journal.await("one: ", 3, 1ms), 0U);
    std::thread noting([&] { journal.note("late", "come"); });
    EXPECT_EQ(journal.await("late: come", 3, Limit), 4U);
    noting.join();
}

}  // namespace
