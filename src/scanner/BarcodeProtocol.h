#pragma once

/// The barcode engine on its serial line: what it is told, and how fast. A code comes back as plain
/// bytes with white space around it; the engine stops by itself after a good read.
namespace barcode {

constexpr char DevicePath[] = "/dev/ttyAT2";
constexpr unsigned long Baud = 9600;  // 8 bits, no parity, 1 stop bit, no flow control

constexpr char SetUp[] = "\033YM\r";
constexpr char StartScanning[] = "\033Z\r";
constexpr char StopScanning[] = "\033Y\r";

}  // namespace barcode
