#include "bluetooth/BluetoothSocket.h"

#include "bluetooth/BluetoothSPPConnection.h"
#include "network/BluetoothConnection.h"

namespace {

constexpr int ReadWaitMs = 1000;

}  // namespace

bool BluetoothSocket::connect(const char* addr, int /*port*/) {
    return connect(reinterpret_cast<const unsigned char*>(addr), 0, "");
}

bool BluetoothSocket::connect(const unsigned char* addr, int port, const char* pin) {
    if (!owner)
        return false;
    if (!connection)
        connection = owner->getModule()->createSPPConnection(addr, port, pin);
    return connection && connection->connect();
}

bool BluetoothSocket::close() {
    if (connection)
        owner->getModule()->deleteSPPConnection(connection);
    connection = nullptr;
    return true;
}

bool BluetoothSocket::writeData(unsigned char* buf, unsigned int len) {
    return isConnected() && connection->writeData(buf, len) > 0;
}

int BluetoothSocket::readData(unsigned char* buf, unsigned int len) {
    if (!isConnected() || !connection->isInputPending(ReadWaitMs))
        return 0;
    return connection->readData(buf, len);
}

bool BluetoothSocket::setKeepalive(int /*idleSeconds*/, int /*intervalSeconds*/, int count) {
    keepalive = count;
    return true;
}

bool BluetoothSocket::isConnected() { return connection && connection->isConnected(); }
