// The commands about the RFID engine, and about what the terminal tells of its engines.

#include <cctype>
#include <optional>
#include <string>

#include "sim/Text.h"
#include "sim/console/Arguments.h"
#include "sim/console/Console.h"

namespace sim {
namespace {

/// Bytes written as pairs of hexadecimal digits.
std::string bytes(const std::string& digits) {
    std::string result;
    for (size_t at = 0; at < digits.size(); at += 2) {
        const std::string pair = digits.substr(at, 2);
        if (pair.size() < 2 || !isxdigit(static_cast<unsigned char>(pair[0])) ||
            !isxdigit(static_cast<unsigned char>(pair[1])))
            throw Wrong{"not bytes in hex: " + digits};
        result += static_cast<char>(std::stoi(pair, nullptr, 16));
    }
    return result;
}

}  // namespace

std::string Console::rfidPresent(const Words& words) {
    RfidTag tag;
    tag.id = bytes(words[1]);
    tag.banks.fill(joined(words, 2));
    terminal.rfid().present(tag);
    return "";
}

std::string Console::rfidRemove(const Words&) {
    terminal.rfid().remove();
    return "";
}

std::string Console::rfidType(const Words& words) {
    static constexpr Named<std::optional<RfidEngine::Type>> Types[] = {
        {"nxp", RfidEngine::Type::Nxp}, {"ams", RfidEngine::Type::Ams}, {"none", std::nullopt}};
    terminal.rfid().fit(choice(words[1], Types));
    return "";
}

std::string Console::scanners(const Words& words) {
    terminal.identity().setScanners(words[1]);
    return "";
}

}  // namespace sim
