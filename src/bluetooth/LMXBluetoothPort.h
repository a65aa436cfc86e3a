#pragma once

#include "io/SerialPort.h"

/// The serial line to a Bluetooth module that speaks binary packets (bluetooth/LmxProtocol.h).
///
/// The module's driver owns it. One thread may read packets while another writes them; packets of
/// several writers must not meet, for each is written in parts.
class LMXBluetoothPort : public SerialPort {
public:
    /// Results of getPkt().
    enum PacketError : int {
        PacketMissing = -1,  ///< none has begun in time, or it has not been completed
        PacketTooLong = -2,  ///< its payload stays unread
        PacketUnended = -3,  ///< the payload is not followed by the end byte
        PacketDamaged = -4   ///< the checksum is wrong
    };

    LMXBluetoothPort() = default;

    /// Opens the device; whether it could shows in the first exchange.
    explicit LMXBluetoothPort(const char* device) { open(device); }

    /// Writes one request whose payload is `data1` followed by `data2`; null is empty. False when
    /// the payload is longer than 333 bytes, with nothing written, or when a write moves less than
    /// it was given, with the rest unwritten. Blocks while the line takes nothing.
    bool sendCmd(unsigned char opcode, const void* data1, unsigned int len1, const void* data2,
                 unsigned int len2);

    /// Reads one packet: its payload and the end byte go to `buf`, its type and opcode to where
    /// they are wanted. The payload's length, or a PacketError; then `buf` may have been written
    /// to, and the next call finds the next packet.
    ///
    /// A packet begins with the start byte if that is the first one read or follows an end byte.
    /// Takes up to `timeoutMs` for the first byte and as long again to find one behind it, and up
    /// to `timeoutMs` for each byte of it. A payload fits if `bufSize` is more than its length.
    int getPkt(unsigned char* type, unsigned char* opcode, void* buf, unsigned int bufSize,
               int timeoutMs);

private:
    bool findStart(int timeoutMs);
    unsigned int receive(unsigned char* bytes, unsigned int size, int timeoutMs);
};
