#include "gsm/Gsm0710Buffer.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "gsm/Gsm0710Frame.h"
#include "gsm/Gsm0710Protocol.h"

namespace {

using gsm0710::HeaderSize;

constexpr unsigned int TrailerSize = 2;  // FCS and the closing flag

constexpr std::array<unsigned char, 256> makeFcsTable() {
    std::array<unsigned char, 256> table{};
    for (unsigned int octet = 0; octet < table.size(); ++octet) {
        unsigned int fcs = octet;
        for (int bit = 0; bit < 8; ++bit)
            fcs = (fcs & 1U) ? (fcs >> 1U) ^ gsm0710::FcsPolynomial : fcs >> 1U;
        table[octet] = static_cast<unsigned char>(fcs);
    }
    return table;
}

constexpr std::array<unsigned char, 256> FcsTable = makeFcsTable();

constexpr unsigned char step(unsigned char fcs, unsigned char octet) {
    return FcsTable[static_cast<unsigned char>(fcs ^ octet)];
}

unsigned char checkSum(unsigned char fcs, const unsigned char* octets, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i)
        fcs = step(fcs, octets[i]);
    return fcs;
}

}  // namespace

unsigned char Gsm0710Buffer::makeCheckSum(const unsigned char* octets, unsigned int count) {
    return static_cast<unsigned char>(0xFF - checkSum(gsm0710::FcsStart, octets, count));
}

unsigned int Gsm0710Buffer::write(const unsigned char* octets, unsigned int count) {
    const unsigned int stored = std::min(count, getFree());
    if (stored == 0)
        return 0;
    const unsigned int first = std::min(stored, Size - writePos);
    std::copy_n(octets, first, &storage[writePos]);
    if (first < stored)
        std::copy_n(octets + first, stored - first, storage.data());
    writePos = advance(writePos, stored);
    return stored;
}

// The helpers of read() are inline, so that a shared library does not call them through its table.

/// Throws away what stands before the next flag. False when there is none.
inline bool Gsm0710Buffer::findFlag() {
    while (readPos != writePos) {
        if (storage[readPos] == gsm0710::Flag)
            return true;
        const unsigned int end = readPos < writePos ? writePos : Size;
        const void* const flag = std::memchr(&storage[readPos], gsm0710::Flag, end - readPos);
        if (flag) {
            readPos =
                static_cast<unsigned int>(static_cast<const unsigned char*>(flag) - storage.data());
            return true;
        }
        readPos = end % Size;
    }
    return false;
}

inline Gsm0710Buffer::Header Gsm0710Buffer::headerAt(unsigned int position) const {
    return {storage[position], storage[advance(position, 1)], storage[advance(position, 2)]};
}

/// False when there is no memory for the information field: its octets then fail the checks.
inline bool Gsm0710Buffer::copyInformation(Gsm0710Frame& frame, unsigned int position,
                                           unsigned int length) const {
    frame.data.reset(new (std::nothrow) unsigned char[length]);
    if (!frame.data)
        return false;
    frame.length = length;
    const unsigned int first = std::min(length, Size - position);
    // Not memcpy(): gcc knows the greatest length and puts a slow string instruction in its place.
    unsigned char* const rest = std::copy_n(&storage[position], first, frame.data.get());
    if (first < length)
        std::copy_n(storage.data(), length - first, rest);
    return true;
}

Gsm0710Frame* Gsm0710Buffer::read() {
    // readPos stays at the first flag until the frame is taken or given up.
    while (findFlag()) {
        unsigned int position = readPos;
        do
            position = advanceBufPtr(position);
        while (position != writePos && storage[position] == gsm0710::Flag);
        const unsigned int stored = countFrom(position);
        if (stored < HeaderSize + TrailerSize)
            return nullptr;

        const Header header = headerAt(position);
        if (!(header.length & gsm0710::ExtensionBit)) {
            readPos = advance(position, HeaderSize - 1);  // the next flag may be this very octet
            continue;
        }
        const unsigned int length = header.length >> gsm0710::LengthShift;
        if (stored < HeaderSize + length + TrailerSize)
            return nullptr;

        std::unique_ptr<Gsm0710Frame> frame(new (std::nothrow) Gsm0710Frame);
        if (!frame)
            return nullptr;
        frame->channel = static_cast<unsigned char>(header.address >> gsm0710::AddressShift);
        frame->control = header.control;
        position = advance(position, HeaderSize);
        unsigned char fcs =
            step(step(step(gsm0710::FcsStart, header.address), header.control), header.length);
        if (length > 0 && copyInformation(*frame, position, length)) {
            position = advance(position, length);
            if (frame->matchControl(gsm0710::Ui))
                fcs = checkSum(fcs, frame->data.get(), length);
        }

        if (step(fcs, storage[position]) != gsm0710::FcsGood) {
            readPos = position;
            continue;
        }
        position = advanceBufPtr(position);
        if (storage[position] != gsm0710::Flag)
            return nullptr;
        readPos = advanceBufPtr(position);
        return frame.release();
    }
    return nullptr;
}

bool Gsm0710Buffer::resynchronize() {
    if (!findFlag())
        return false;
    unsigned int header = advanceBufPtr(readPos);
    while (header != writePos && storage[header] == gsm0710::Flag) {
        readPos = header;
        header = advanceBufPtr(header);
    }
    const unsigned int stored = countFrom(header);
    if (stored < HeaderSize + TrailerSize)
        return false;
    const unsigned int length = headerAt(header).length >> gsm0710::LengthShift;
    if (stored < HeaderSize + length + TrailerSize)
        return false;
    // Complete, and read() did not skip it as damaged: what it lacks is the closing flag.
    readPos = advance(header, HeaderSize + length + 1);
    return true;
}
