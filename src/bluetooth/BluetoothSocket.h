#pragma once

#include "io/Socket.h"

class BluetoothConnection;
class BluetoothSPPConnection;

/// A serial link to a remote device as a socket, over the module of a BluetoothConnection, which
/// outlives it. One thread at a time uses it.
///
/// The link is made by the first connect() and kept until close(), connected or not. Destroying the
/// socket does not close it: close() comes first.
class BluetoothSocket : public Socket {
public:
    /// Connects nothing yet. The connection is not owned.
    explicit BluetoothSocket(BluetoothConnection* owningConnection) : owner(owningConnection) {}

    /// Without a PIN, on the remote port 0 whatever the port given: the module finds the serial
    /// port service by itself.
    bool connect(const char* addr, int port) override;

    /// Connects to the device `addr` (text or 6 bytes, see BluetoothSPPConnection). A link that is
    /// there already is tried again as it is: the arguments are not looked at then. False without
    /// owner, when an argument is refused, no link is free, or the call fails. Takes seconds.
    bool connect(const unsigned char* addr, int port, const char* pin);

    /// Ends the link, if there is one. True.
    bool close() override;

    /// True when the bytes were sent, all of them. False when not connected, when the module
    /// refuses (the text module more than 124 bytes), and for 0 bytes.
    bool writeData(unsigned char* buf, unsigned int len) override;

    /// Waits up to a second for the first byte. 0 also when not connected.
    int readData(unsigned char* buf, unsigned int len) override;

    /// Cannot be told: 0.
    int getPendingInput() override { return 0; }

    /// Not used. True.
    bool setTimeouts(int /*sendTimeoutMs*/, int /*receiveTimeoutMs*/) override { return true; }

    /// Kept, not used. True.
    bool setKeepalive(int idleSeconds, int intervalSeconds, int count) override;

    /// Whether there is a link and it is up.
    bool isConnected() override;

private:
    BluetoothSPPConnection* connection = nullptr;  // released through the owner's module
    BluetoothConnection* const owner;
    int keepalive = 0;  // kept, not used
};
