#include "bluetooth/LMXBluetoothModule.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "bluetooth/LmxProtocol.h"
#include "config/SysInfo.h"
#include "foundation/TimeLimit.h"
#include "io/NoCancellation.h"

namespace {

constexpr int ReplyMs = 100;
constexpr int ConnectMs = 20000;
constexpr int DisconnectMs = 1000;
constexpr int VersionMs = 250;
constexpr int VersionTries = 5;
constexpr int StopMs = 10000;
constexpr int NoReply = 0;

constexpr char NamePrefix[] = "KV2 ";

bool isSlot(int id) { return id >= 0 && id < BluetoothModule::SlotCount; }
unsigned char portOf(int id) { return static_cast<unsigned char>(id + 1); }

using ConfirmationGuard = std::unique_lock<Cond>;

}  // namespace

LMXBluetoothModule::~LMXBluetoothModule() {
    const io::NoCancellation scope;
    stop(StopMs, false);
    closePort();
}

// ---- Start and end.

bool LMXBluetoothModule::initialize() {
    if (pModule)
        return true;
    auto module = std::make_unique<LMXBluetoothModule>(lmx::DevicePath);
    if (!module->initModule())
        return false;
    static_cast<void>(module.release());  // the application's, by way of pModule
    return true;
}

bool LMXBluetoothModule::initModule() {
    const std::string name = std::string(NamePrefix) + SysInfo::getSerialNumber();
    if (!initComm())
        return false;
    constexpr unsigned char Off = 0;
    const auto nameSize = static_cast<unsigned char>(name.size() + 1);
    const struct {
        unsigned char opcode;
        const void* first;
        unsigned firstSize;
        const void* second;
        unsigned secondSize;
    } steps[] = {
        {lmx::SetUpStep1, &Off, 1, nullptr, 0},
        {lmx::SetUpStep2, &Off, 1, nullptr, 0},
        {lmx::SetUpStep3, nullptr, 0, nullptr, 0},
        {lmx::SetUpStep4, &Off, 1, nullptr, 0},
        {lmx::SetUpStep5, lmx::SetUpStep5Value, sizeof lmx::SetUpStep5Value, nullptr, 0},
        {lmx::SetName, &nameSize, 1, name.c_str(), nameSize},
    };
    for (const auto& step : steps) {
        if (!sendCmd(step.opcode, step.first, step.firstSize, step.second, step.secondSize, NoReply,
                     false))
            return false;
    }
    if (!start())
        return false;
    pModule = this;
    updateOpenPorts();
    return true;
}

bool LMXBluetoothModule::initComm() {
    if (!openPort())
        return false;
    const auto line = currentPort();
    for (int tries = 0; line && tries < VersionTries; ++tries) {
        unsigned char packet[lmx::MaxPayload + 1];
        unsigned char type = 0;
        unsigned char code = 0;
        if (!sendCmd(lmx::ReadVersion, nullptr, 0, nullptr, 0, NoReply, false))
            continue;
        const int length = line->getPkt(&type, &code, packet, sizeof packet, VersionMs);
        if (length <= 1 || type != lmx::Indication || code != lmx::Version)
            continue;
        const int textLength = std::min<int>(packet[0], length - 1);
        const ConfirmationGuard held(confirmation);
        version.assign(packet + 1, packet + 1 + textLength);
        return true;
    }
    return false;
}

bool LMXBluetoothModule::openPort() {
    const MutexGuard held(portLock);
    if (port)
        return false;
    auto line = std::make_shared<LMXBluetoothPort>();
    if (!line->open(devicePath.c_str()) || !line->setSpeed(lmx::Baud) ||
        !line->setFlowControl(S_FLOW_HARDWARE) || !line->setCharBits(8) || !line->setStopBits(1) ||
        !line->setParity(S_PARITY_NONE))
        return false;
    port = std::move(line);
    return true;
}

bool LMXBluetoothModule::closePort() {
    std::shared_ptr<LMXBluetoothPort> closing;
    {
        const MutexGuard held(portLock);
        closing.swap(port);
    }
    return closing != nullptr;
}

std::shared_ptr<LMXBluetoothPort> LMXBluetoothModule::currentPort() {
    const MutexGuard held(portLock);
    return port;
}

bool LMXBluetoothModule::shutdown() {
    {
        const MutexGuard held(registryLock);
        for (const BluetoothSPPConnection* connection : connections) {
            if (connection)
                return false;
        }
    }
    stop(StopMs, false);
    closePort();
    return true;
}

// ---- Exchanges with the module.

bool LMXBluetoothModule::sendRequest(unsigned char opcode, const void* d1, unsigned int l1,
                                     const void* d2, unsigned int l2) {
    const auto line = currentPort();
    const MutexGuard held(writeLock);
    return line && line->sendCmd(opcode, d1, l1, d2, l2);
}

bool LMXBluetoothModule::sendCmd(unsigned char opcode, const void* d1, unsigned int l1,
                                 const void* d2, unsigned int l2, int timeoutMs, bool keepLock) {
    const MutexGuard exchange(commandLock);
    {
        const ConfirmationGuard held(confirmation);
        awaitedOpcode = opcode;
        isConfirmed = false;
    }
    if (!sendRequest(opcode, d1, l1, d2, l2))
        return false;
    if (timeoutMs == NoReply)
        return true;
    const foundation::TimeLimit limit(timeoutMs);
    ConfirmationGuard held(confirmation);
    while (!isConfirmed) {
        const int left = limit.leftMs();
        if (left == 0)
            return false;
        confirmation.wait(left);
    }
    if (keepLock)
        held.release();
    return true;
}

/// A request that the module confirms at once: whether it has done so with `length` bytes and
/// success.
bool LMXBluetoothModule::isGranted(unsigned char opcode, const void* d1, unsigned int l1,
                                   const void* d2, unsigned int l2, unsigned int length) {
    if (!sendCmd(opcode, d1, l1, d2, l2, ReplyMs, true))
        return false;
    const ConfirmationGuard held(confirmation, std::adopt_lock);
    return isSuccess(length);
}

/// With the confirmation's lock held.
bool LMXBluetoothModule::isSuccess(unsigned int length) const {
    return confirmationLength == length && confirmationData[0] == lmx::Success;
}

std::string LMXBluetoothModule::getLocalMac() {
    {
        const ConfirmationGuard held(confirmation);
        if (!localAddress.empty())
            return localAddress;
    }
    if (!sendCmd(lmx::ReadAddress, nullptr, 0, nullptr, 0, ReplyMs, true))
        return "";
    const ConfirmationGuard held(confirmation, std::adopt_lock);
    if (!isSuccess(1 + lmx::AddressSize))
        return "";
    std::string address;  // another caller may have stored it by now
    for (unsigned i = lmx::AddressSize; i > 0; --i) {
        char text[4];
        std::snprintf(text, sizeof text, "%2.2X", confirmationData[i]);
        address += address.empty() ? "" : ":";
        address += text;
    }
    return localAddress = address;
}

std::string LMXBluetoothModule::getVersion() {
    const ConfirmationGuard held(confirmation);
    return version;
}

bool LMXBluetoothModule::setEnabled(bool on) {
    enabled = on;
    return sendChipEnable(on);
}

bool LMXBluetoothModule::sendChipEnable(bool on) {
    const auto value = static_cast<unsigned char>(on ? 1 : 0);
    const unsigned char request[] = {value, value};
    return isGranted(lmx::EnableChip, request, sizeof request, nullptr, 0, 1);
}

bool LMXBluetoothModule::powerStateChange(PowerState /*from*/, PowerState to) {
    if (to == POWER_ALARM_WAKE || to == POWER_SUSPEND) {
        if (connected != 0)
            return false;
        if (!asleep) {
            sendChipEnable(false);
            asleep = true;
        }
    } else if (asleep) {
        asleep = false;
        sendChipEnable(enabled);
    }
    return true;
}

// ---- Links.

bool LMXBluetoothModule::updateOpenPorts() {
    const MutexGuard held(openPortsLock);
    return sendOpenPorts();
}

void LMXBluetoothModule::setOpen(int id, bool open) {
    const MutexGuard held(openPortsLock);
    const uint32_t bit = 1U << id;
    openPorts = open ? openPorts | bit : openPorts & ~bit;
    sendOpenPorts();
}

bool LMXBluetoothModule::sendOpenPorts() {
    return sendCmd(lmx::SetOpenPorts, &openPorts, sizeof openPorts, nullptr, 0, ReplyMs, false);
}

bool LMXBluetoothModule::addSDPRecord(int id, void* record, unsigned int size) {
    if (!isSlot(id) || (!record && size > 0))
        return false;
    const unsigned char head[] = {static_cast<unsigned char>(id), lmx::ServiceClass[0],
                                  lmx::ServiceClass[1], static_cast<unsigned char>(size),
                                  static_cast<unsigned char>(size >> 8)};
    if (!sendCmd(lmx::AddService, head, sizeof head, record, size, ReplyMs, true))
        return false;
    const ConfirmationGuard held(confirmation, std::adopt_lock);
    if (!isSuccess(2))
        return false;
    sdpHandles[id] = confirmationData[1];
    return true;
}

bool LMXBluetoothModule::activateSDPRecord(int id, bool active) {
    unsigned char request[] = {static_cast<unsigned char>(active ? 1 : 0), 0};
    {
        const ConfirmationGuard held(confirmation);
        request[1] = sdpHandles[id];
    }
    return isGranted(lmx::EnableService, request, sizeof request, nullptr, 0, 2);
}

bool LMXBluetoothModule::listenSPP(int id) {
    if (!isSlot(id))
        return true;
    activateSDPRecord(id, true);
    setOpen(id, true);
    return true;
}

bool LMXBluetoothModule::connectSPP(int id, unsigned char* addr, unsigned char remotePort) {
    // Without the registry's lock, and never waiting for it: the confirmation may be long in
    // coming, and the thread needs the registry for whatever it reports before.
    if (!isSlot(id) || !addr)
        return false;
    setOpen(id, true);
    unsigned char request[1 + lmx::AddressSize + 1] = {portOf(id)};
    std::memcpy(request + 1, addr, lmx::AddressSize);
    request[1 + lmx::AddressSize] = remotePort;
    if (sendCmd(lmx::Connect, request, sizeof request, nullptr, 0, ConnectMs, false))
        return true;
    setOpen(id, false);
    return false;
}

bool LMXBluetoothModule::disconnectSPP(int id) {
    if (!isSlot(id))
        return false;
    setOpen(id, false);
    activateSDPRecord(id, false);
    const unsigned char linkPort = portOf(id);
    return sendCmd(lmx::Disconnect, &linkPort, 1, nullptr, 0, DisconnectMs, false);
}

bool LMXBluetoothModule::sendSPPData(int id, const void* data, unsigned int len) {
    if (len == 0)
        return true;
    if (!isSlot(id) || !data)
        return false;
    const auto* rest = static_cast<const unsigned char*>(data);
    while (len > 0) {
        const unsigned piece = std::min(len, lmx::MaxData);
        const unsigned char head[lmx::DataHeaderSize] = {portOf(id),
                                                         static_cast<unsigned char>(piece), 0};
        if (!isGranted(lmx::SendData, head, sizeof head, rest, piece, 2))
            return false;
        rest += piece;
        len -= piece;
    }
    return true;
}
