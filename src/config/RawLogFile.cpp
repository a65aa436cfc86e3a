#include "config/RawLogFile.h"

#include "config/LogMessage.h"

RawLogFile::RawLogFile(char const* filePath) : path(filePath ? filePath : "") {}

bool RawLogFile::logvPrintf(char const* format, va_list args) {
    const config::LogMessage message = config::formatLogMessage(format, args);
    if (!message)
        return false;
    config::echoLogMessage(message);
    return config::appendToLog(path, {message.get(), "\r\n"});
}

bool RawLogFile::logPrintf(char const* format, ...) {
    va_list args;
    va_start(args, format);
    const bool logged = logvPrintf(format, args);
    va_end(args);
    return logged;
}
