#include "power/BoardProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "power/SystemEvents.h"

namespace {

using testing::ElementsAre;
using Numbers = std::vector<unsigned>;

// The numbers as the drivers and the applications know them. They stand here a second time on
// purpose: library and simulated devices share the header and would agree on a wrong one.

TEST(BoardProtocolTest, RequestNumbersAreTheDriversOwn) {
    EXPECT_THAT((Numbers{board::LineLow, board::LineHigh, board::ReadLine, board::SetKeyboardLight,
                         board::FadeKeyboardLight, board::SupplyOn, board::SupplyOff}),
                ElementsAre(0xED00, 0xED01, 0xED10, 0xED24, 0xED25, 0xED30, 0xED31));
    EXPECT_THAT((Numbers{board::DisplayOff, board::DisplayOn, board::FreezePicture,
                         board::UnfreezePicture, board::SetBrightness, board::FadeBrightness}),
                ElementsAre(0xD300, 0xD301, 0xD302, 0xD303, 0xD310, 0xD311));
    EXPECT_THAT((Numbers{board::ReadTime, board::SetTime, board::SetWakeAlarm,
                         board::AlarmInterruptOn, board::AlarmInterruptOff}),
                ElementsAre(0x80247009, 0x4024700A, 0x4028700F, 0x7001, 0x7002));
    EXPECT_THAT((Numbers{board::GetEventTypes, board::InputDevices, board::InputKey,
                         board::InputSound, board::SoundTone}),
                ElementsAre(0x80044520, 32, 1, 0x12, 2));
    EXPECT_THAT((Numbers{events::BatteryCapacity, events::BatteryEmpty, events::ShutdownRequest,
                         events::Temperature, events::ScannedCode}),
                ElementsAre(16, 17, 31, 32, 256));
}

TEST(BoardProtocolTest, LinesAndSuppliesAreWiredAsOnTheBoard) {
    EXPECT_THAT((Numbers{board::LineFirstLed, board::LineSecondLed, board::LineScannerControl,
                         board::LineGprsPowerStatus, board::LineMpci3V3, board::LineGprsControl,
                         board::LineGprsReset, board::LineGprsPowerKey, board::LineGprsDtr,
                         board::LineScannerAim}),
                ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    // Shared wires
    EXPECT_THAT(
        (Numbers{board::LineBluetoothEnable, board::LineBluetoothReset, board::LineMpciRadio}),
        ElementsAre(4, 6, 7));
    EXPECT_THAT((Numbers{board::SupplyGprs, board::SupplyBluetooth, board::SupplyScanner}),
                ElementsAre(1, 1, 2));
}

TEST(BoardProtocolTest, RecordsAreLaidOutAsInA32BitKernel) {
    using board::ClockTime;
    using board::InputEvent;
    using board::WakeAlarm;
    EXPECT_THAT((Numbers{offsetof(ClockTime, second), offsetof(ClockTime, minute),
                         offsetof(ClockTime, hour), offsetof(ClockTime, dayOfMonth),
                         offsetof(ClockTime, month), offsetof(ClockTime, year),
                         offsetof(ClockTime, dayOfWeek), offsetof(ClockTime, dayOfYear),
                         offsetof(ClockTime, daylightSaving), sizeof(ClockTime)}),
                ElementsAre(0, 4, 8, 12, 16, 20, 24, 28, 32, 36));
    EXPECT_THAT((Numbers{offsetof(WakeAlarm, enabled), offsetof(WakeAlarm, pending),
                         offsetof(WakeAlarm, time), sizeof(WakeAlarm)}),
                ElementsAre(0, 1, 4, 40));
    EXPECT_THAT((Numbers{offsetof(InputEvent, type), offsetof(InputEvent, code),
                         offsetof(InputEvent, value), sizeof(InputEvent)}),
                ElementsAre(8, 10, 12, 16));
    EXPECT_EQ(sizeof(board::ClockInterrupt), 4U);
}

}  // namespace
