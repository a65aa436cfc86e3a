#pragma once

/// The numbers of the basic option of 3GPP TS 27.010 (GSM 07.10), as they stand on the line.
namespace gsm0710 {

constexpr unsigned char Flag = 0xF9;

constexpr unsigned int HeaderSize = 3;  // address, control, length: what the FCS covers

// ---- Address, length and message type octets share the bits of their low end.

constexpr unsigned char ExtensionBit = 0x01;        // EA: the last octet of its field
constexpr unsigned char CommandResponseBit = 0x02;  // C/R: set in what the terminal sends
constexpr unsigned char AddressShift = 2;           // the channel (DLCI) stands above both
constexpr unsigned char LengthShift = 1;            // a length has no C/R bit

constexpr unsigned char ControlChannel = 0;

// ---- Control octet: the frame type, without the poll/final bit.

constexpr unsigned char PollFinal = 0x10;

enum FrameType : unsigned char {
    Sabm = 0x2F,  // opens a channel
    Ua = 0x63,    // agrees to SABM or DISC
    Dm = 0x0F,    // refuses, or is not connected
    Disc = 0x43,  // closes a channel
    Uih = 0xEF,   // data, FCS over the header only
    Ui = 0x03     // data, FCS over the data as well
};

// ---- Frame check sequence.

constexpr unsigned char FcsPolynomial = 0xE0;  // x^8 + x^2 + x + 1, least significant bit first
constexpr unsigned char FcsStart = 0xFF;
constexpr unsigned char FcsGood = 0xCF;  // the register after a good frame and its FCS

// ---- Information field.

constexpr unsigned int MaxLength = 127;     // that one length octet can tell
constexpr unsigned int MaxSentLength = 31;  // N1 of the basic option: what we send at most

// ---- Messages on the control channel: the type octet, C/R bit clear.

enum MessageType : unsigned char {
    NonSupported = 0x11,
    Test = 0x21,
    CloseDown = 0xC1,
    ModemStatus = 0xE1
};

// V.24 signals of a modem status message.
enum Signal : unsigned char { ReadyToCommunicate = 0x04, ReadyToReceive = 0x08 };

// ---- AT commands before the switch to multiplexing.

constexpr char ProbeCommand[] = "AT\r";
constexpr char MultiplexCommand[] = "AT+CMUX=0\r";
constexpr char PositiveAnswer[] = "OK\r\n";

}  // namespace gsm0710
