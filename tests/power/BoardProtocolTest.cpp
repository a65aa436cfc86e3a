#include "power/BoardProtocol.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "power/SystemEvents.h"

namespace {

// The numbers as the drivers and the applications know them. They stand here a second time on
// purpose: library and simulated devices share the header and would agree on a wrong one.
TEST(BoardProtocolTest, NumbersAreTheDriversOwn) {
    constexpr struct {
        unsigned ours, theirs;
    } Numbers[] = {
        // Control lines and supplies
        {board::LineLow, 0xED00},
        {board::LineHigh, 0xED01},
        {board::ReadLine, 0xED10},
        {board::SetKeyboardLight, 0xED24},
        {board::FadeKeyboardLight, 0xED25},
        {board::SupplyOn, 0xED30},
        {board::SupplyOff, 0xED31},
        {board::LineFirstLed, 0},
        {board::LineSecondLed, 1},
        {board::LineScannerControl, 2},
        {board::LineGprsPowerStatus, 3},
        {board::LineMpci3V3, 4},
        {board::LineBluetoothEnable, 4},
        {board::LineGprsControl, 5},
        {board::LineGprsReset, 6},
        {board::LineBluetoothReset, 6},
        {board::LineGprsPowerKey, 7},
        {board::LineMpciRadio, 7},
        {board::LineGprsDtr, 8},
        {board::LineScannerAim, 9},
        {board::SupplyGprs, 1},
        {board::SupplyBluetooth, 1},
        {board::SupplyScanner, 2},
        // Display
        {board::DisplayOff, 0xD300},
        {board::DisplayOn, 0xD301},
        {board::FreezePicture, 0xD302},
        {board::UnfreezePicture, 0xD303},
        {board::SetBrightness, 0xD310},
        {board::FadeBrightness, 0xD311},
        // Clock
        {board::ReadTime, 0x80247009},
        {board::SetTime, 0x4024700A},
        {board::SetWakeAlarm, 0x4028700F},
        {board::AlarmInterruptOn, 0x7001},
        {board::AlarmInterruptOff, 0x7002},
        {sizeof(board::ClockInterrupt), 4},
        {sizeof(board::ClockTime), 36},
        {offsetof(board::ClockTime, minute), 4},
        {offsetof(board::ClockTime, hour), 8},
        {offsetof(board::ClockTime, dayOfMonth), 12},
        {offsetof(board::ClockTime, month), 16},
        {offsetof(board::ClockTime, year), 20},
        {offsetof(board::ClockTime, dayOfWeek), 24},
        {offsetof(board::ClockTime, dayOfYear), 28},
        {offsetof(board::ClockTime, daylightSaving), 32},
        {sizeof(board::WakeAlarm), 40},
        {offsetof(board::WakeAlarm, pending), 1},
        {offsetof(board::WakeAlarm, time), 4},
        // Keypad and speaker
        {board::InputDevices, 32},
        {board::GetEventTypes, 0x80044520},
        {board::InputKey, 1},
        {board::InputSound, 18},
        {board::SoundTone, 2},
        {sizeof(board::InputEvent), 16},
        {offsetof(board::InputEvent, type), 8},
        {offsetof(board::InputEvent, code), 10},
        {offsetof(board::InputEvent, value), 12},
        // System events
        {events::BatteryCapacity, 16},
        {events::BatteryEmpty, 17},
        {events::ShutdownRequest, 31},
        {events::Temperature, 32},
        {events::ScannedCode, 256},
    };
    int number = 0;
    for (const auto& known : Numbers)
        EXPECT_EQ(known.ours, known.theirs) << "number " << number++;
}

TEST(BoardProtocolTest, PathsAreTheDriversOwn) {
    EXPECT_STREQ(board::PowerControlPath, "/dev/pwrctrl");
    EXPECT_STREQ(board::DisplayPath, "/dev/oled");
    EXPECT_STREQ(board::ClockPath, "/dev/rtc");
    EXPECT_STREQ(board::InputPathFormat, "/dev/input/event%d");
    EXPECT_STREQ(board::UsbSupplyPath, "/sys/power/usb_vbus");
    EXPECT_STREQ(board::AmbientLightPath,
                 "/sys/devices/platform/i2c-gpio/i2c-0/0-0044/illum1_input");
    EXPECT_STREQ(board::TemperaturePath, "/sys/devices/platform/i2c-gpio/i2c-0/0-0048/temp1_input");
    EXPECT_STREQ(board::BatteryVoltagePath, "/sys/devices/platform/atmel_spi.1/spi1.3/in_input0");
    EXPECT_STREQ(board::SuspendPath, "/sys/power/state");
    EXPECT_STREQ(board::SuspendToRam, "mem\n");
}

}  // namespace
