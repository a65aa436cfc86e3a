#include "sim/devices/BarcodeEngine.h"

#include "scanner/BarcodeProtocol.h"

namespace sim {
namespace {

constexpr size_t LongestCommand = 8;

/// Control characters by name, for the journal.
std::string printable(const std::string& bytes) {
    static constexpr char Hex[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (byte == '\x1B')
            text += "ESC ";
        else if (byte == '\r')
            text += " CR";
        else if (value < ' ' || value > '~')
            text += std::string("\\x") + Hex[value >> 4] + Hex[value & 15];
        else
            text += byte;
    }
    return text;
}

}  // namespace

BarcodeEngine::BarcodeEngine(Journal& eventJournal, SerialLine& serialLine)
    : journal(eventJournal), line(serialLine) {}

void BarcodeEngine::setPowered(bool powered) {
    const std::lock_guard<std::mutex> held(mutex);
    isPowered = powered;
    scanning = false;
    pending.clear();
}

void BarcodeEngine::present(const std::string& newCode) {
    const std::lock_guard<std::mutex> held(mutex);
    code = newCode;
    readCode();
}

void BarcodeEngine::takeAway() {
    const std::lock_guard<std::mutex> held(mutex);
    code.clear();
}

void BarcodeEngine::transmit(std::string_view bytes, Nanoseconds delay) { line.send(bytes, delay); }

void BarcodeEngine::setSilent(bool silent) {
    const std::lock_guard<std::mutex> held(mutex);
    isSilent = silent;
}

bool BarcodeEngine::isScanning() const {
    const std::lock_guard<std::mutex> held(mutex);
    return scanning;
}

void BarcodeEngine::received(std::string_view bytes) {
    const std::lock_guard<std::mutex> held(mutex);
    if (!isPowered || isSilent)
        return;
    for (const char byte : bytes) {
        pending += byte;
        if (byte != '\r' && pending.size() < LongestCommand)
            continue;
        obey(pending);
        pending.clear();
    }
}

void BarcodeEngine::obey(const std::string& command) {
    journal.note("barcode", "command " + printable(command));
    if (command == barcode::StartScanning) {
        scanning = true;
        readCode();
    } else if (command == barcode::StopScanning) {
        scanning = false;
    }
}

void BarcodeEngine::readCode() {
    if (!scanning || code.empty() || !isPowered || isSilent)
        return;
    scanning = false;
    journal.note("barcode", "read " + printable(code));
    line.send(code + "\r\n");
    code.clear();
}

}  // namespace sim
