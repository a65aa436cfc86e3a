#pragma once

#include <array>

class Gsm0710Frame;

/// The ring buffer between the radio module's line and the multiplexer engine: octets as they come
/// are poured in, whole and checked 07.10 frames (basic option) are cut out. What is no frame is
/// skipped.
///
/// Belongs to one thread. Nothing is allocated but the frames handed out.
class Gsm0710Buffer {
public:
    /// The frame check sequence over `count` octets, as a sender writes it. 0 when `count` is 0.
    static unsigned char makeCheckSum(const unsigned char* octets, unsigned int count);

    /// The number of octets that fit; 4095 when empty.
    unsigned int getFree() const {
        return readPos > writePos ? readPos - writePos - 1 : readPos - writePos + (Size - 1);
    }

    /// The number of octets stored.
    unsigned int getAllocated() const { return countFrom(readPos); }

    /// Stores as many of the octets as fit, drops the rest, and tells how many were stored.
    unsigned int write(const unsigned char* octets, unsigned int count);

    /// Cuts out the next frame that is complete and valid; the caller deletes it. Null when there
    /// is none yet, or no memory for it.
    ///
    /// Damaged frames are skipped, but for one: the buffer stays at a frame that lacks its closing
    /// flag, whatever follows, until resynchronize() is called.
    Gsm0710Frame* read();

    /// To be called when read() has returned null: gives up a frame that lacks its closing flag, up
    /// to where that flag should stand, and frees the space of flags that count for nothing. True
    /// when read() may find more now; after a false no more is stored than one frame may take.
    bool resynchronize();

    /// The position after `position`.
    static unsigned int advanceBufPtr(unsigned int position) { return advance(position, 1); }

private:
    static constexpr unsigned int Size = 4096;

    struct Header {
        unsigned char address, control, length;
    };

    static unsigned int advance(unsigned int position, unsigned int count) {
        return (position + count) % Size;
    }
    unsigned int countFrom(unsigned int position) const {
        return position <= writePos ? writePos - position : writePos - position + Size;
    }
    bool findFlag();
    Header headerAt(unsigned int position) const;
    bool copyInformation(Gsm0710Frame& frame, unsigned int position, unsigned int length) const;

    unsigned int readPos = 0;  // equal to writePos: empty, so one slot always stays free
    unsigned int writePos = 0;
    std::array<unsigned char, Size> storage{};
};
