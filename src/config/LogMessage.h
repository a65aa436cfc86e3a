#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>

#include "io/StdioFile.h"

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

/// Appends to a log's file, which is open only meanwhile. False when it cannot be opened; an error
/// after that goes unnoticed.
inline bool appendToLog(const std::string& path, std::initializer_list<const char*> texts) {
    StdioFile file;
    if (!file.open(path.c_str(), StdioFile::Append))
        return false;
    for (const char* const text : texts)
        file.writeString(text);
    file.close();
    return true;
}

}  // namespace config
