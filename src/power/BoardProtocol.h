#pragma once

#include <cstdint>

/// What the board's drivers understand: device paths, request numbers, line and supply numbers, and
/// the records they exchange. The numbers are the drivers' own and the same on every host.
namespace board {

// ---- "/dev/pwrctrl": supplies, control lines, keyboard light. Every argument is a plain integer.

constexpr char PowerControlPath[] = "/dev/pwrctrl";

enum PowerControlRequest : unsigned {
    LineLow = 0xED00,            // drives a line to level 0
    LineHigh = 0xED01,           // drives a line to level 1
    ReadLine = 0xED10,           // the result is the line's level
    SetKeyboardLight = 0xED24,   // 0 to 255
    FadeKeyboardLight = 0xED25,  // 0 to 255
    SupplyOn = 0xED30,
    SupplyOff = 0xED31
};

// Modules share some lines: each use has a name of its own.
enum Line : unsigned {
    LineFirstLed = 0,   // low: lit
    LineSecondLed = 1,  // low: lit
    LineScannerControl = 2,
    LineGprsPowerStatus = 3,
    LineMpci3V3 = 4,
    LineBluetoothEnable = 4,
    LineGprsControl = 5,  // low: forced off
    LineGprsReset = 6,
    LineBluetoothReset = 6,
    LineGprsPowerKey = 7,
    LineMpciRadio = 7,
    LineGprsDtr = 8,    // low: raised
    LineScannerAim = 9  // low: lit
};

enum Supply : unsigned { SupplyGprs = 1, SupplyBluetooth = 1, SupplyScanner = 2 };

// ---- "/dev/oled": the display. Opened for each request.

constexpr char DisplayPath[] = "/dev/oled";

enum DisplayRequest : unsigned {
    DisplayOff = 0xD300,
    DisplayOn = 0xD301,
    FreezePicture = 0xD302,
    UnfreezePicture = 0xD303,
    SetBrightness = 0xD310,  // 0 to 255
    FadeBrightness = 0xD311  // 0 to 255
};

// ---- "/dev/rtc": the clock, which keeps local time.

constexpr char ClockPath[] = "/dev/rtc";

enum ClockRequest : unsigned {
    ReadTime = 0x80247009,      // ClockTime*
    SetTime = 0x4024700A,       // const ClockTime*
    SetWakeAlarm = 0x4028700F,  // const WakeAlarm*
    AlarmInterruptOn = 0x7001,
    AlarmInterruptOff = 0x7002
};

/// Broken-down time as the clock's driver has it.
struct ClockTime {
    int32_t second;
    int32_t minute;
    int32_t hour;
    int32_t dayOfMonth;
    int32_t month;  // from 0
    int32_t year;   // from 1900
    int32_t dayOfWeek;
    int32_t dayOfYear;
    int32_t daylightSaving;
};
static_assert(sizeof(ClockTime) == 0x24);

struct WakeAlarm {
    uint8_t enabled;
    uint8_t pending;
    ClockTime time;
};
static_assert(sizeof(WakeAlarm) == 0x28);

/// One read() of the clock's descriptor: succeeds once after each interrupt.
using ClockInterrupt = uint32_t;

// ---- "/dev/input/event%d": keypad and speaker.

constexpr char InputPathFormat[] = "/dev/input/event%d";
constexpr int InputDevices = 32;

/// Fills a 32-bit map of the event types that the device supports.
constexpr unsigned GetEventTypes = 0x80044520;

enum InputType : uint16_t { InputKey = 1, InputSound = 0x12 };
enum SoundCode : uint16_t { SoundTone = 2 };  // the value is in hertz, 0 for silence

struct InputEvent {
    uint8_t time[8];  // filled in by the driver
    uint16_t type;
    uint16_t code;
    int32_t value;
};
static_assert(sizeof(InputEvent) == 16);

// ---- sysfs attributes, each a decimal number in text.

constexpr char UsbSupplyPath[] = "/sys/power/usb_vbus";  // '1' while a cable supplies power
constexpr char AmbientLightPath[] = "/sys/devices/platform/i2c-gpio/i2c-0/0-0044/illum1_input";
constexpr char TemperaturePath[] = "/sys/devices/platform/i2c-gpio/i2c-0/0-0048/temp1_input";
constexpr char BatteryVoltagePath[] =
    "/sys/devices/platform/atmel_spi.1/spi1.3/in_input0";  // millivolts
constexpr char SuspendPath[] = "/sys/power/state";
constexpr char SuspendToRam[] = "mem\n";  // a write of it returns after the wake-up

}  // namespace board
