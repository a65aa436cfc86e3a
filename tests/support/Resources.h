#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "io/FileDescriptor.h"
#include "support/Eventually.h"

namespace test {

inline long entriesOf(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

/// How many descriptors this process has open.
inline long openDescriptors() { return entriesOf("/proc/self/fd"); }

/// How many of them the programs that it starts get as well.
inline int inheritedDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        const int flags = ::fcntl(fd, F_GETFD);
        count += flags >= 0 && (flags & FD_CLOEXEC) == 0;
    }
    return count;
}

/// How many threads this process has. One that has been joined may count for a moment longer.
inline long runningThreads() { return entriesOf("/proc/self/task"); }

/// What this process holds when one is made.
struct Holdings {
    /// Waits until it is as much again.
    bool areBack() const {
        return soon(
            [this] { return openDescriptors() == descriptors && runningThreads() == threads; });
    }

    const long descriptors = openDescriptors(), threads = runningThreads();
};

/// An empty pipe: reading blocks until something is written.
class Pipe {
public:
    Pipe() {
        int ends[2] = {};
        if (::pipe(ends) != 0)
            throw std::runtime_error("no pipe");
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
    }

    /// Reads one byte. The result of the call.
    ssize_t readByte() {
        char byte = 0;
        return ::read(readEnd.get(), &byte, 1);
    }

private:
    io::FileDescriptor readEnd;
    io::FileDescriptor writeEnd;
};

}  // namespace test
