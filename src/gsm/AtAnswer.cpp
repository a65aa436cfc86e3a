#include "gsm/AtAnswer.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "foundation/Number.h"

namespace at {

namespace {

constexpr std::string_view Blanks = " \t";
constexpr std::string_view LineEnds = "\r\n";

void skipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(Blanks), text.size()));
}

bool skip(std::string_view& text, std::string_view expected) {
    skipBlanks(text);
    if (text.substr(0, expected.size()) != expected)
        return false;
    text.remove_prefix(expected.size());
    return true;
}

std::string_view trimmed(std::string_view text) {
    skipBlanks(text);
    return text.substr(0, text.find_last_not_of(Blanks) + 1);
}

/// Takes a decimal number from the front, with blanks before it and no sign but a minus. Nothing is
/// taken when it is outside the limits.
bool takeNumber(std::string_view& text, int least, int most, int& number) {
    std::string_view rest = text;
    skipBlanks(rest);
    int taken = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), taken);
    if (error != std::errc() || taken < least || taken > most)
        return false;
    rest.remove_prefix(static_cast<size_t>(end - rest.data()));
    number = taken;
    text = rest;
    return true;
}

/// What stands behind `prefix` in each line that begins with it: calls `use(rest)` until it returns
/// true. True when it did.
template <class Use> bool anyLine(std::string_view answer, std::string_view prefix, Use use) {
    while (!answer.empty()) {
        const size_t length = std::min(answer.find_first_of(LineEnds), answer.size());
        std::string_view line = answer.substr(0, length);
        answer.remove_prefix(std::min(length + 1, answer.size()));
        if (skip(line, prefix) && use(trimmed(line)))
            return true;
    }
    return false;
}

constexpr std::string_view CellFields[] = {
    "Cc:", "BSIC:", "RxQual:", "LAC:", "Id:", "ARFCN:", "PWR:", "TA:"};

/// Where a field's name stands at the beginning of a word.
size_t findField(std::string_view text, std::string_view name) {
    size_t position = text.find(name);
    while (position != std::string_view::npos && position != 0 &&
           std::isalnum(static_cast<unsigned char>(text[position - 1])))
        position = text.find(name, position + 1);
    return position;
}

std::optional<int> fieldOf(std::string_view fields, std::string_view name, int least, int most) {
    const size_t position = findField(fields, name);
    if (position == std::string_view::npos)
        return std::nullopt;
    fields.remove_prefix(position + name.size());
    int number = 0;
    return takeNumber(fields, least, most, number) ? std::optional<int>(number) : std::nullopt;
}

/// Days of the year before a month (0 to 12) of 2000 to 2099.
int daysBefore(int month, int year) {
    constexpr int Days[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
    return Days[month] + (month > 1 && year % 4 == 0 ? 1 : 0);
}

/// Completes the day of the week and of the year. False when the month has no such day.
bool completeDate(tm& time) {
    constexpr int Saturday = 6;  // 1 January 2000
    const int year = time.tm_year - 100;
    const int before = daysBefore(time.tm_mon, year);
    if (time.tm_mday > daysBefore(time.tm_mon + 1, year) - before)
        return false;
    const int leapDays = (year + 3) / 4;  // of the years before
    time.tm_yday = before + time.tm_mday - 1;
    time.tm_wday = (Saturday + year * 365 + leapDays + time.tm_yday) % 7;
    return true;
}

bool takeTime(std::string_view text, tm& time) {
    constexpr int MostZone = 96;
    skip(text, "\"");
    int year = 0;
    int month = 0;
    if (!takeNumber(text, 0, 99, year) || !skip(text, "/") || !takeNumber(text, 1, 12, month) ||
        !skip(text, "/") || !takeNumber(text, 1, 31, time.tm_mday) || !skip(text, ",") ||
        !takeNumber(text, 0, 23, time.tm_hour) || !skip(text, ":") ||
        !takeNumber(text, 0, 59, time.tm_min) || !skip(text, ":") ||
        !takeNumber(text, 0, 59, time.tm_sec))
        return false;
    time.tm_year = 100 + year;
    time.tm_mon = month - 1;
    time.tm_isdst = -1;
    int zone = 0;
    if (skip(text, "+")) {
        if (!takeNumber(text, 0, MostZone, zone))
            return false;
    } else if (!text.empty() && text.front() == '-' && !takeNumber(text, -MostZone, 0, zone)) {
        return false;
    }
    time.tm_gmtoff = zone;
    skip(text, "\"");
    return trimmed(text).empty() && completeDate(time);
}

}  // namespace

std::optional<int> registrationStatus(std::string_view answer) {
    int status = 0;
    const bool found = anyLine(answer, "+CREG:", [&status](std::string_view line) {
        int mode = 0;
        return takeNumber(line, 0, 9, mode) && skip(line, ",") && takeNumber(line, 0, 10, status) &&
               (trimmed(line).empty() || skip(line, ","));
    });
    return found ? std::optional<int>(status) : std::nullopt;
}

std::optional<Cell> servingCell(std::string_view answer) {
    constexpr std::string_view Prefix = "#MONI:";
    const size_t start = findField(answer, Prefix);
    if (start == std::string_view::npos)
        return std::nullopt;
    answer.remove_prefix(start + Prefix.size());

    // The name ends where the fields begin, so that nothing in it is taken for one.
    size_t nameLength = std::min(answer.find_first_of(LineEnds), answer.size());
    for (const std::string_view field : CellFields)
        nameLength = std::min(nameLength, findField(answer, field));
    std::string_view name = trimmed(answer.substr(0, nameLength));
    if (name.size() >= 2 && name.front() == '"' && name.back() == '"')
        name = trimmed(name.substr(1, name.size() - 2));

    const std::string_view fields = answer.substr(nameLength);
    Cell cell;
    cell.networkName = name;
    cell.bsic = fieldOf(fields, "BSIC:", 0, 99);
    cell.rxQual = fieldOf(fields, "RxQual:", 0, 7);
    cell.channel = fieldOf(fields, "ARFCN:", 0, 65535);
    cell.power = fieldOf(fields, "PWR:", -200, 0);
    return cell;
}

std::optional<tm> clockTime(std::string_view answer) {
    tm time{};
    const bool found = anyLine(answer, "+CCLK:", [&time](std::string_view line) {
        time = {};
        return takeTime(line, time);
    });
    return found ? std::optional<tm>(time) : std::nullopt;
}

int secondNumber(const std::string& answer) {
    const size_t comma = answer.find(',');
    return comma == std::string::npos ? 0 : foundation::numberIn(answer.c_str() + comma + 1);
}

std::string firstLine(std::string_view answer) {
    const std::string_view line = answer.substr(0, answer.find('\r'));
    return line == "OK" ? std::string() : std::string(line);
}

}  // namespace at
