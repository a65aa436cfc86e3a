#pragma once

#include "io/Socket.h"

/// A TCP client over IPv4.
///
/// One thread at a time uses an object. Its destructor leaves an open socket open: the owner calls
/// close() first, also after a worker was cancelled in one of these calls.
class TcpSocket : public Socket {
public:
    /// Connects to the first address of `host`; no other is tried. An open socket is closed first.
    /// False, with the socket closed, when the name cannot be resolved or the peer not reached.
    /// Blocks as the resolver does, then at most for the send time-out.
    bool connect(const char* host, int port) override;

    /// False when there is no open socket, or the system reports an error; it is closed then too.
    bool close() override;

    /// One send. True when all of it was taken at once: after a false an unknown part of it has
    /// been sent. A broken connection gives false, not a signal. Blocks up to the send time-out.
    bool writeData(unsigned char* buf, unsigned int len) override;

    /// One receive. Blocks up to the receive time-out.
    int readData(unsigned char* buf, unsigned int len) override;

    int getPendingInput() override;

    /// Bytes written and not yet acknowledged, 0 if that cannot be told.
    int getPendingOutput();

    /// 30 seconds each until set; 0 waits for ever. Kept for every later connect(). False when an
    /// open socket refuses them.
    bool setTimeouts(int sendTimeoutMs, int receiveTimeoutMs) override;

    /// Has the system probe an idle connection: after `idleSeconds`, every `intervalSeconds`, and
    /// take it for broken after `count` probes without an answer. False when there is no open
    /// socket, and at the first value that it refuses; those before it stay set.
    bool setKeepalive(int idleSeconds, int intervalSeconds, int count) override;

    /// True while the peer's address is known. An end that the peer has announced shows in
    /// readData(), not here.
    bool isConnected() override;

private:
    int request(unsigned long number);

    int sock = -1;
    int receiveTimeout = 30000;  // milliseconds
    int sendTimeout = 30000;     // milliseconds
};
