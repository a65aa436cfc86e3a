#pragma once

#include <array>

#include "gsm/Gsm0710Protocol.h"

namespace gsm0710 {

// Octets of the frames that the terminal sends, and of the messages in them.

constexpr unsigned char addressOctet(int channel) {
    return static_cast<unsigned char>(channel << AddressShift | CommandResponseBit | ExtensionBit);
}

constexpr unsigned char lengthOctet(unsigned int length) {
    return static_cast<unsigned char>(length << LengthShift | ExtensionBit);
}

/// The control octet of a frame that asks for an answer, or is one.
constexpr unsigned char withPollFinal(FrameType type) { return type | PollFinal; }

/// Encoded frames on their way to a line that does not always take them at once. A frame is taken
/// whole or not at all and leaves whole and in order, in as many pieces as the line takes it.
///
/// Belongs to one thread at a time. Nothing blocks: who adds frames looks for room first.
class FrameQueue {
public:
    /// The room for what `length` octets become, in frames of at most MaxSentLength octets each. No
    /// octets are one empty frame.
    static constexpr unsigned int encodedSize(unsigned int length) {
        const unsigned int whole = (length + MaxSentLength - 1) / MaxSentLength;
        return length + (whole > 0 ? whole : 1) * Overhead;
    }

    /// Encodes the octets into frames of one type. False, with nothing added, when not all fit.
    bool add(unsigned char channel, unsigned char control, const unsigned char* data,
             unsigned int length);

    /// Hands what is queued to a non-blocking descriptor, with one system call if it takes all.
    /// False when the line refuses for another reason than having no room; what it has not taken
    /// stays queued.
    bool flush(int line);

    bool isEmpty() const { return begin == end; }
    void clear() { begin = end = 0; }

    /// What comes of one read of a virtual port, and half as much for answers on top of it.
    static constexpr unsigned int Capacity = 1024;

private:
    static constexpr unsigned int Overhead = HeaderSize + 3;  // flag, header, FCS, flag

    void encode(unsigned char channel, unsigned char control, const unsigned char* data,
                unsigned int length, unsigned int count);

    std::array<unsigned char, Capacity> octets{};
    unsigned int begin = 0;
    unsigned int end = 0;
};

}  // namespace gsm0710
