// The module's clock.

#include <cstdio>

#include "gsm/AtAnswer.h"
#include "gsm/GsmModule.h"

namespace {

constexpr int ClockMs = 1000;

}  // namespace

bool GsmModule::getRTC(tm* time) {
    if (!time)
        return false;
    const MutexGuard held(mutex);
    std::string answer;
    if (exchange("AT+CCLK?", ClockMs, &answer) != ModemPort::Ok)
        return false;
    const std::optional<tm> read = at::clockTime(answer);
    if (read)
        *time = *read;
    return read.has_value();
}

bool GsmModule::setRTC(tm* time) {
    if (!time)
        return false;
    const MutexGuard held(mutex);
    const auto number = [](long value) { return static_cast<long long>(value); };
    char command[200];
    // The zone brings its own sign when it is negative, and keeps the one in front.
    std::snprintf(command, sizeof command, "AT+CCLK=\"%02lld/%02lld/%02d,%02d:%02d:%02d%c%02lld\"",
                  number(time->tm_year) - 100, number(time->tm_mon) + 1, time->tm_mday,
                  time->tm_hour, time->tm_min, time->tm_sec, time->tm_gmtoff < 0 ? '-' : '+',
                  number(time->tm_gmtoff));
    return succeeds(command, ClockMs);
}
