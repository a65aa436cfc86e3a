#pragma once

#include <fcntl.h>
#include <unistd.h>

#include "io/NoCancellation.h"

namespace io {

/// open() whose result no cancellation takes: one that comes as it returns would leave the
/// descriptor to nobody. For what opens without waiting. The programs that the library starts do
/// not get it: a daemon would hold a port, the clock or a file on the card as long as it runs.
inline int openAtOnce(const char* path, int flags) {
    NoCancellation scope;
    return ::open(path, flags | O_CLOEXEC);
}

/// Owns a descriptor of the system and closes it, also when the owning worker is cancelled.
class FileDescriptor {
public:
    explicit FileDescriptor(int ownedDescriptor = -1) : descriptor(ownedDescriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~FileDescriptor() { reset(); }

    int get() const { return descriptor; }
    bool isOpen() const { return descriptor >= 0; }

    /// Gives the descriptor away: the caller closes it.
    int release() {
        const int released = descriptor;
        descriptor = -1;
        return released;
    }

    /// Closes what is owned and owns `newDescriptor` instead.
    void reset(int newDescriptor = -1) {
        if (isOpen()) {
            NoCancellation scope;
            ::close(descriptor);
        }
        descriptor = newDescriptor;
    }

private:
    int descriptor;
};

}  // namespace io
