#pragma once

/// The packets of the Bluetooth module with the binary command interface, as they stand on its
/// line: start, type, opcode, payload length (low byte first), checksum, payload, end.
namespace lmx {

constexpr char DevicePath[] = "/dev/ttyS0";
constexpr unsigned long Baud = 115200;  // 8 bits, no parity, 1 stop bit, RTS/CTS

constexpr unsigned char Start = 0x02;
constexpr unsigned char End = 0x03;

constexpr unsigned HeaderSize = 6;    // of a packet, the start byte included
constexpr unsigned MaxPayload = 333;  // of a request

enum PacketType : unsigned char { Request = 'R', Confirmation = 'C', Indication = 'i' };

/// Requests, and confirmations of the same opcode. What the steps of the set-up mean is the
/// module's own business.
enum Opcode : unsigned char {
    SetName = 0x04,        // length, then the name with its NUL
    ReadAddress = 0x05,    // confirmed with the status and 6 bytes, the last one first
    EnableChip = 0x06,     // on, on
    Connect = 0x0A,        // port, address, remote port
    Disconnect = 0x0D,     // port
    SendData = 0x0F,       // port, length (low byte first), data
    SetUpStep1 = 0x17,     // 0
    SetOpenPorts = 0x22,   // a bit for each port, 4 bytes
    ReadVersion = 0x26,    // answered by an indication
    SetUpStep5 = 0x28,     // SetUpStep5Value
    EnableService = 0x29,  // on, handle
    SetUpStep3 = 0x2A,
    AddService =
        0x31,  // slot, ServiceClass, size (low byte first), record; confirmed with a handle
    SetUpStep4 = 0x4A,  // 0
    SetUpStep2 = 0x4E,  // 0
    AnswerPin = 0x75    // address, length, PIN
};

enum IndicationCode : unsigned char {
    Connected = 0x0B,     // status, address, port, remote port
    Called = 0x0C,        // address, port
    Disconnected = 0x0E,  // reason, port
    DataArrived = 0x10,   // port, length (low byte first), data
    Version = '%',        // length, text
    PinRequested = 0x75   // address
};

constexpr unsigned char Success = 0;  // the status, which begins a confirmation

constexpr unsigned char SetUpStep5Value[] = {0x14, 0x01, 0x08};
constexpr unsigned char ServiceClass[] = {0x22, 0x44};

constexpr unsigned AddressSize = 6;
constexpr unsigned MaxData = 128;  // in one SendData

// Payload sizes and places of the fields in them.
constexpr unsigned ConnectedSize = 9;
constexpr unsigned ConnectedPort = 7;
constexpr unsigned CalledSize = 7;
constexpr unsigned CalledPort = 6;
constexpr unsigned DisconnectedSize = 2;
constexpr unsigned DisconnectedPort = 1;
constexpr unsigned DataHeaderSize = 3;  // of SendData and DataArrived alike

}  // namespace lmx
