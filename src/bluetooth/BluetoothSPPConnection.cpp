#include "bluetooth/BluetoothSPPConnection.h"

#include <sys/time.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "io/NoCancellation.h"

namespace {

constexpr int StateWaitMs = 10000;
constexpr int ConnectLimitMs = 20000;

constexpr int HighestPort = 7;

constexpr unsigned AddressTextLength = 17;  // "00:1A:7D:DA:71:13"
constexpr unsigned DigitGroup = 3;          // two digits and a separator

/// Whether the length tells a text. Looks no further than it must: six bytes may be all there are.
bool isAddressText(const unsigned char* addr) {
    for (unsigned i = 0; i < AddressTextLength; ++i) {
        const bool isDigitPlace = i % DigitGroup < 2;
        const bool isPrintable = addr[i] >= ' ' && addr[i] <= '~';
        const bool isAmongTheSix = i < BluetoothSPPConnection::AddressSize;
        if (addr[i] == '\0' || (isAmongTheSix && isDigitPlace && !isPrintable))
            return false;
    }
    return addr[AddressTextLength] == '\0';
}

bool scanDigit(const char* text, unsigned& digit) { return std::sscanf(text, "%1X", &digit) == 1; }

/// By the system's time, like the semaphore that is waited on.
int64_t elapsedMs(const timeval& since) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return (static_cast<int64_t>(now.tv_sec) - since.tv_sec) * 1000 +
           (static_cast<int64_t>(now.tv_usec) - since.tv_usec) / 1000;
}

}  // namespace

BluetoothSPPConnection::~BluetoothSPPConnection() {
    if (!module || connectionId == -1)
        return;
    const io::NoCancellation scope;
    disconnect();
    module->deregisterSPPConnection(connectionId);
    module->forget(this);
}

bool BluetoothSPPConnection::registerSPP() {
    if (!module)
        return false;
    if (incoming) {
        if (!module->registerIncomingSPPConnection(this))
            return false;
        connectionId = localPort - 1;
        return true;
    }
    const int id = module->registerSPPConnection(this);
    if (id == -1)
        return false;
    connectionId = id;
    return true;
}

bool BluetoothSPPConnection::setDestAddr(const unsigned char* addr) {
    if (incoming)
        return false;
    const MutexGuard held(addressLock);
    if (!isAddressText(addr)) {
        std::memcpy(destAddr, addr, AddressSize);
        return true;
    }
    const auto* const text = reinterpret_cast<const char*>(addr);
    for (unsigned i = 0; i < AddressSize; ++i) {
        unsigned high = 0;
        unsigned low = 0;
        if (!scanDigit(text + i * DigitGroup, high) || !scanDigit(text + i * DigitGroup + 1, low))
            return false;
        destAddr[i] = static_cast<unsigned char>(high * 16 + low);
    }
    return true;
}

bool BluetoothSPPConnection::getDestAddr(unsigned char* out) {
    if (incoming)
        return false;
    const MutexGuard held(addressLock);
    bool isSet = false;
    for (const unsigned char byte : destAddr)
        isSet = isSet || byte != 0xFF;
    if (isSet)
        std::memcpy(out, destAddr, AddressSize);
    return isSet;
}

bool BluetoothSPPConnection::setDestPort(int port) {
    if (incoming || port < 0 || port > HighestPort)
        return false;
    destPort = port;
    return true;
}

bool BluetoothSPPConnection::setLocalPort(int port) {
    if (port < 0 || port > HighestPort)
        return false;
    localPort = port;
    return true;
}

bool BluetoothSPPConnection::setPin(const char* newPin) {
    const size_t length = std::strlen(newPin);
    if (length + 1 > sizeof pin)
        return false;
    const MutexGuard held(addressLock);
    std::memcpy(pin, newPin, length + 1);
    return true;
}

void BluetoothSPPConnection::getPin(char* dst, unsigned int len) {
    if (len == 0)
        return;
    const MutexGuard held(addressLock);
    std::snprintf(dst, len, "%s", pin);
    dst[len - 1] = '\0';
}

bool BluetoothSPPConnection::connect() {
    if (incoming)
        return false;
    if (isConnected())
        return true;
    unsigned char addr[AddressSize];
    {
        const MutexGuard held(addressLock);
        std::memcpy(addr, destAddr, sizeof addr);
    }
    if (!module || !module->connectSPP(connectionId, addr, static_cast<unsigned char>(destPort)))
        return false;
    timeval begin{};
    gettimeofday(&begin, nullptr);
    while (!isConnected()) {
        if (state == SPP_CONN_FAILED)
            return false;
        stateSemaphore.pend(StateWaitMs);
        if (isConnected())
            return true;
        if (state == SPP_CONN_FAILED || elapsedMs(begin) > ConnectLimitMs)
            return false;
    }
    return true;
}

bool BluetoothSPPConnection::listen() {
    SPP_CONN_STATUS before = state;
    if (incoming && (before == SPP_CONN_LISTENING || before == SPP_CONN_CONNECTED))
        return true;
    if (!incoming || !module || !module->listenSPP(connectionId))
        return false;
    // A call that the driver has reported meanwhile stands.
    state.compare_exchange_strong(before, SPP_CONN_LISTENING);
    return true;
}

bool BluetoothSPPConnection::disconnect() { return module && module->disconnectSPP(connectionId); }

void BluetoothSPPConnection::setConnectionState(SPP_CONN_STATUS status) {
    state = incoming && status != SPP_CONN_CONNECTED ? SPP_CONN_LISTENING : status;
    stateSemaphore.post();
}

int BluetoothSPPConnection::incomingData(const void* data, unsigned int len) {
    if (fifo.count() == bluetooth::SppFifo::Capacity)
        return 0;
    const unsigned stored = fifo.append(data, len);
    dataSemaphore.post();
    return static_cast<int>(stored);
}

int BluetoothSPPConnection::readData(void* buf, unsigned int len) {
    return static_cast<int>(fifo.take(buf, len));
}

int BluetoothSPPConnection::writeData(void const* buf, unsigned int len) {
    if (!isConnected() || !module)
        return 0;
    return module->sendSPPData(connectionId, buf, len) ? static_cast<int>(len) : 0;
}

int BluetoothSPPConnection::numInputPending(int timeoutMs) {
    if (fifo.count() == 0)
        dataSemaphore.pend(timeoutMs);
    return getFifoCnt();
}

bool BluetoothSPPConnection::isInputPending(int timeoutMs) {
    if (fifo.count() == 0)
        dataSemaphore.pend(timeoutMs);
    return fifo.count() > 0;
}

int BluetoothSPPConnection::flushInput() {
    fifo.clear();
    return 0;
}
