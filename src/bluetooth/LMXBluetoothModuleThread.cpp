// What the module says, on the driver's own thread.

#include <algorithm>
#include <cstring>

#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/LMXBluetoothModule.h"
#include "bluetooth/LmxProtocol.h"
#include "foundation/TimeLimit.h"

namespace {

constexpr int PacketWaitMs = 1000;
constexpr unsigned char LastReportedPort = 6;

}  // namespace

void LMXBluetoothModule::run() {
    while (!stopRequested()) {
        const foundation::TimeLimit limit(PacketWaitMs);
        const auto line = currentPort();
        unsigned char packet[lmx::MaxPayload + 1];
        unsigned char type = 0;
        unsigned char opcode = 0;
        const int length = line ? line->getPkt(&type, &opcode, packet, sizeof packet, PacketWaitMs)
                                : LMXBluetoothPort::PacketMissing;
        const int left = length == LMXBluetoothPort::PacketMissing ? limit.leftMs() : 0;
        if (length >= 0)
            handlePacket(type, opcode, packet, static_cast<unsigned>(length));
        else if (left > 0)
            Thread::sleep(left);  // a line that fails or has hung up does not wait by itself
    }
}

void LMXBluetoothModule::handlePacket(unsigned char type, unsigned char opcode,
                                      unsigned char* payload, unsigned int length) {
    if (type == lmx::Confirmation)
        storeConfirmation(opcode, payload, length);
    else if (type == lmx::Indication)
        handleIndication(opcode, payload, length);
}

void LMXBluetoothModule::storeConfirmation(unsigned char opcode, const unsigned char* payload,
                                           unsigned int length) {
    const LockGuard<Cond> held(confirmation);
    if (opcode != awaitedOpcode || isConfirmed)
        return;
    isConfirmed = true;
    confirmationLength = std::min(length, MaxConfirmation);
    std::memcpy(confirmationData, payload, confirmationLength);
    confirmation.signal();
}

void LMXBluetoothModule::handleIndication(unsigned char opcode, unsigned char* payload,
                                          unsigned int length) {
    switch (opcode) {
    case lmx::Connected:
        if (length == lmx::ConnectedSize)
            reportLink(payload[lmx::ConnectedPort],
                       payload[0] == lmx::Success ? SPP_CONN_CONNECTED : SPP_CONN_FAILED);
        break;
    case lmx::Called:
        if (length == lmx::CalledSize)
            reportLink(payload[lmx::CalledPort], SPP_CONN_CONNECTED);
        break;
    case lmx::Disconnected:
        if (length == lmx::DisconnectedSize)
            reportLink(payload[lmx::DisconnectedPort], SPP_CONN_IDLE);
        break;
    case lmx::DataArrived:
        if (length > lmx::DataHeaderSize) {
            const MutexGuard held(registryLock);
            if (BluetoothSPPConnection* const connection = connectionOn(payload[0]))
                sendIncomingData(connection, payload + lmx::DataHeaderSize,
                                 length - lmx::DataHeaderSize);
        }
        break;
    case lmx::PinRequested:
        if (length == lmx::AddressSize)
            sendPin(payload);
        break;
    default: break;
    }
}

void LMXBluetoothModule::reportLink(unsigned char linkPort, SPP_CONN_STATUS status) {
    if (linkPort < 1 || linkPort > LastReportedPort)
        return;
    const uint32_t bit = 1U << (linkPort - 1);
    const MutexGuard held(registryLock);
    BluetoothSPPConnection* const connection = connectionOn(linkPort);
    if (status == SPP_CONN_CONNECTED && connection)
        connected |= bit;
    if (status == SPP_CONN_FAILED && connection)
        connected &= ~bit;
    setConnectionState(connection, status);
    // Also when the connection has been deleted meanwhile: its link must not keep the terminal
    // awake for ever.
    if (status == SPP_CONN_IDLE)
        connected &= ~bit;
}

/// With the registry's lock held. Null when the port is none whose reports count, or has no
/// connection.
BluetoothSPPConnection* LMXBluetoothModule::connectionOn(unsigned char linkPort) const {
    return linkPort >= 1 && linkPort <= LastReportedPort ? connections[linkPort - 1] : nullptr;
}

void LMXBluetoothModule::sendPin(const unsigned char* addr) {
    char pin[PinSize] = {};
    bool isFound = false;
    {
        const MutexGuard held(registryLock);
        for (BluetoothSPPConnection* const connection : connections) {
            unsigned char destination[lmx::AddressSize];
            if (connection && connection->getDestAddr(destination) &&
                std::memcmp(destination, addr, sizeof destination) == 0) {
                connection->getPin(pin, sizeof pin);
                isFound = true;
                break;
            }
        }
        if (!isFound)
            std::memcpy(pin, incomingPin, sizeof pin);
    }
    const auto length = static_cast<unsigned char>(std::strlen(pin));
    if (!isFound && length == 0)
        return;
    unsigned char head[lmx::AddressSize + 1];
    std::memcpy(head, addr, lmx::AddressSize);
    head[lmx::AddressSize] = length;
    sendRequest(lmx::AnswerPin, head, sizeof head, pin, length);
}
