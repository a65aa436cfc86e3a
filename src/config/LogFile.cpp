#include "config/LogFile.h"

#include <cstring>
#include <ctime>

#include "config/LogMessage.h"

namespace {

constexpr size_t LineOverhead = 64;  // time, level, separators and a tag of usual length

/// The present local time, "n/a" when it cannot be told.
struct TimeStamp {
    TimeStamp() {
        const time_t now = std::time(nullptr);
        tm local{};
        if (!localtime_r(&now, &local) ||
            std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local) == 0)
            std::strcpy(text, "n/a");
    }

    char text[32];
};

const char* letterOf(LogFile::LogLevel level) {
    switch (level) {
    case LogFile::LEVEL_DEBUG: return "D";
    case LogFile::LEVEL_INFO: return "I";
    case LogFile::LEVEL_WARNING: return "W";
    case LogFile::LEVEL_ERROR: return "E";
    case LogFile::LEVEL_CRITICAL: return "C";
    }
    return "";
}

}  // namespace

LogFile::LogFile(char const* filePath) : path(filePath ? filePath : "") {}

bool LogFile::logvPrintf(LogLevel level, char const* tag, char const* format, va_list args) {
    const TimeStamp now;
    const config::LogMessage message = config::formatLogMessage(format, args);
    if (!message)
        return false;
    std::string line;
    line.reserve(LineOverhead + std::strlen(message.get()));
    line.append(now.text).append("|").append(letterOf(level)).append("|");
    line.append(tag ? tag : "").append("|").append(message.get()).append("\r\n");
    config::echoLogMessage(message);
    return config::appendToLog(path, {line.c_str()});
}

bool LogFile::logPrintf(LogLevel level, char const* tag, char const* format, ...) {
    va_list args;
    va_start(args, format);
    const bool logged = logvPrintf(level, tag, format, args);
    va_end(args);
    return logged;
}
