// The devices of their own: display, speaker, clock and sensors.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>
#include <iterator>

#include "foundation/Number.h"
#include "foundation/Thread.h"
#include "io/FileDescriptor.h"
#include "power/BoardProtocol.h"
#include "power/PowerManager.h"

namespace {

constexpr int FullMillivolts = 4200;
constexpr int EmptyMillivolts = 3500;

constexpr size_t AttributeSize = 16;

/// Reads the start of a sysfs attribute into a text that is always terminated.
bool readAttribute(const char* path, char (&text)[AttributeSize + 1]) {
    const io::FileDescriptor attribute(io::openAtOnce(path, O_RDONLY));
    std::fill(std::begin(text), std::end(text), '\0');
    return attribute.isOpen() && ::read(attribute.get(), text, AttributeSize) >= 0;
}

/// A decimal attribute, limited to what an int holds.
bool readNumber(const char* path, int& value) {
    char text[AttributeSize + 1];
    if (!readAttribute(path, text))
        return false;
    value = foundation::numberIn(text);
    return true;
}

tm brokenDown(const board::ClockTime& time) {
    tm result{};
    result.tm_sec = time.second;
    result.tm_min = time.minute;
    result.tm_hour = time.hour;
    result.tm_mday = time.dayOfMonth;
    result.tm_mon = time.month;
    result.tm_year = time.year;
    result.tm_wday = time.dayOfWeek;
    result.tm_yday = time.dayOfYear;
    result.tm_isdst = time.daylightSaving;
    return result;
}

bool localClockTime(time_t t, board::ClockTime& time) {
    tm local{};
    if (!localtime_r(&t, &local))
        return false;
    time = {local.tm_sec,  local.tm_min,  local.tm_hour, local.tm_mday, local.tm_mon,
            local.tm_year, local.tm_wday, local.tm_yday, local.tm_isdst};
    return true;
}

int smooth(int stored, int reading) {
    constexpr double KeptShare = 0.7;
    constexpr double NewShare = 0.3;
    // In single precision, as it has always been counted: the last digit depends on it.
    const double smoothed =
        KeptShare * static_cast<float>(stored) + NewShare * static_cast<float>(reading);
    return static_cast<int>(std::min<double>(smoothed, INT_MAX));
}

int percentOf(int millivolts) {
    if (millivolts >= FullMillivolts)
        return 100;
    if (millivolts <= EmptyMillivolts)
        return 0;
    return 100 * (millivolts - EmptyMillivolts) / (FullMillivolts - EmptyMillivolts);
}

}  // namespace

bool PowerManager::oledEnable(bool on) {
    return displaySwitch(on, on ? board::DisplayOn : board::DisplayOff);
}

bool PowerManager::oledFreeze(bool freeze) {
    return displaySwitch(freeze, freeze ? board::FreezePicture : board::UnfreezePicture);
}

/// The one memory that enable and freeze share.
bool PowerManager::displaySwitch(bool on, unsigned request) {
    MutexGuard held(displayLock);
    if (displayFlag == on)
        return true;
    const io::FileDescriptor display(io::openAtOnce(board::DisplayPath, O_RDWR | O_NONBLOCK));
    if (!display.isOpen())
        return false;
    const int result = ::ioctl(display.get(), request, 0UL);
    displayFlag = on;
    return result == 0;
}

bool PowerManager::oledSetBrightness(unsigned char level) {
    return displayLevel(board::SetBrightness, level);
}

bool PowerManager::oledFadeBrightness(unsigned char level) {
    return displayLevel(board::FadeBrightness, level);
}

bool PowerManager::displayLevel(unsigned request, unsigned char level) {
    MutexGuard held(displayLock);
    const io::FileDescriptor display(io::openAtOnce(board::DisplayPath, O_RDWR | O_NONBLOCK));
    return display.isOpen() &&
           ::ioctl(display.get(), request, static_cast<unsigned long>(level)) == 0;
}

void PowerManager::oledSetMaxBrightness(int level) { maxBrightness = level; }

int PowerManager::buzzerPlay(int frequency, int durationMs) {
    board::InputEvent tone{{}, board::InputSound, board::SoundTone, frequency};
    [[maybe_unused]] const ssize_t started = ::write(speaker, &tone, sizeof tone);
    Thread::sleep(durationMs);
    tone.value = 0;
    return static_cast<int>(::write(speaker, &tone, sizeof tone));
}

/// Starts a clock that has lost its time, and the system's, at the beginning of 1970.
void PowerManager::repairClock() {
    tm start{};
    start.tm_mday = 1;
    start.tm_year = 70;
    const timespec now{mktime(&start), 0};
    clock_settime(CLOCK_REALTIME, &now);
    rtcSetTime(static_cast<long>(now.tv_sec));
}

bool PowerManager::rtcGetTime(long* t) {
    board::ClockTime time{};
    if (::ioctl(clockDevice, board::ReadTime, &time) < 0)
        return false;
    if (t) {
        tm local = brokenDown(time);
        *t = static_cast<long>(mktime(&local));
    }
    return true;
}

bool PowerManager::rtcSetTime(long t) {
    board::ClockTime time{};
    return localClockTime(t, time) && ::ioctl(clockDevice, board::SetTime, &time) >= 0;
}

bool PowerManager::rtcSetAlarm(int seconds) {
    long now = 0;
    if (!rtcGetTime(&now))
        return false;
    board::WakeAlarm alarm{1, 0, {}};
    const auto wake = static_cast<time_t>(static_cast<long long>(now) + seconds);
    return localClockTime(wake, alarm.time) &&
           ::ioctl(clockDevice, board::SetWakeAlarm, &alarm) >= 0;
}

bool PowerManager::rtcEnableAlarm(bool on) {
    return ::ioctl(clockDevice, on ? board::AlarmInterruptOn : board::AlarmInterruptOff, 0UL) >= 0;
}

bool PowerManager::rtcGetAlarmState() {
    board::ClockInterrupt interrupt = 0;
    return ::read(clockDevice, &interrupt, sizeof interrupt) > 0;
}

bool PowerManager::isUsbConnected() {
    char text[AttributeSize + 1];
    return readAttribute(board::UsbSupplyPath, text) && text[0] == '1';
}

int PowerManager::getAmbientLight() {
    int light = 0;
    return readNumber(board::AmbientLightPath, light) ? light : -1;
}

int PowerManager::getTempReading() {
    int reading = 0;
    return readNumber(board::TemperaturePath, reading) ? reading / 100 : INT_MIN;
}

int PowerManager::getBatteryVoltage() {
    int millivolts = 0;
    if (!readNumber(board::BatteryVoltagePath, millivolts))
        return -1;
    millivolts = std::max(millivolts, -1);
    batteryVoltage = millivolts;
    return millivolts;
}

int PowerManager::getBatteryCapacity(int* voltage) {
    int millivolts = 0;
    if (!readNumber(board::BatteryVoltagePath, millivolts) || millivolts <= 0)
        return -1;
    const int stored = batteryVoltage;
    if (stored >= 0)
        millivolts = smooth(stored, millivolts);
    batteryVoltage = millivolts;
    if (voltage)
        *voltage = millivolts;
    return percentOf(millivolts);
}
