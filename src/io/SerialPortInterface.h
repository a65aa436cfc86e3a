#pragma once

/// A byte stream that a modem, scanner or Bluetooth driver talks over: a serial port or a Bluetooth
/// serial link. Drivers hold one by this interface and never destroy it through it.
class SerialPortInterface {
public:
    /// Opens the stream again after a hang-up. False when that fails.
    virtual bool reOpen() = 0;

    /// What it tells is each implementation's own.
    virtual bool isPortOpen() = 0;

    /// Moves up to `len` bytes. The number of bytes moved, or -1.
    /// @{
    virtual int readData(void* buf, unsigned int len) = 0;
    virtual int writeData(void const* buf, unsigned int len) = 0;
    /// @}

    /// Waits up to `timeoutMs` (0: only tests; less: as each implementation says) for input.
    /// The number of bytes that can be read at once; 0 on time-out, failure or hang-up.
    virtual int numInputPending(int timeoutMs) = 0;

    /// The same wait; true when there is input.
    virtual bool isInputPending(int timeoutMs) = 0;

    /// Discards what has arrived and was not read, or was written and not sent. 0 on success.
    /// @{
    virtual int flushInput() = 0;
    virtual int flushOutput() = 0;
    /// @}

    /// Waits until everything written has been sent. 0 on success.
    virtual int drainOutput() = 0;

protected:
    ~SerialPortInterface() = default;
};
