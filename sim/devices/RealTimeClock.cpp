#include "sim/devices/RealTimeClock.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "power/BoardProtocol.h"
#include "sim/Text.h"

namespace sim {
namespace {

/// Local time, counted as if it were UTC.
Nanoseconds localTime() {
    const Nanoseconds wall = Clock::get().wall();
    const time_t now = toTimespec(wall).tv_sec;
    tm local{};
    localtime_r(&now, &local);
    return wall + std::chrono::seconds(timegm(&local) - now);
}

board::ClockTime toClockTime(Nanoseconds time) {
    const time_t seconds = toTimespec(time).tv_sec;
    tm fields{};
    gmtime_r(&seconds, &fields);
    return {fields.tm_sec,  fields.tm_min,  fields.tm_hour,
            fields.tm_mday, fields.tm_mon,  fields.tm_year,
            fields.tm_wday, fields.tm_yday, 0};
}

/// Nothing for fields that are no moment from 1970 on, such as a 13th month.
std::optional<Nanoseconds> fromClockTime(const board::ClockTime& time) {
    tm fields{};
    fields.tm_sec = time.second;
    fields.tm_min = time.minute;
    fields.tm_hour = time.hour;
    fields.tm_mday = time.dayOfMonth;
    fields.tm_mon = time.month;
    fields.tm_year = time.year;
    const time_t seconds = timegm(&fields);
    const bool isMoment = fields.tm_sec == time.second && fields.tm_min == time.minute &&
                          fields.tm_hour == time.hour && fields.tm_mday == time.dayOfMonth &&
                          fields.tm_mon == time.month && fields.tm_year == time.year;
    if (!isMoment || seconds < 0)
        return std::nullopt;
    return std::chrono::seconds(seconds);
}

std::string textOf(Nanoseconds time) {
    const time_t seconds = toTimespec(time).tv_sec;
    tm fields{};
    gmtime_r(&seconds, &fields);
    return dateText(fields);
}

}  // namespace

RealTimeClock::RealTimeClock(Journal& eventJournal)
    : journal(eventJournal), offset(localTime() - Clock::get().boot()) {}

void RealTimeClock::loseTime() {
    const std::lock_guard<std::mutex> held(mutex);
    isValid = false;
}

long RealTimeClock::seconds() const {
    const std::lock_guard<std::mutex> held(mutex);
    return static_cast<long>(toTimespec(now()).tv_sec);
}

Nanoseconds RealTimeClock::untilAlarm() const {
    const std::lock_guard<std::mutex> held(mutex);
    return alarm ? std::max(*alarm - now(), Nanoseconds(0)) : Nanoseconds::max();
}

void RealTimeClock::checkAlarm() {
    if (alarm && *alarm <= now()) {
        alarm.reset();
        interrupted = true;
    }
}

bool RealTimeClock::ringIfDue() {
    const std::lock_guard<std::mutex> held(mutex);
    checkAlarm();
    return interrupted;
}

ssize_t RealTimeClock::read(void* buffer, size_t size) {
    const std::lock_guard<std::mutex> held(mutex);
    constexpr board::ClockInterrupt AlarmInterrupt = 0x1A0;  // one interrupt, of the alarm
    if (size < sizeof AlarmInterrupt)
        return failWith(EINVAL);
    checkAlarm();
    if (!interrupted)
        return failWith(EAGAIN);
    interrupted = false;
    memcpy(buffer, &AlarmInterrupt, sizeof AlarmInterrupt);
    return sizeof AlarmInterrupt;
}

int RealTimeClock::ioctl(unsigned long request, void* argument) {
    const std::lock_guard<std::mutex> held(mutex);
    switch (request) {
    case board::ReadTime: return readTime(argument);
    case board::SetTime: return setTime(argument);
    case board::SetWakeAlarm: return setAlarm(argument);
    case board::AlarmInterruptOn: journal.note("rtc", "alarm on"); return 0;
    case board::AlarmInterruptOff:
        journal.note("rtc", "alarm off");
        alarm.reset();
        return 0;
    default: return failWith(ENOTTY);
    }
}

int RealTimeClock::readTime(void* argument) const {
    if (!isValid)
        return failWith(EINVAL);
    const board::ClockTime time = toClockTime(now());
    memcpy(argument, &time, sizeof time);
    return 0;
}

int RealTimeClock::setTime(const void* argument) {
    board::ClockTime fields{};
    memcpy(&fields, argument, sizeof fields);
    const auto time = fromClockTime(fields);
    if (!time)
        return failWith(EINVAL);
    offset = *time - Clock::get().boot();
    isValid = true;
    journal.note("rtc", "set " + textOf(*time));
    return 0;
}

int RealTimeClock::setAlarm(const void* argument) {
    board::WakeAlarm wake{};
    memcpy(&wake, argument, sizeof wake);
    const auto time = fromClockTime(wake.time);
    if (wake.enabled && !time)
        return failWith(EINVAL);
    alarm = wake.enabled ? time : std::nullopt;
    if (!alarm)
        return 0;
    // A whole second of the chip has begun already: the distance that was asked for rounds up.
    const auto left = std::chrono::ceil<std::chrono::seconds>(*alarm - now());
    journal.note("rtc", "alarm in " + std::to_string(left.count()) + " s");
    return 0;
}

}  // namespace sim
