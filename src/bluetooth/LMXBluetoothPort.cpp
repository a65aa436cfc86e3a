#include "bluetooth/LMXBluetoothPort.h"

#include <chrono>

#include "bluetooth/LmxProtocol.h"

namespace {

using Clock = std::chrono::steady_clock;

// The header after the start byte.
enum HeaderByte { TypeByte, OpcodeByte, LengthLow, LengthHigh, ChecksumByte, RestOfHeader };

/// The high byte of the length is no part of it, on either side of the line.
constexpr unsigned char checksum(unsigned type, unsigned opcode, unsigned lengthLow) {
    return static_cast<unsigned char>(type + opcode + lengthLow);
}

bool hasPassed(int timeoutMs, Clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count() >
           timeoutMs;
}

}  // namespace

bool LMXBluetoothPort::sendCmd(unsigned char opcode, const void* data1, unsigned int len1,
                               const void* data2, unsigned int len2) {
    if (!data1)
        len1 = 0;
    if (!data2)
        len2 = 0;
    if (len1 > lmx::MaxPayload || len2 > lmx::MaxPayload - len1)
        return false;
    const unsigned length = len1 + len2;
    const unsigned char header[lmx::HeaderSize] = {lmx::Start,
                                                   lmx::Request,
                                                   opcode,
                                                   static_cast<unsigned char>(length),
                                                   static_cast<unsigned char>(length >> 8),
                                                   checksum(lmx::Request, opcode, length)};
    const struct {
        const void* bytes;
        unsigned size;
    } parts[] = {{header, sizeof header}, {data1, len1}, {data2, len2}, {&lmx::End, 1}};
    for (const auto& part : parts) {
        if (part.size > 0 && writeData(part.bytes, part.size) != static_cast<int>(part.size))
            return false;
    }
    return true;
}

int LMXBluetoothPort::getPkt(unsigned char* type, unsigned char* opcode, void* buf,
                             unsigned int bufSize, int timeoutMs) {
    unsigned char header[RestOfHeader];
    if (!findStart(timeoutMs) || receive(header, RestOfHeader, timeoutMs) < RestOfHeader)
        return PacketMissing;
    const unsigned length = header[LengthLow] + 256U * header[LengthHigh];
    if (length + 1 > bufSize)
        return PacketTooLong;
    auto* const payload = static_cast<unsigned char*>(buf);
    if (receive(payload, length + 1, timeoutMs) < length + 1)
        return PacketMissing;
    if (payload[length] != lmx::End)
        return PacketUnended;
    if (header[ChecksumByte] != checksum(header[TypeByte], header[OpcodeByte], header[LengthLow]))
        return PacketDamaged;
    if (type)
        *type = header[TypeByte];
    if (opcode)
        *opcode = header[OpcodeByte];
    return static_cast<int>(length);
}

bool LMXBluetoothPort::findStart(int timeoutMs) {
    const Clock::time_point begin = Clock::now();
    unsigned char before = lmx::End;  // the first byte read needs none before it
    for (;;) {
        unsigned char byte = 0;
        if (!isInputPending(timeoutMs) || readData(&byte, 1) != 1)
            return false;
        if (byte == lmx::Start && before == lmx::End)
            return true;
        before = byte;
        if (hasPassed(timeoutMs, begin))
            return false;
    }
}

/// How many bytes have come, each within the time-out; less than `size` if one has not, or if the
/// line has failed.
unsigned int LMXBluetoothPort::receive(unsigned char* bytes, unsigned int size, int timeoutMs) {
    unsigned count = 0;
    while (count < size && isInputPending(timeoutMs)) {
        const int read = readData(bytes + count, size - count);
        if (read < 1)
            break;
        count += static_cast<unsigned>(read);
    }
    return count;
}
