#include "gsm/Gsm0710FrameQueue.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "gsm/Gsm0710Buffer.h"

namespace gsm0710 {

/// `count` frames in a row, each with the next `length` octets.
inline void FrameQueue::encode(unsigned char channel, unsigned char control,
                               const unsigned char* data, unsigned int length, unsigned int count) {
    const std::array<unsigned char, 1 + HeaderSize> start{Flag, addressOctet(channel), control,
                                                          lengthOctet(length)};
    const std::array<unsigned char, 2> finish{Gsm0710Buffer::makeCheckSum(&start[1], HeaderSize),
                                              Flag};
    unsigned char* at = &octets[end];
    for (unsigned int i = 0; i < count; ++i) {
        at = std::copy(start.begin(), start.end(), at);
        at = std::copy_n(data + i * length, length, at);
        at = std::copy(finish.begin(), finish.end(), at);
    }
    end += count * (length + Overhead);
}

bool FrameQueue::add(unsigned char channel, unsigned char control, const unsigned char* data,
                     unsigned int length) {
    const unsigned int size = encodedSize(length);
    if (size > Capacity - (end - begin))
        return false;
    if (size > Capacity - end) {
        std::copy(octets.begin() + begin, octets.begin() + end, octets.begin());
        end -= begin;
        begin = 0;
    }
    const unsigned int whole = length / MaxSentLength;
    const unsigned int rest = length % MaxSentLength;
    if (whole > 0)
        encode(channel, control, data, MaxSentLength, whole);
    if (rest > 0 || length == 0)
        encode(channel, control, data + (length - rest), rest, 1);
    return true;
}

bool FrameQueue::flush(int line) {
    while (!isEmpty()) {
        const ssize_t taken = ::write(line, &octets[begin], end - begin);
        if (taken > 0)
            begin += static_cast<unsigned int>(taken);
        else if (taken < 0 && errno == EAGAIN)
            return true;
        else if (taken == 0 || errno != EINTR)
            return false;
    }
    clear();
    return true;
}

}  // namespace gsm0710
