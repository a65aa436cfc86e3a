#include "sim/devices/PacketBluetoothModule.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "bluetooth/LmxProtocol.h"
#include "sim/Text.h"

namespace sim {
namespace {

constexpr Nanoseconds LinkTime = std::chrono::milliseconds(5);     // to set one up, or end it
constexpr Nanoseconds PageTime = std::chrono::milliseconds(5120);  // until a call is given up
constexpr Nanoseconds PinTime = std::chrono::seconds(30);          // for the host to answer

constexpr char GarbledBits = 0x55;

// Places in a packet's header.
constexpr size_t TypeAt = 1;
constexpr size_t OpcodeAt = 2;
constexpr size_t LengthAt = 3;
constexpr size_t ChecksumAt = 5;

// The status of a confirmation or of a call.
constexpr uint8_t NotPossible = 1;
constexpr uint8_t CallTimedOut = 4;
constexpr uint8_t PinWrong = 5;
constexpr uint8_t CallRefused = 0x0D;

/// A length, the low byte first.
size_t lengthAt(std::string_view bytes, size_t at) {
    return byteAt(bytes, at) | static_cast<size_t>(byteAt(bytes, at + 1)) << 8;
}

std::string statusOf(bool isGood) { return {toChar(isGood ? lmx::Success : NotPossible)}; }

std::string encode(char type, uint8_t opcode, std::string_view payload) {
    std::string packet{static_cast<char>(lmx::Start), type};
    packet += toChar(opcode);
    packet += toChar(payload.size());
    packet += toChar(payload.size() / 256);
    packet += toChar(byteAt(packet, TypeAt) + opcode + payload.size() % 256);  // not the high byte
    packet += payload;
    return packet + toChar(lmx::End);
}

std::string binaryAddress(const std::string& text) {
    std::string bytes;
    for (const uint8_t byte : BluetoothAir::addressBytes(text))
        bytes += toChar(byte);
    return bytes;
}

std::string addressIn(std::string_view payload, size_t at) {
    std::array<uint8_t, lmx::AddressSize> bytes{};
    std::memcpy(bytes.data(), payload.data() + at, bytes.size());
    return BluetoothAir::addressText(bytes);
}

bool isPort(uint8_t number) { return number >= 1 && number <= PacketBluetoothModule::Ports; }

}  // namespace

struct PacketBluetoothModule::Request {
    uint8_t opcode;
    size_t least;  // bytes of payload
    std::string (PacketBluetoothModule::*obey)(const std::string& payload);
};

const PacketBluetoothModule::Request PacketBluetoothModule::Requests[] = {
    {lmx::SetName, 2, &PacketBluetoothModule::setName},
    {lmx::ReadAddress, 0, &PacketBluetoothModule::readAddress},
    {lmx::EnableChip, 2, &PacketBluetoothModule::enableChip},
    {lmx::Connect, 8, &PacketBluetoothModule::callDevice},
    {lmx::Disconnect, 1, &PacketBluetoothModule::endLink},
    {lmx::SendData, 3, &PacketBluetoothModule::sendData},
    {lmx::SetUpStep1, 1, &PacketBluetoothModule::setUp},
    {lmx::SetOpenPorts, 4, &PacketBluetoothModule::setOpenPorts},
    {lmx::ReadVersion, 0, &PacketBluetoothModule::readVersion},
    {lmx::SetUpStep5, 3, &PacketBluetoothModule::setUp},
    {lmx::EnableService, 2, &PacketBluetoothModule::offerService},
    {lmx::SetUpStep3, 0, &PacketBluetoothModule::setUp},
    {lmx::AddService, 5, &PacketBluetoothModule::addService},
    {lmx::SetUpStep4, 1, &PacketBluetoothModule::setUp},
    {lmx::SetUpStep2, 1, &PacketBluetoothModule::setUp},
    {lmx::AnswerPin, 7, &PacketBluetoothModule::takePin},
};

PacketBluetoothModule::PacketBluetoothModule(Journal& eventJournal, SerialLine& line,
                                             BluetoothAir& surroundings)
    : journal(eventJournal), serialLine(line), air(surroundings) {
    air.addModule(*this);
}

void PacketBluetoothModule::setIdentity(const std::string& address, const std::string& newVersion) {
    const Lock held(mutex);
    localAddress = address;
    version = newVersion;
}

void PacketBluetoothModule::onRequest(uint8_t opcode, PacketReply reply, int times) {
    const Lock held(mutex);
    rules.push_back({opcode, reply, times});
}

void PacketBluetoothModule::clearRules() {
    const Lock held(mutex);
    rules.clear();
}

void PacketBluetoothModule::setSilent(bool silent) {
    const Lock held(mutex);
    isSilent = silent;
    pending.clear();
}

void PacketBluetoothModule::sendPacket(char type, uint8_t opcode, std::string_view payload) {
    const Lock held(mutex);
    if (!isSilent)
        serialLine.send(encode(type, opcode, payload));
}

bool PacketBluetoothModule::isEnabled() const {
    const Lock held(mutex);
    return enabled;
}

uint32_t PacketBluetoothModule::openPorts() const {
    const Lock held(mutex);
    return ports;
}

std::string PacketBluetoothModule::name() const {
    const Lock held(mutex);
    return localName;
}

std::vector<std::string> PacketBluetoothModule::services(int port) const {
    const Lock held(mutex);
    std::vector<std::string> offered;
    for (const Service& service : serviceRecords) {
        if (service.port == port && service.isOffered)
            offered.push_back(service.record);
    }
    return offered;
}

// ---- Packets.

void PacketBluetoothModule::received(std::string_view bytes) {
    const Lock held(mutex);
    if (isSilent)
        return;
    pending += bytes;
    size_t done = 0;
    while (const size_t taken = takePacket(std::string_view(pending).substr(done)))
        done += taken;
    pending.erase(0, done);
}

/// Obeys the first packet of `bytes`, or passes what cannot belong to one: of a bad packet only the
/// first byte, so that one hidden in it is found. How many bytes are done with; 0: more are needed.
size_t PacketBluetoothModule::takePacket(std::string_view bytes) {
    if (bytes.empty() || byteAt(bytes, 0) != lmx::Start)
        return std::min(bytes.find(toChar(lmx::Start)), bytes.size());
    if (bytes.size() < lmx::HeaderSize)
        return 0;
    const size_t length = lengthAt(bytes, LengthAt);
    const unsigned sum = byteAt(bytes, TypeAt) + byteAt(bytes, OpcodeAt) + byteAt(bytes, LengthAt);
    if (byteAt(bytes, ChecksumAt) != sum % 256 || byteAt(bytes, TypeAt) != lmx::Request ||
        length > lmx::MaxPayload) {
        journal.note("packet", "bad head");
        return 1;
    }
    const size_t size = lmx::HeaderSize + length + 1;
    if (bytes.size() < size)
        return 0;
    if (byteAt(bytes, size - 1) != lmx::End) {
        journal.note("packet", "bad end");
        return 1;
    }
    execute(byteAt(bytes, OpcodeAt), std::string(bytes.substr(lmx::HeaderSize, length)));
    return size;
}

void PacketBluetoothModule::execute(uint8_t opcode, const std::string& payload) {
    std::string text = hex(opcode);
    for (const char byte : payload.substr(0, opcode == lmx::SendData ? 1 : payload.size()))
        text += " " + hex(static_cast<uint8_t>(byte));
    if (opcode == lmx::SendData && payload.size() >= lmx::DataHeaderSize)
        text += ", " + std::to_string(payload.size() - lmx::DataHeaderSize) + " bytes";
    journal.note("packet", text);

    const PacketReply reply = replyTo(opcode);
    if (reply.refusedWith != 0) {
        confirm(opcode, {toChar(reply.refusedWith)}, reply);
        return;
    }
    for (const Request& request : Requests) {
        if (request.opcode != opcode)
            continue;
        const bool isWhole = payload.size() >= request.least;
        confirm(opcode, isWhole ? (this->*request.obey)(payload) : statusOf(false), reply);
        return;
    }
    journal.note("packet", "unknown request");
}

PacketReply PacketBluetoothModule::replyTo(uint8_t opcode) {
    for (Rule& rule : rules) {
        if (rule.opcode != opcode || rule.timesLeft == 0)
            continue;
        --rule.timesLeft;
        return rule.reply;
    }
    return PacketReply::normal();
}

void PacketBluetoothModule::confirm(uint8_t opcode, std::string payload, const PacketReply& reply) {
    if (!reply.isConfirmed || payload.empty())
        return;
    if (reply.payloadSize != std::string::npos)
        payload.resize(reply.payloadSize);
    if (reply.opcode >= 0)
        opcode = static_cast<uint8_t>(reply.opcode);
    std::string packet = encode(lmx::Confirmation, opcode, payload);
    if (reply.isGarbled)
        packet[ChecksumAt] = static_cast<char>(packet[ChecksumAt] ^ GarbledBits);
    packet.resize(std::min(packet.size(), reply.mostBytes));
    if (reply.isDoubled)
        packet += packet;
    if (reply.delay == Nanoseconds(0)) {
        serialLine.send(packet);
        return;
    }
    // Not by the line's own delay, which would hold back what is sent meanwhile.
    serialLine.at(Clock::get().monotonic() + reply.delay,
                  [this, packet] { serialLine.send(packet); });
}

// ---- Requests.

std::string PacketBluetoothModule::setName(const std::string& payload) {
    const size_t size = byteAt(payload, 0);
    if (size != payload.size() - 1 || payload.back() != '\0')
        return statusOf(false);
    localName = payload.substr(1, size - 1);
    return statusOf(true);
}

std::string PacketBluetoothModule::readAddress(const std::string&) {
    const std::string bytes = binaryAddress(localAddress);
    return statusOf(true) + std::string(bytes.rbegin(), bytes.rend());
}

std::string PacketBluetoothModule::enableChip(const std::string& payload) {
    enabled = payload[0] != 0;
    journal.note("packet", enabled ? "enabled" : "disabled");
    for (int port = 1; port <= Ports && !enabled; ++port) {
        if (air.close(linkOn(port).number))
            tellDown(port);
        else
            forget(port);
    }
    return statusOf(true);
}

std::string PacketBluetoothModule::callDevice(const std::string& payload) {
    const uint8_t port = byteAt(payload, 0);
    if (isPort(port) && linkOn(port).state == Link::Ending)
        tellDown(port);
    const bool isPossible = enabled && isPort(port) && linkOn(port).state == Link::None;
    if (isPossible) {
        Link& link = linkOn(port);
        link = {Link::Calling, 0, addressIn(payload, 1), byteAt(payload, 7), link.attempt + 1};
        later(LinkTime, port, &PacketBluetoothModule::reachDevice);
    }
    return statusOf(isPossible) + payload[0];
}

std::string PacketBluetoothModule::endLink(const std::string& payload) {
    const uint8_t port = byteAt(payload, 0);
    const bool isKnown =
        isPort(port) && linkOn(port).state != Link::None && linkOn(port).state != Link::Ending;
    if (isKnown) {
        Link& link = linkOn(port);
        air.close(link.number);
        forget(port);
        link.state = Link::Ending;
        later(LinkTime, port, &PacketBluetoothModule::tellDown);
    }
    return statusOf(isKnown) + payload[0];
}

std::string PacketBluetoothModule::sendData(const std::string& payload) {
    const uint8_t port = byteAt(payload, 0);
    const size_t size = lengthAt(payload, 1);
    const bool isGood = isPort(port) && size == payload.size() - lmx::DataHeaderSize &&
                        linkOn(port).state == Link::Up &&
                        air.send(linkOn(port).number, payload.substr(lmx::DataHeaderSize));
    return statusOf(isGood) + payload[0];
}

std::string PacketBluetoothModule::setOpenPorts(const std::string& payload) {
    std::memcpy(&ports, payload.data(), sizeof ports);
    return statusOf(true);
}

std::string PacketBluetoothModule::readVersion(const std::string&) {
    sendPacket(lmx::Indication, lmx::Version, toChar(version.size()) + version);
    return {};
}

std::string PacketBluetoothModule::offerService(const std::string& payload) {
    const uint8_t handle = byteAt(payload, 1);
    const bool isKnown = handle < serviceRecords.size();
    if (isKnown)
        serviceRecords[handle].isOffered = payload[0] != 0;
    return statusOf(isKnown) + payload[1];
}

std::string PacketBluetoothModule::addService(const std::string& payload) {
    const size_t size = lengthAt(payload, 3);
    const bool isGood = size == payload.size() - 5 && serviceRecords.size() < 256;
    if (isGood)
        serviceRecords.push_back({byteAt(payload, 0) + 1, payload.substr(5)});
    return statusOf(isGood) + toChar(serviceRecords.size() - 1);
}

std::string PacketBluetoothModule::takePin(const std::string& payload) {
    const std::string address = addressIn(payload, 0);
    const std::string pin = payload.substr(lmx::AddressSize + 1);
    if (pin.size() != byteAt(payload, lmx::AddressSize))
        return statusOf(false);
    for (int port = 1; port <= Ports; ++port) {
        Link& link = linkOn(port);
        if (link.address != address)
            continue;
        if (link.state == Link::PinForCall) {
            connectWith(port, pin);
            return statusOf(true);
        }
        if (link.state == Link::PinForCaller) {
            const auto caller = air.remoteOf(link.number);
            if (caller && caller->pin == pin)
                called(port);
            else
                giveUp(port);
            return statusOf(true);
        }
    }
    return statusOf(false);
}

std::string PacketBluetoothModule::setUp(const std::string&) { return statusOf(true); }

// ---- Links.

/// Unless the attempt on the port is over by then.
void PacketBluetoothModule::later(Nanoseconds delay, int port,
                                  void (PacketBluetoothModule::*action)(int port)) {
    const unsigned attempt = linkOn(port).attempt;
    serialLine.at(Clock::get().monotonic() + delay, [this, port, attempt, action] {
        const Lock held(mutex);
        if (linkOn(port).attempt == attempt)
            (this->*action)(port);
    });
}

void PacketBluetoothModule::reachDevice(int port) {
    const auto remote = air.find(linkOn(port).address);
    const bool hasPin = remote && remote->mood == BluetoothAir::Remote::Normal &&
                        !remote->pin.empty() && remote->link == 0;
    if (hasPin)
        askPin(port, Link::PinForCall);
    else
        connectWith(port, "");
}

void PacketBluetoothModule::connectWith(int port, const std::string& pin) {
    Link& link = linkOn(port);
    switch (air.call(*this, link.address, pin, link.number)) {
    case BluetoothAir::Outcome::Connected: finishCall(port, lmx::Success); break;
    case BluetoothAir::Outcome::WrongPin: finishCall(port, PinWrong); break;
    case BluetoothAir::Outcome::Refused: finishCall(port, CallRefused); break;
    case BluetoothAir::Outcome::NoAnswer:
        link.state = Link::Calling;
        later(PageTime, port, &PacketBluetoothModule::giveUp);
        break;
    }
}

/// The other side, or the host's PIN, has not come.
void PacketBluetoothModule::giveUp(int port) {
    Link& link = linkOn(port);
    switch (link.state) {
    case Link::Calling: finishCall(port, CallTimedOut); break;
    case Link::PinForCall: finishCall(port, PinWrong); break;
    case Link::PinForCaller:
        journal.note("packet", "refused " + link.address);
        air.close(link.number);
        forget(port);
        break;
    case Link::None:
    case Link::Up:
    case Link::Ending: break;
    }
}

void PacketBluetoothModule::forget(int port) {
    Link& link = linkOn(port);
    link = {Link::None, 0, {}, 0, link.attempt + 1};
}

void PacketBluetoothModule::finishCall(int port, uint8_t status) {
    Link& link = linkOn(port);
    ++link.attempt;
    link.state = status == lmx::Success ? Link::Up : Link::None;
    sendPacket(lmx::Indication, lmx::Connected,
               toChar(status) + binaryAddress(link.address) + toChar(static_cast<size_t>(port)) +
                   toChar(link.remotePort));
    if (status == lmx::Success)
        air.greet(link.number);
}

bool PacketBluetoothModule::linkOffered(int number, const BluetoothAir::Remote& caller, int port) {
    const Lock held(mutex);
    const bool isOpen = port >= 1 && port <= Ports && (ports >> (port - 1) & 1);
    if (isSilent || !enabled || !isOpen || linkOn(port).state != Link::None)
        return false;
    Link& link = linkOn(port);
    link = {Link::PinForCaller, number, caller.address, 0, link.attempt + 1};
    if (caller.pin.empty())
        called(port);
    else
        askPin(port, Link::PinForCaller);
    return true;
}

void PacketBluetoothModule::askPin(int port, Link::State state) {
    Link& link = linkOn(port);
    link.state = state;
    sendPacket(lmx::Indication, lmx::PinRequested, binaryAddress(link.address));
    later(PinTime, port, &PacketBluetoothModule::giveUp);
}

void PacketBluetoothModule::called(int port) {
    Link& link = linkOn(port);
    link.state = Link::Up;
    ++link.attempt;
    sendPacket(lmx::Indication, lmx::Called,
               binaryAddress(link.address) + toChar(static_cast<size_t>(port)));
    air.greet(link.number);
}

void PacketBluetoothModule::linkData(int number, std::string_view bytes) {
    const Lock held(mutex);
    const int port = portOf(number);
    while (port != 0 && !bytes.empty()) {
        const std::string_view part = bytes.substr(0, MostData);
        bytes.remove_prefix(part.size());
        sendPacket(lmx::Indication, lmx::DataArrived,
                   std::string{toChar(static_cast<size_t>(port)), toChar(part.size()),
                               toChar(part.size() >> 8)}
                       .append(part));
    }
}

void PacketBluetoothModule::linkLost(int number) {
    const Lock held(mutex);
    if (const int port = portOf(number))
        tellDown(port);
}

void PacketBluetoothModule::tellDown(int port) {
    forget(port);
    sendPacket(lmx::Indication, lmx::Disconnected,
               std::string{toChar(lmx::Success), toChar(static_cast<size_t>(port))});
}

/// The port that has the link; 0: none has.
int PacketBluetoothModule::portOf(int number) {
    for (int port = 1; port <= Ports; ++port) {
        if (number != 0 && linkOn(port).number == number)
            return port;
    }
    return 0;
}

}  // namespace sim
