#include "Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

namespace ctl {
namespace {

FILE* takeStandardOutput() {
    // The daemons that the library starts may outlive this program: they do not hold it open.
    FILE* const taken = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w");
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return taken;
}

std::string wordFor(const Value& value) {
    if (const bool* const flag = std::get_if<bool>(&value))
        return *flag ? "yes" : "no";
    if (const int64_t* const number = std::get_if<int64_t>(&value))
        return std::to_string(*number);
    const std::string* const text = std::get_if<std::string>(&value);
    return text ? *text : "unknown";
}

std::string filled(const char* text, const Record& record) {
    std::string line;
    for (const char* at = text; *at;) {
        const char* const end = *at == '{' ? std::strchr(at, '}') : nullptr;
        if (!end) {
            line += *at++;
            continue;
        }
        const std::string name(at + 1, end);
        const auto member = std::find_if(record.begin(), record.end(),
                                         [&](const auto& each) { return each.first == name; });
        line += wordFor(member == record.end() ? Value() : member->second);
        at = end + 1;
    }
    return line;
}

std::string jsonOf(const Record& record) {
    nlohmann::ordered_json object;
    for (const auto& [name, value] : record)
        std::visit([&member = object[name]](const auto& each) { member = each; }, value);
    // A code may hold any bytes, JSON only characters.
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

Output::Output(bool jsonWanted) : asJson(jsonWanted), stream(takeStandardOutput()) {}

void Output::show(const char* text, const Record& record) {
    const std::string line = (asJson ? jsonOf(record) : filled(text, record)) + "\n";
    const bool isShown = stream &&
                         std::fwrite(line.data(), 1, line.size(), stream.get()) == line.size() &&
                         std::fflush(stream.get()) == 0;
    if (!isShown && (!stream || errno != EPIPE))
        failed = true;
}

}  // namespace ctl
