#include "bluetooth/SppFifo.h"

#include <algorithm>
#include <cstring>

namespace bluetooth {
namespace {

/// Not memcpy, which compilers expand in place where they know a bound of the length: to string
/// instructions that take longer to begin than these copies take.
inline void copy(char* to, const char* from, unsigned count) {
    if (count == 1)
        *to = *from;
    else
        std::memmove(to, from, count);
}

}  // namespace

unsigned SppFifo::append(const void* data, unsigned len) {
    const unsigned at = writeIndex.load(std::memory_order_relaxed);
    const unsigned used = (at - readIndex.load(std::memory_order_acquire)) % Size;
    const unsigned count = std::min(Capacity - used, len);
    if (count == 0)
        return 0;
    const auto* const from = static_cast<const char*>(data);
    const unsigned first = std::min(count, Size - at);
    copy(bytes + at, from, first);
    if (first < count)
        copy(bytes, from + first, count - first);
    // Releases the bytes to the taker, who acquires the index before he copies them.
    writeIndex.store((at + count) % Size, std::memory_order_release);
    return count;
}

unsigned SppFifo::take(void* buf, unsigned len) {
    const unsigned at = readIndex.load(std::memory_order_relaxed);
    const unsigned used = (writeIndex.load(std::memory_order_acquire) - at) % Size;
    const unsigned count = std::min(used, len);
    if (count == 0)
        return 0;
    auto* const to = static_cast<char*>(buf);
    const unsigned first = std::min(count, Size - at);
    copy(to, bytes + at, first);
    if (first < count)
        copy(to + first, bytes, count - first);
    // Releases the room to the appender: it is not written to before it has been read.
    readIndex.store((at + count) % Size, std::memory_order_release);
    return count;
}

}  // namespace bluetooth
