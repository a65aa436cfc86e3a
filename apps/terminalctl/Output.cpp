#include "Output.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace ctl {
namespace {

FILE* takeStandardOutput() {
    FILE* const taken = fdopen(dup(STDOUT_FILENO), "w");
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return taken;
}

std::string wordFor(const Record& value) {
    if (value.is_null())
        return "unknown";
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string filled(const char* text, const Record& record) {
    std::string line;
    for (const char* at = text; *at;) {
        const char* const end = *at == '{' ? std::strchr(at, '}') : nullptr;
        if (!end) {
            line += *at++;
            continue;
        }
        line += wordFor(record.value(std::string(at + 1, end), Record()));
        at = end + 1;
    }
    return line;
}

}  // namespace

Output::Output(bool jsonWanted) : asJson(jsonWanted), stream(takeStandardOutput()) {}

void Output::show(const char* text, const Record& record) {
    // A code may hold any bytes, JSON only characters.
    const std::string line = asJson ? record.dump(-1, ' ', false, Record::error_handler_t::replace)
                                    : filled(text, record);
    if (!stream)
        return;
    std::fwrite((line + "\n").data(), 1, line.size() + 1, stream.get());
    std::fflush(stream.get());
}

}  // namespace ctl
