#pragma once

/// A stream socket that an application talks over: a TCP connection or a Bluetooth serial link.
///
/// One thread at a time uses an object. Destroying one does not close it: whoever connects it calls
/// close() first.
class Socket {
public:
    Socket() = default;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Connects to a peer. False when that fails.
    virtual bool connect(const char* host, int port) = 0;

    /// What it gives for a socket that is not connected is each implementation's own.
    virtual bool close() = 0;

    /// Sends `len` bytes. True when it succeeded.
    virtual bool writeData(unsigned char* buf, unsigned int len) = 0;

    /// The number of bytes received, up to `len`; 0 on time-out, failure or an orderly end.
    virtual int readData(unsigned char* buf, unsigned int len) = 0;

    /// Bytes that can be read at once, 0 if that cannot be told.
    virtual int getPendingInput() = 0;

    /// How long writeData() and readData() may block, in milliseconds. False when that is refused.
    virtual bool setTimeouts(int sendTimeoutMs, int receiveTimeoutMs) = 0;

    /// How an idle connection is probed: after how many seconds, every how many, and how often
    /// without an answer until it counts as broken. False when that is refused.
    virtual bool setKeepalive(int idleSeconds, int intervalSeconds, int count) = 0;

    /// Whether there is a peer.
    virtual bool isConnected() = 0;

    virtual ~Socket() = default;
};
