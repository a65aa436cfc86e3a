#pragma once

/// The text-command Bluetooth module on its serial line: how fast, and its frames. In text mode the
/// line carries command lines and their answers; in MUX mode everything travels in frames of start
/// byte, link, flags, length, payload and trailer, where the trailer is the link's complement.
namespace iwrap {

constexpr unsigned long Baud = 115200;  // 8 bits, no parity, 1 stop bit, no flow control

constexpr unsigned char StartByte = 0xBF;
constexpr unsigned char CommandLink = 0xFF;  // commands and their answers
constexpr unsigned char HighestLink = 8;     // data of serial links from 0 on
constexpr unsigned char Complement = 0xFF;   // link XOR this: the trailer

enum FrameOffset : unsigned { LinkOffset = 1, LengthOffset = 3, PayloadOffset = 4 };
constexpr unsigned FrameOverhead = 5;  // of a frame beside its payload
constexpr unsigned LongestPayload = 255;

}  // namespace iwrap
