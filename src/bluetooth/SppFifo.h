#pragma once

#include <atomic>

namespace bluetooth {

/// The bytes on their way from a module's driver to the application: one thread appends, one other
/// takes, and neither waits for the other. Several may append in turn when a lock orders them, as
/// the registry's does. It keeps the oldest bytes and never allocates.
class SppFifo {
public:
    static constexpr unsigned Size = 1024;
    static constexpr unsigned Capacity = Size - 1;  // one byte stays free: full is not empty

    /// Only the appending thread. How many of the bytes have found room, the first ones.
    unsigned append(const void* data, unsigned len);

    /// Only the taking thread. How many bytes it got.
    unsigned take(void* buf, unsigned len);

    /// Only the taking thread: drops what is there.
    void clear() {
        readIndex.store(writeIndex.load(std::memory_order_acquire), std::memory_order_release);
    }

    /// Only these two threads; for another one it may be a number that never was.
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
