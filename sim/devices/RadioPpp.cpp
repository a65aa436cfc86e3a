#include "sim/devices/RadioPpp.h"

#include <cstdint>
#include <utility>

namespace sim {
namespace {

constexpr char Flag = '\x7E';
constexpr char Escape = '\x7D';
constexpr char EscapedBit = '\x20';
constexpr size_t LongestFrame = 3100;  // 1500 octets, all of them escaped, and what is around them

// Address, control, and the protocol that controls the link.
constexpr std::string_view LinkControl("\xFF\x03\xC0\x21", 4);
constexpr char TerminateRequest = '\x05';
constexpr char TerminateAck = '\x06';
constexpr std::string_view NoData("\x00\x04", 2);  // the length of a packet that is but a header
constexpr size_t CheckSize = 2;
constexpr uint16_t GoodCheck = 0xF0B8;

/// x^16 + x^12 + x^5 + 1, the lowest bit first.
uint16_t checkSequence(std::string_view octets) {
    constexpr unsigned Polynomial = 0x8408;
    unsigned sum = 0xFFFF;
    for (const char octet : octets) {
        sum ^= static_cast<uint8_t>(octet);
        for (int bit = 0; bit < 8; ++bit)
            sum = (sum >> 1) ^ (sum & 1 ? Polynomial : 0);
    }
    return static_cast<uint16_t>(sum);
}

std::string unescaped(std::string_view octets) {
    std::string plain;
    for (size_t i = 0; i < octets.size(); ++i) {
        const bool isEscaped = octets[i] == Escape && i + 1 < octets.size();
        plain += isEscaped ? static_cast<char>(octets[++i] ^ EscapedBit) : octets[i];
    }
    return plain;
}

/// A packet in a frame of its own. The control characters are escaped: no map has been agreed on.
std::string framed(std::string packet) {
    const auto check = static_cast<uint16_t>(~checkSequence(packet));
    packet += static_cast<char>(check & 0xFF);
    packet += static_cast<char>(check >> 8);
    std::string frame{Flag};
    for (const char octet : packet) {
        const bool isEscaped =
            static_cast<uint8_t>(octet) < 0x20 || octet == Escape || octet == Flag;
        frame += isEscaped ? std::string{Escape, static_cast<char>(octet ^ EscapedBit)}
                           : std::string{octet};
    }
    return frame + Flag;
}

}  // namespace

std::string RadioPpp::answerTo(std::string_view bytes) {
    const size_t identifierAt = LinkControl.size() + 1;
    std::string answer;
    for (const char byte : bytes) {
        if (byte != Flag) {
            if (pending.size() < LongestFrame)
                pending += byte;
            continue;
        }
        const std::string frame = unescaped(std::exchange(pending, {}));
        if (frame.size() < identifierAt + 1 + NoData.size() + CheckSize ||
            frame.compare(0, LinkControl.size(), LinkControl) != 0 ||
            frame[identifierAt - 1] != TerminateRequest || checkSequence(frame) != GoodCheck)
            continue;
        answer = framed(std::string(LinkControl) + TerminateAck + frame[identifierAt] +
                        std::string(NoData));
    }
    return answer;
}

}  // namespace sim
