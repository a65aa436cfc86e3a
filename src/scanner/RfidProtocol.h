#pragma once

#include <cstddef>

/// The RFID engine behind its driver: one read() of the device is one whole read of a tag. The
/// driver answers with a frame:
///
///     status | identifier's length I | data's length D, low byte, high byte | I bytes | D bytes
namespace rfid {

constexpr char NxpPath[] = "/dev/rfid_nxp";  // reader type 0
constexpr char AmsPath[] = "/dev/rfid_ams";  // reader type 1

// Every argument is a plain integer.
enum Request : unsigned {
    AbortRead = 0xEF01,     // 0; ends the read in progress
    SelectBlock = 0xEF03,   // type 0: one more block to read
    PrepareRead = 0xEF06,   // type 0: 0; not used
    SelectBank = 0xF001,    // type 1: a memory bank of the tag, 0 to 3
    SetAreaFirst = 0xF002,  // type 1
    SetAreaLast = 0xF003    // type 1
};

constexpr unsigned char TagRead = 0;  // the status of an answer with a tag; others are failures

constexpr size_t HeaderSize = 4;
constexpr size_t MaxAnswer = 2047;
constexpr size_t MaxIdentifier = 255;

}  // namespace rfid
