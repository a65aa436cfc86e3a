#pragma once

#include <cstdarg>
#include <string>

/// A text log of one structured line per call, echoed to standard output:
///
///     2011-03-04T05:06:07+0100|I|tag|message
///
/// with local time, or "n/a", and "\r\n" at the end. The file is opened for each line, so that the
/// log survives a loss of power and the removal of the medium between lines. It grows until
/// somebody removes it.
///
/// Any thread may log: nothing is shared but the path, and a line that fits a stream's buffer
/// (BUFSIZ) is appended whole.
class LogFile {
public:
    /// One letter each; any other value is written as none.
    enum LogLevel : int {
        LEVEL_DEBUG = 0,    ///< "D"
        LEVEL_INFO = 1,     ///< "I"
        LEVEL_WARNING = 2,  ///< "W"
        LEVEL_ERROR = 3,    ///< "E"
        LEVEL_CRITICAL = 4  ///< "C"
    };

    /// Opens nothing yet.
    explicit LogFile(char const* filePath);
    virtual ~LogFile() = default;

    /// Formats as printf() does. False when that fails, and then nothing is echoed either, or when
    /// the file cannot be opened, as on a card that is missing or cannot be written. An error after
    /// that goes unnoticed. Blocks as the file system does.
    [[gnu::format(printf, 4, 0)]] bool logvPrintf(LogLevel level, char const* tag,
                                                  char const* format, va_list args);

    /// The same.
    [[gnu::format(printf, 4, 5)]] bool logPrintf(LogLevel level, char const* tag,
                                                 char const* format, ...);

private:
    const std::string path;
};
