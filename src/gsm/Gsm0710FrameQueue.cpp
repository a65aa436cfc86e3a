#include "gsm/Gsm0710FrameQueue.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "gsm/Gsm0710Buffer.h"

namespace gsm0710 {

inline void FrameQueue::encode(unsigned char channel, unsigned char control,
                               const unsigned char* data, unsigned int length) {
    unsigned char* at = &octets[end];
    *at++ = Flag;
    const unsigned char* const header = at;
    *at++ = static_cast<unsigned char>(channel << AddressShift | CommandResponseBit | ExtensionBit);
    *at++ = control;
    *at++ = static_cast<unsigned char>(length << LengthShift | ExtensionBit);
    at = std::copy_n(data, length, at);
    *at++ = Gsm0710Buffer::makeCheckSum(header, HeaderSize);
    *at = Flag;
    end += length + Overhead;
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
    do {
        const unsigned int piece = std::min(length, MaxSentLength);
        encode(channel, control, data, piece);
        data += piece;
        length -= piece;
    } while (length > 0);
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
