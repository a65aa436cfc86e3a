#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>

namespace io {

/// The number in a daemon's pid file; 0 when there is none, or none that an int holds.
inline pid_t readProcessId(FILE* pidFile) {
    char text[32] = {};
    [[maybe_unused]] const size_t length = std::fread(text, 1, sizeof text - 1, pidFile);
    const long long number = std::strtoll(text, nullptr, 10);
    return number < INT_MIN || number > INT_MAX ? 0 : static_cast<pid_t>(number);
}

/// Whether a number that nobody vouches for can be a daemon's: 0 and less would signal whole groups
/// of processes, 1 is init.
inline bool isOtherProcess(pid_t pid) {
    constexpr pid_t Init = 1;
    return pid > Init && pid != ::getpid();
}

}  // namespace io
