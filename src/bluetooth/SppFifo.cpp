#include "bluetooth/SppFifo.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace bluetooth {
namespace {

/// Copies `Part` bytes from either end of the piece, which has at least that many and at most
/// twice as many.
template <size_t Part> void copyEnds(char* to, const char* from, unsigned count) {
    std::memcpy(to, from, Part);
    std::memcpy(to + count - Part, from + count - Part, Part);
}

/// Small pieces are most of the traffic, and not worth a call. The others are not left to memcpy,
/// which compilers expand in place where they know a bound of the length: to string instructions
/// that take longer to begin than these copies take.
inline void copy(char* to, const char* from, unsigned count) {
    if (count == 1)
        *to = *from;
    else if (count > 32)
        std::memmove(to, from, count);
    else if (count >= 16)
        copyEnds<16>(to, from, count);
    else if (count >= 8)
        copyEnds<8>(to, from, count);
    else
        std::copy_n(from, count, to);
}

}  // namespace

// In both operations what does not fit branches off: a minimum, which compilers compute without a
// branch, has everything after it wait for the other thread's index.

unsigned SppFifo::append(const void* data, unsigned len) {
    const unsigned at = writeIndex.load(std::memory_order_relaxed);
    const unsigned used = (at - readIndex.load(std::memory_order_acquire)) % Size;
    if (len > Capacity - used)
        return append(data, Capacity - used);
    const auto* const from = static_cast<const char*>(data);
    const unsigned first = std::min(len, Size - at);
    copy(bytes + at, from, first);
    if (first < len)
        copy(bytes, from + first, len - first);
    // Releases the bytes to the taker, who acquires the index before he copies them.
    writeIndex.store((at + len) % Size, std::memory_order_release);
    return len;
}

unsigned SppFifo::take(void* buf, unsigned len) {
    const unsigned at = readIndex.load(std::memory_order_relaxed);
    const unsigned used = (writeIndex.load(std::memory_order_acquire) - at) % Size;
    if (len > used)
        return take(buf, used);
    auto* const to = static_cast<char*>(buf);
    const unsigned first = std::min(len, Size - at);
    copy(to, bytes + at, first);
    if (first < len)
        copy(to + first, bytes, len - first);
    // Releases the room to the appender: it is not written to before it has been read.
    readIndex.store((at + len) % Size, std::memory_order_release);
    return len;
}

}  // namespace bluetooth
