#pragma once

#include <atomic>

#include "bluetooth/BluetoothModule.h"
#include "bluetooth/SppFifo.h"
#include "foundation/Mutex.h"
#include "foundation/Semaphore.h"
#include "io/SerialPortInterface.h"

/// A serial link over Bluetooth (Serial Port Profile) as a byte stream. An outgoing one calls a
/// remote device, an incoming one waits on a local port for a device's call.
///
/// The module's factory makes and deletes it; the module outlives it. One application thread uses
/// it; the module's driver delivers data and state changes, on whichever thread serves the module
/// just then, through a FIFO of 1023 bytes that takes no lock. What finds no room there is dropped,
/// the oldest bytes stay.
///
/// Deleting it disconnects and deregisters it, and takes as long as the driver's disconnecting.
class BluetoothSPPConnection final : public SerialPortInterface {
public:
    static constexpr unsigned AddressSize = 6;  ///< bytes

    /// Not registered yet. The module is not owned.
    BluetoothSPPConnection(BluetoothModule* boundModule, bool isIncoming)
        : incoming(isIncoming), module(boundModule) {}
    BluetoothSPPConnection(const BluetoothSPPConnection&) = delete;
    BluetoothSPPConnection& operator=(const BluetoothSPPConnection&) = delete;
    ~BluetoothSPPConnection();

    /// Not offered: false.
    bool reOpen() override { return false; }

    /// True, whatever has become of the link: see isConnected().
    bool isPortOpen() override { return true; }

    /// Takes up to `len` bytes out of the FIFO, without waiting. Their number.
    int readData(void* buf, unsigned int len) override;

    /// `len` when all of it was sent; 0 when not connected or the module refuses, the packet module
    /// perhaps after it has sent the beginning.
    int writeData(void const* buf, unsigned int len) override;

    /// With an empty FIFO both wait for data, up to `timeoutMs` (0 or less: not at all). Data that
    /// comes in just before the wait begins does not end it early: it is there after the time-out.
    int numInputPending(int timeoutMs) override;
    bool isInputPending(int timeoutMs) override;

    /// Drops what is in the FIFO. 0.
    int flushInput() override;

    /// Nothing is kept back: 0.
    int flushOutput() override { return 0; }

    /// Nothing is kept back: 0.
    int drainOutput() override { return 0; }

    /// Takes a slot of the module. False when there is none free or no module.
    bool registerSPP();

    /// The device to call: 17 characters of text such as "00:1A:7D:DA:71:13", whose separators may
    /// be any, or else 6 bytes, the most significant first. False on an incoming connection and
    /// when a digit of a text is none, which leaves the bytes before it changed.
    ///
    /// Only the length tells a text: any other one is taken for 6 bytes. A byte that no text has
    /// in place of one of its first digits is enough to tell that it is none; the bytes behind the
    /// six are looked at only as long as there was no such byte.
    bool setDestAddr(const unsigned char* addr);

    /// False on an incoming connection, and while no address is set. 6 bytes.
    bool getDestAddr(unsigned char* out);

    /// The remote port, 0 to 7. False for another, and on an incoming connection.
    bool setDestPort(int port);
    int getDestPort() { return destPort; }  ///< 0 until set

    /// The local port of an incoming connection, or the link's number as the driver knows it.
    /// 0 to 7; false for another.
    bool setLocalPort(int port);
    int getLocalPort() { return localPort; }  ///< 0 until set

    /// Up to 16 characters; false for more.
    bool setPin(const char* pin);

    /// Copies the PIN into `len` bytes; the last of them becomes NUL, whatever the length.
    void getPin(char* dst, unsigned int len);

    /// Calls the device and waits until the link is up, or has failed, or for more than 20 seconds
    /// (in waits of up to 10). True at once when it is up. False on an incoming connection.
    ///
    /// A failure that the driver has reported earlier counts until it reports something else.
    bool connect();

    /// Waits for calls from now on; returns at once. False on an outgoing connection.
    bool listen();

    /// Asks the module to end the link. The state changes when the driver reports it.
    bool disconnect();

    /// Whether the link is up, as far as the driver has reported.
    bool isConnected() { return state == SPP_CONN_CONNECTED; }

    /// How many bytes have come and were not read.
    int getFifoCnt() { return static_cast<int>(fifo.count()); }

    // For the driver, through its module.

    /// Stores the state and wakes whoever waits for it. An incoming connection that is not
    /// connected is listening again, whatever the driver says.
    void setConnectionState(SPP_CONN_STATUS status);

    /// Appends to the FIFO and wakes whoever waits for data. The number of bytes that found room.
    int incomingData(const void* data, unsigned int len);

private:
    const bool incoming;
    Semaphore dataSemaphore;
    BluetoothModule* const module;
    int connectionId = -1;  // the module's slot

    Mutex addressLock;  // guards destAddr and pin: the driver asks for them as well
    unsigned char destAddr[AddressSize] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};  // none

    std::atomic<int> destPort{0};
    std::atomic<int> localPort{0};
    char pin[BluetoothModule::PinSize] = {};
    Semaphore stateSemaphore;
    std::atomic<SPP_CONN_STATUS> state{SPP_CONN_IDLE};
    bluetooth::SppFifo fifo;
};
