#include "bluetooth/BluetoothModule.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "bluetooth/BluetoothSPPConnection.h"

std::atomic<BluetoothModule*> BluetoothModule::pModule{nullptr};

BluetoothModule::~BluetoothModule() {
    BluetoothModule* self = this;
    pModule.compare_exchange_strong(self, nullptr);
}

BluetoothSPPConnection* BluetoothModule::createSPPConnection(const unsigned char* addr, int port,
                                                             const char* pin) {
    auto connection = std::make_unique<BluetoothSPPConnection>(pModule, false);
    if (!connection->setDestAddr(addr) || !connection->setDestPort(port) ||
        !connection->setPin(pin) || !connection->registerSPP())
        return nullptr;
    return connection.release();
}

BluetoothSPPConnection* BluetoothModule::createIncomingSPPConnection(int localPort) {
    auto connection = std::make_unique<BluetoothSPPConnection>(pModule, true);
    if (!connection->setLocalPort(localPort) || !connection->registerSPP())
        return nullptr;
    return connection.release();
}

void BluetoothModule::deleteSPPConnection(BluetoothSPPConnection* connection) { delete connection; }

int BluetoothModule::registerSPPConnection(BluetoothSPPConnection* connection) {
    const MutexGuard held(registryLock);
    for (int slot = FirstOutgoingSlot; slot < SlotCount; ++slot) {
        if (!connections[slot]) {
            connections[slot] = connection;
            return slot;
        }
    }
    return -1;
}

bool BluetoothModule::registerIncomingSPPConnection(BluetoothSPPConnection* connection) {
    const int port = connection->getLocalPort();
    if (port < 1 || port > SlotCount)
        return false;
    const MutexGuard held(registryLock);
    BluetoothSPPConnection*& slot = connections[port - 1];
    if (slot)
        return false;
    slot = connection;
    return true;
}

void BluetoothModule::deregisterSPPConnection(int id) {
    if (id < 0 || id >= SlotCount)
        return;
    const MutexGuard held(registryLock);
    connections[id] = nullptr;
}

/// Frees what a connection that goes away has left: it may have registered more than once.
void BluetoothModule::forget(const BluetoothSPPConnection* leaving) {
    const MutexGuard held(registryLock);
    std::replace_if(
        std::begin(connections), std::end(connections),
        [leaving](const BluetoothSPPConnection* one) { return one == leaving; }, nullptr);
}

bool BluetoothModule::setIncomingPin(const char* pin) {
    const size_t length = std::strlen(pin);
    if (length + 1 > PinSize)
        return false;
    const MutexGuard held(registryLock);
    std::memcpy(incomingPin, pin, length + 1);
    return true;
}

int BluetoothModule::getLocalPort(BluetoothSPPConnection* connection) {
    return connection ? connection->getLocalPort() : 0;
}

void BluetoothModule::setLocalPort(BluetoothSPPConnection* connection, int port) {
    if (connection)
        connection->setLocalPort(port);
}

void BluetoothModule::setConnectionState(BluetoothSPPConnection* connection,
                                         SPP_CONN_STATUS status) {
    if (connection)
        connection->setConnectionState(status);
}

int BluetoothModule::sendIncomingData(BluetoothSPPConnection* connection, void* data,
                                      unsigned int len) {
    return connection->incomingData(data, len);
}
