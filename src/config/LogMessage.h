#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace config {

struct TextFreer {
    void operator()(char* text) const { std::free(text); }
};

/// The formatted message of a log call.
using LogMessage = std::unique_ptr<char, TextFreer>;

/// Null when it cannot be formatted.
[[gnu::format(printf, 1, 0)]] inline LogMessage formatLogMessage(const char* format,
                                                                 va_list arguments) {
    char* text = nullptr;
    if (!format || vasprintf(&text, format, arguments) < 0)
        return nullptr;
    return LogMessage(text);
}

/// What every log shows on standard output, whatever becomes of the file.
inline void echoLogMessage(const LogMessage& message) { std::printf("LOG: %s\n", message.get()); }

}  // namespace config
