#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>

namespace bluetooth {

/// The bytes on their way from a module's driver to the application: one thread appends, one other
/// takes, and neither waits for the other. It keeps the oldest bytes and never allocates.
class SppFifo {
public:
    static constexpr unsigned Size = 1024;
    static constexpr unsigned Capacity = Size - 1;  // one byte stays free: full is not empty

    /// Only the appending thread. How many of the bytes have found room, the first ones.
    unsigned append(const void* data, unsigned len) {
        const unsigned at = writeIndex.load(std::memory_order_relaxed);
        const unsigned used = (at - readIndex.load(std::memory_order_acquire)) % Size;
        const unsigned count = std::min(Capacity - used, len);
        if (count == 1) {
            bytes[at] = *static_cast<const char*>(data);
        } else if (count > 0) {
            const unsigned first = std::min(count, Size - at);
            std::memcpy(bytes + at, data, first);
            if (first < count)
                std::memcpy(bytes, static_cast<const char*>(data) + first, count - first);
        }
        // Releases the bytes to the taker, who acquires the index before he copies them.
        writeIndex.store((at + count) % Size, std::memory_order_release);
        return count;
    }

    /// Only the taking thread. How many bytes it got.
    unsigned take(void* buf, unsigned len) {
        const unsigned at = readIndex.load(std::memory_order_relaxed);
        const unsigned used = (writeIndex.load(std::memory_order_acquire) - at) % Size;
        const unsigned count = std::min(used, len);
        if (count == 1) {
            *static_cast<char*>(buf) = bytes[at];
        } else if (count > 0) {
            const unsigned first = std::min(count, Size - at);
            std::memcpy(buf, bytes + at, first);
            if (first < count)
                std::memcpy(static_cast<char*>(buf) + first, bytes, count - first);
        }
        // Releases the room to the appender: it is not written to before it has been read.
        readIndex.store((at + count) % Size, std::memory_order_release);
        return count;
    }

    /// Only the taking thread: drops what is there.
    void clear() {
        readIndex.store(writeIndex.load(std::memory_order_acquire), std::memory_order_release);
    }

    unsigned count() const {
        return (writeIndex.load(std::memory_order_acquire) -
                readIndex.load(std::memory_order_acquire)) %
               Size;
    }

private:
    char bytes[Size];
    std::atomic<unsigned> readIndex{0};   // written by the taker alone
    std::atomic<unsigned> writeIndex{0};  // written by the appender alone
};

}  // namespace bluetooth
