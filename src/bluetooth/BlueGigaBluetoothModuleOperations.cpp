// The module's operations: one command, or a few, and what their answers say.

#include <algorithm>
#include <climits>
#include <cstdio>

#include "bluetooth/BlueGigaBluetoothModule.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/InquiryAnswer.h"
#include "bluetooth/IwrapProtocol.h"
#include "foundation/Number.h"

namespace {

constexpr int CommandMs = 1000;
constexpr int LinkMs = 5000;
constexpr int InquiryMs = 5000;
constexpr int SignalMs = 250;

constexpr int BannerReads = 5;

constexpr int NoSignal = -128;
constexpr int SignalOffset = 100;  // callers rely on a number above 0

constexpr char AddressKey[] = "SET BT BDADDR ";
constexpr size_t AddressLength = 17;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

/// A command on the command link, and one read of its answer.
BlueGigaBluetoothModule::Exchanged
BlueGigaBluetoothModule::exchange(const std::string& command, std::string& answer, int timeoutMs) {
    const ExchangeGuard held(driverLock);
    if (!writeCommand(command.data(), static_cast<unsigned>(command.size()), iwrap::CommandLink))
        return Exchanged::NotWritten;
    return readAnswer(&answer, timeoutMs) ? Exchanged::Answered : Exchanged::Unanswered;
}

/// The same for a longer answer: reads on until a read adds nothing.
std::string BlueGigaBluetoothModule::exchangeLong(const std::string& command, int timeoutMs) {
    const ExchangeGuard held(driverLock);
    std::string answer;
    if (!writeCommand(command.data(), static_cast<unsigned>(command.size()), iwrap::CommandLink))
        return answer;
    size_t before = 0;
    do {
        before = answer.size();
        readAnswer(&answer, timeoutMs);
    } while (answer.size() > before);
    return answer;
}

/// A setting that the module answers with nothing or the line itself.
bool BlueGigaBluetoothModule::setting(const std::string& command) {
    std::string answer;
    return exchange(command, answer, CommandMs) != Exchanged::NotWritten &&
           (answer.empty() || answer == command);
}

/// Null for a free slot and for an id that is none. With registryLock held.
BluetoothSPPConnection* BlueGigaBluetoothModule::connectionAt(int id) {
    return id >= 0 && id < SlotCount ? connections[id] : nullptr;
}

/// The link number of the connection in a slot, if there is such a connection.
std::optional<int> BlueGigaBluetoothModule::linkAt(int id, Which which) {
    const MutexGuard held(registryLock);
    BluetoothSPPConnection* const connection = connectionAt(id);
    if (!connection || (which == ConnectedLink && !connection->isConnected()))
        return std::nullopt;
    return getLocalPort(connection);
}

bool BlueGigaBluetoothModule::isAlive() {
    const ExchangeGuard held(driverLock);
    std::string answer;
    for (int read = 0; read < BannerReads; ++read) {
        readAnswer(&answer, CommandMs);
        if (getAnswerType() == ANSWER_OK)
            return true;
    }
    return false;
}

bool BlueGigaBluetoothModule::disableEcho() { return setting("SET CONTROL ECHO 5"); }

bool BlueGigaBluetoothModule::setAuth(char* pin) {
    return setting(std::string("SET BT AUTH * ") + pin);
}

bool BlueGigaBluetoothModule::setLAP(const char* lap) {
    const std::string command = std::string("SET BT LAP ") + lap;
    std::string answer;
    switch (exchange(command, answer, CommandMs)) {
    case Exchanged::NotWritten: return false;
    case Exchanged::Unanswered: return isMuxOn;
    case Exchanged::Answered: break;
    }
    return answer.size() == command.size() + 2;  // its echo, with the line's end
}

std::string BlueGigaBluetoothModule::getLocalMac() {
    std::string answer;
    exchange("SET", answer, CommandMs);
    const size_t key = answer.find(AddressKey);
    if (key == std::string::npos)
        return "";
    const std::string address = answer.substr(key + sizeof AddressKey - 1, AddressLength);
    return address.size() == AddressLength ? address : "";
}

std::string BlueGigaBluetoothModule::getVersion() {
    std::string answer;
    exchange("INFO", answer, CommandMs);
    return answer;
}

std::string BlueGigaBluetoothModule::queryActiveConnections() {
    return exchangeLong("LIST", CommandMs);
}

bool BlueGigaBluetoothModule::ping() {
    for (int id = 0; id < SlotCount; ++id) {
        const std::optional<int> link = linkAt(id, AnyLink);
        std::string answer;
        if (link)
            exchange("PING " + std::to_string(*link), answer, CommandMs);
        if (!answer.empty())
            return true;
    }
    return false;
}

int BlueGigaBluetoothModule::getSignalStrength() {
    int weakest = NoSignal;
    for (int id = 0; id < SlotCount; ++id) {
        const std::optional<int> link = linkAt(id, ConnectedLink);
        std::string answer;
        if (!link ||
            exchange("RSSI " + std::to_string(*link), answer, SignalMs) != Exchanged::Answered)
            continue;
        const size_t space = answer.rfind(' ');
        if (space == std::string::npos)
            continue;
        const int value = foundation::numberIn(answer.c_str() + space);
        if (weakest == NoSignal || value < weakest)
            weakest = value;
    }
    return std::min(weakest, INT_MAX - SignalOffset) + SignalOffset;
}

bool BlueGigaBluetoothModule::connectSPP(int id, unsigned char* addr, unsigned char /*port*/) {
    char pin[PinSize] = {};
    {
        const MutexGuard held(registryLock);
        if (BluetoothSPPConnection* const connection = connectionAt(id))
            connection->getPin(pin, sizeof pin);
    }
    if (!setAuth(pin))
        return false;
    char call[128];
    std::snprintf(call, sizeof call, "CALL %02x:%02x:%02x:%02x:%02x:%02x 1101 RFCOMM", addr[0],
                  addr[1], addr[2], addr[3], addr[4], addr[5]);
    std::string answer;
    exchange(call, answer, LinkMs);
    const size_t space = answer.find(' ');
    if (!contains(answer, "CONNECT") || space == std::string::npos)
        return false;
    const int link = foundation::numberIn(answer.substr(space + 1, 1).c_str());
    const MutexGuard held(registryLock);
    setConnectionState(connectionAt(id), SPP_CONN_CONNECTED);
    setLocalPort(connectionAt(id), link);
    return true;
}

bool BlueGigaBluetoothModule::disconnectSPP(int id) {
    const std::string link = std::to_string(linkAt(id, AnyLink).value_or(0));
    std::string answer;
    exchange("CLOSE " + link, answer, LinkMs);
    return contains(answer, "NO CARRIER " + link + " ERROR 0");
}

std::vector<BluetoothModule::Device> BlueGigaBluetoothModule::scanDevices() {
    return bluetooth::devicesIn(exchangeLong("INQUIRY 5 NAME", InquiryMs));
}
