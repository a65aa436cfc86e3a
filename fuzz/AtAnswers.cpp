// What the radio module's answers are taken for: whatever they hold, a result is in its range and
// stays the same when the module puts blank lines around it.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "gsm/AtAnswer.h"

namespace {

void require(bool holds) {
    if (!holds)
        std::abort();
}

bool isWithin(const std::optional<int>& number, int least, int most) {
    return !number || (*number >= least && *number <= most);
}

void checkClock(const std::string& answer, const std::string& padded) {
    const std::optional<tm> time = at::clockTime(answer);
    const std::optional<tm> again = at::clockTime(padded);
    require(time.has_value() == again.has_value());
    if (!time)
        return;
    // Any date that is accepted exists: the calendar leaves it as it is.
    tm normal = *time;
    normal.tm_isdst = 0;
    normal.tm_gmtoff = 0;
    timegm(&normal);
    require(normal.tm_year == time->tm_year && normal.tm_mon == time->tm_mon &&
            normal.tm_mday == time->tm_mday && normal.tm_hour == time->tm_hour &&
            normal.tm_min == time->tm_min && normal.tm_sec == time->tm_sec &&
            normal.tm_wday == time->tm_wday && normal.tm_yday == time->tm_yday);
    require(time->tm_year >= 100 && time->tm_year < 200);
    require(time->tm_gmtoff >= -96 && time->tm_gmtoff <= 96);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string answer(reinterpret_cast<const char*>(data), size);
    const std::string padded = "\r\n" + answer + "\r\n\r\nOK\r\n";

    const std::optional<int> status = at::registrationStatus(answer);
    require(isWithin(status, 0, 10) && status == at::registrationStatus(padded));

    if (const std::optional<at::Cell> cell = at::servingCell(answer)) {
        require(isWithin(cell->power, -200, 0) && isWithin(cell->channel, 0, 65535) &&
                isWithin(cell->bsic, 0, 99) && isWithin(cell->rxQual, 0, 7));
        require(cell->networkName.find_first_of("\r\n") == std::string::npos);
        require(at::servingCell(padded).has_value());
    }
    checkClock(answer, padded);
    require(at::firstLine(answer).find('\r') == std::string::npos);
    return 0;
}
