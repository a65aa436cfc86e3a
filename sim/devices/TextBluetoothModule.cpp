// The module's power, its line, frames and links.

#include "sim/devices/TextBluetoothModule.h"

#include <algorithm>
#include <utility>

#include "bluetooth/IwrapProtocol.h"
#include "sim/Text.h"

namespace sim {
namespace {

using std::chrono::milliseconds;

constexpr size_t LongestLine = 512;

constexpr char Banner[] = "Serial port module 2.1.0\nREADY.";

std::string frame(uint8_t link, std::string_view payload) {
    std::string bytes;
    bytes += static_cast<char>(iwrap::StartByte);
    bytes += static_cast<char>(link);
    bytes += '\0';
    bytes += static_cast<char>(payload.size());
    bytes += payload;
    bytes += static_cast<char>(link ^ iwrap::Complement);
    return bytes;
}

}  // namespace

TextBluetoothModule::TextBluetoothModule(Journal& eventJournal, SerialLine& moduleLine,
                                         BluetoothAir& bluetoothAir)
    : journal(eventJournal), serialLine(moduleLine), air(bluetoothAir),
      bootTime(milliseconds(1000)), answerTime(milliseconds(10)), inquiryTime(milliseconds(1000)) {
    air.addModule(*this);
}

void TextBluetoothModule::setSupply(bool nowOn) {
    const Lock held(mutex);
    isSupplied = nowOn;
    powerChanged();
}

void TextBluetoothModule::setEnable(bool level) {
    const Lock held(mutex);
    isEnabled = level;
    powerChanged();
}

void TextBluetoothModule::setReset(bool level) {
    const Lock held(mutex);
    isHeldInReset = level;
    powerChanged();
}

void TextBluetoothModule::powerChanged() {
    stop();
    if (isSupplied && isEnabled && !isHeldInReset)
        start();
}

void TextBluetoothModule::start() {
    at(Clock::get().monotonic() + bootTime, [this] {
        ready = true;
        journal.note("bt", "ready");
        sendLines(Banner);
    });
}

void TextBluetoothModule::stop() {
    ++session;
    if (ready)
        journal.note("bt", "off");
    ready = multiplexing = false;
    isEchoing = true;
    pending.clear();
    busyUntil = Nanoseconds(0);
    airLinks.clear();
    air.closeAll(*this);
}

/// Runs unless the module has lost its power or been reset until then. On the line's thread.
void TextBluetoothModule::at(Nanoseconds due, std::function<void()> action) {
    const unsigned begun = session;
    serialLine.at(due, [this, begun, action = std::move(action)] {
        const Lock held(mutex);
        if (session == begun)
            action();
    });
}

void TextBluetoothModule::setBootTime(Nanoseconds time) {
    const Lock held(mutex);
    bootTime = time;
}

void TextBluetoothModule::onCommand(const std::string& command, Reply reply, int times) {
    const Lock held(mutex);
    rules.push_back({command, std::move(reply), times});
}

void TextBluetoothModule::clearHooks() {
    const Lock held(mutex);
    rules.clear();
}

void TextBluetoothModule::setAnswerTime(Nanoseconds time) {
    const Lock held(mutex);
    answerTime = time;
}

void TextBluetoothModule::setInquiryTime(Nanoseconds time) {
    const Lock held(mutex);
    inquiryTime = time;
}

void TextBluetoothModule::setSilent(bool silent) {
    const Lock held(mutex);
    isSilent = silent;
}

bool TextBluetoothModule::isReady() const {
    const Lock held(mutex);
    return ready;
}

bool TextBluetoothModule::isMultiplexing() const {
    const Lock held(mutex);
    return multiplexing;
}

std::string TextBluetoothModule::pin() const {
    const Lock held(mutex);
    return callPin;
}

std::string TextBluetoothModule::accessCode() const {
    const Lock held(mutex);
    return lap;
}

std::vector<int> TextBluetoothModule::links() const {
    const Lock held(mutex);
    std::vector<int> numbers;
    for (const auto& [number, link] : airLinks)
        numbers.push_back(number);
    return numbers;
}

void TextBluetoothModule::sayUnasked(const std::string& line) {
    const Lock held(mutex);
    if (ready)
        sendLines(line);
}

void TextBluetoothModule::sendFrame(uint8_t link, std::string_view payload) {
    const Lock held(mutex);
    send(frame(link, payload));
}

void TextBluetoothModule::send(const std::string& bytes) {
    if (!isSilent)
        serialLine.send(bytes);
}

/// Each line in a frame of its own, all at once.
std::string TextBluetoothModule::lineBytes(const std::string& lines) const {
    std::string bytes;
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = std::min(lines.find('\n', begin), lines.size());
        const std::string line = lines.substr(begin, end - begin) + "\r\n";
        bytes += multiplexing ? frame(iwrap::CommandLink, line) : line;
        begin = end + 1;
    }
    return bytes;
}

void TextBluetoothModule::received(std::string_view bytes) {
    const Lock held(mutex);
    if (!ready || isSilent)
        return;
    while (!bytes.empty() && !multiplexing) {
        const size_t end = bytes.find('\r');
        pending += bytes.substr(0, std::min(end, LongestLine));
        if (end == std::string_view::npos)
            return;
        bytes.remove_prefix(end + 1);
        execute(std::exchange(pending, {}));
    }
    pending += bytes;
    while (multiplexing) {
        const size_t size = takeFrame(pending);
        if (size == 0)
            return;
        pending.erase(0, size);
    }
}

/// How many bytes are done with; 0 when the frame is still to come in full.
size_t TextBluetoothModule::takeFrame(std::string_view bytes) {
    if (bytes.empty())
        return 0;
    if (byteAt(bytes, 0) != iwrap::StartByte)
        return 1;
    if (bytes.size() < iwrap::PayloadOffset)
        return 0;
    const uint8_t link = byteAt(bytes, iwrap::LinkOffset);
    const size_t size = byteAt(bytes, iwrap::LengthOffset);
    if (bytes.size() < iwrap::FrameOverhead + size)
        return 0;
    if (byteAt(bytes, iwrap::PayloadOffset + size) != (link ^ iwrap::Complement)) {
        journal.note("bt", "bad frame");
        return 1;
    }
    const std::string payload(bytes.substr(iwrap::PayloadOffset, size));
    if (link == iwrap::CommandLink) {
        execute(payload);
    } else if (const auto known = airLinks.find(link); known != airLinks.end()) {
        air.send(known->second, payload);
    }
    return iwrap::FrameOverhead + size;
}

int TextBluetoothModule::freeNumber() const {
    int number = 0;
    while (airLinks.count(number))
        ++number;
    return number < MostLinks ? number : -1;
}

int TextBluetoothModule::numberOf(int link) const {
    for (const auto& [number, airLink] : airLinks) {
        if (airLink == link)
            return number;
    }
    return -1;
}

bool TextBluetoothModule::linkOffered(int link, const BluetoothAir::Remote& caller, int port) {
    const Lock held(mutex);
    const int number = freeNumber();
    if (!ready || isSilent || number < 0)
        return false;
    airLinks[number] = link;
    sendLines("RING " + std::to_string(number) + " " + caller.address + " " + std::to_string(port) +
              " RFCOMM");
    return true;
}

void TextBluetoothModule::linkData(int link, std::string_view bytes) {
    const Lock held(mutex);
    const int number = numberOf(link);
    if (number < 0 || !multiplexing)
        return;
    std::string frames;
    for (; !bytes.empty();
         bytes.remove_prefix(std::min<size_t>(bytes.size(), iwrap::LongestPayload)))
        frames += frame(static_cast<uint8_t>(number), bytes.substr(0, iwrap::LongestPayload));
    send(frames);
}

void TextBluetoothModule::linkLost(int link) {
    const Lock held(mutex);
    const int number = numberOf(link);
    if (number < 0)
        return;
    airLinks.erase(number);
    sendLines("NO CARRIER " + std::to_string(number) + " ERROR 0");
}

}  // namespace sim
