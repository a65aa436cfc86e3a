#pragma once

#include <cstdint>
#include <sstream>
#include <string>

namespace test {

/// Octets written in hexadecimal, with spaces between them.
inline std::string octets(const std::string& hex) {
    std::istringstream words(hex);
    std::string bytes;
    for (unsigned octet = 0; words >> std::hex >> octet;)
        bytes += static_cast<char>(octet);
    return bytes;
}

inline const unsigned char* unsignedOf(const std::string& bytes) {
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

/// The frame check sequence bit by bit, as the standard describes it.
inline char fcsOf(const std::string& bytes) {
    unsigned fcs = 0xFF;
    for (const char byte : bytes) {
        fcs ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit)
            fcs = (fcs & 1) ? (fcs >> 1) ^ 0xE0 : fcs >> 1;
    }
    return static_cast<char>(0xFF - fcs);
}

constexpr uint8_t Uih = 0xEF;
constexpr uint8_t Ui = 0x03;

/// A frame as the terminal sends it.
inline std::string frameOf(int channel, uint8_t control, const std::string& data) {
    const std::string header{static_cast<char>(channel * 4 + 3), static_cast<char>(control),
                             static_cast<char>(data.size() * 2 + 1)};
    const bool coversData = (control & 0xEF) == Ui;
    return '\xF9' + header + data + fcsOf(coversData ? header + data : header) + '\xF9';
}

}  // namespace test
