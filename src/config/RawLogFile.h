#pragma once

#include <cstdarg>
#include <string>

/// A text log of messages as they stand, each with "\r\n" at its end and echoed to standard output.
/// The file is opened for each one, as with LogFile.
///
/// Any thread may log, as with LogFile.
class RawLogFile {
public:
    /// Opens nothing yet.
    explicit RawLogFile(char const* filePath);
    virtual ~RawLogFile() = default;

    /// Formats as printf() does; fails and blocks as LogFile::logvPrintf().
    [[gnu::format(printf, 2, 0)]] bool logvPrintf(char const* format, va_list args);

    /// The same.
    [[gnu::format(printf, 2, 3)]] bool logPrintf(char const* format, ...);

private:
    const std::string path;
};
