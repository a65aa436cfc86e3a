#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

/// What several parts of the simulator do to bytes, words, dates and paths. For it alone.
namespace sim {

constexpr uint8_t byteAt(std::string_view bytes, size_t at) {
    return static_cast<uint8_t>(bytes[at]);
}

/// The lowest 8 bits.
constexpr char toChar(size_t value) { return static_cast<char>(static_cast<uint8_t>(value)); }

/// A byte that has suffered on its way: none that it was.
constexpr char garbledByte(char byte) {
    constexpr char Bits = 0x15;
    return static_cast<char>(byte ^ Bits);
}

/// Two capital digits.
inline std::string hex(uint8_t value) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    return {Digits[value >> 4], Digits[value & 15]};
}

inline std::string upper(std::string text) {
    for (char& letter : text)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
}

/// Everything from the word numbered `from` on, with single blanks.
inline std::string joined(const std::vector<std::string>& words, size_t from) {
    std::string text;
    for (size_t i = from; i < words.size(); ++i)
        text += (text.empty() ? "" : " ") + words[i];
    return text;
}

/// As in "2026-07-01 08:00:00".
inline std::string dateText(const tm& fields) {
    char text[32];
    return {text, strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields)};
}

/// Whether a path is the folder, or leads to something below it.
inline bool liesIn(std::string_view path, std::string_view folder) {
    return path.substr(0, folder.size()) == folder &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace sim
