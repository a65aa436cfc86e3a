#pragma once

#include <termios.h>

#include <atomic>
#include <string>

#include "io/SerialPortInterface.h"

enum S_PARITY_CONTROL : int { S_PARITY_NONE = 0, S_PARITY_ODD = 1, S_PARITY_EVEN = 2 };

enum S_FLOW_CONTROL : int {
    S_FLOW_NONE = 0,
    S_FLOW_SOFTWARE = 1,  ///< XON/XOFF
    S_FLOW_HARDWARE = 2,  ///< RTS/CTS
    S_FLOW_BOTH = 3
};

/// A byte stream over a POSIX terminal device such as "/dev/ttyAT2".
///
/// One driver owns a port. A reader and a writer thread may use readData(), writeData() and the
/// waits for input at the same time; every other call belongs to the owner, who stops those threads
/// before close(), open() and reOpen(). Nothing throws, logs or retries.
///
/// A freshly opened port stands at speed 0, odd parity, two stop bits and both flow controls: the
/// owner calls every setter after open(). The settings stay with the object and are applied again
/// by every later open() and reOpen().
class SerialPort : public SerialPortInterface {
public:
    SerialPort() = default;
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    /// Closes an open port.
    virtual ~SerialPort();

    /// Opens `devicePath` and remembers it for reOpen(), also when opening fails. An open port is
    /// closed first, but without the steps of close(): with hardware flow control on and bytes
    /// unsent that may block. False when the device cannot be opened.
    bool open(char const* devicePath);

    /// Closes the port, as open() does, and opens the same device again with the settings it had.
    /// False when that fails; the port then counts as hung up.
    bool reOpen() override;

    /// Releases the device with hardware flow control off, so that the close cannot block, and both
    /// queues emptied. True when the system closed it. A reOpen() restores the settings.
    bool close();

    /// Applies the default settings the first time, the kept ones later; then makes reads and
    /// writes block. Called by every successful open.
    void initConfig();

    /// Sets both directions to `baud` bit/s: 110, 300, 600, 1200, 2400, 4800, 9600, 19200, 38400,
    /// 57600 or 115200. False, with nothing changed, for any other rate.
    bool setSpeed(unsigned long baud);

    /// Each setter returns true after applying the setting, and false for a value it does not know.
    /// After a false nothing was applied, but the field stands cleared in the kept settings: the
    /// next setter that succeeds applies it cleared (5 bits, 1 stop bit, no parity, no flow
    /// control).
    /// @{
    bool setParity(S_PARITY_CONTROL parity);
    bool setCharBits(int bits);  ///< 5 to 8
    bool setStopBits(int bits);  ///< 1 or 2
    bool setFlowControl(S_FLOW_CONTROL flow);
    /// @}

    bool getCTS();         ///< false also when the line cannot tell
    void setRTS(bool on);  ///< without effect where the line has none
    void setDTR(bool on);  ///< likewise
    void sendBreak();      ///< takes a quarter to half a second

    /// Asks the line once more and remembers a hang-up. False once the line was seen hung up or was
    /// closed. On a line that is quiet and healthy it is false too: only an error condition without
    /// a hang-up gives true. A subclass asks isHungUp().
    bool isPortOpen() override;

    /// One read() or write(), its result unchanged: bytes moved, or -1. Blocks like the call.
    /// @{
    int readData(void* buf, unsigned int len) override;
    int writeData(void const* buf, unsigned int len) override;
    /// @}

    /// How many bytes can be read at once; 1 when there is input that the device cannot count, 0 on
    /// time-out, failure or hang-up. A negative time-out waits for ever, but not on a closed port.
    /// A signal starts the whole time-out again: an interruption does not reach a worker that waits
    /// here. A hang-up is remembered until the port is opened again.
    int numInputPending(int timeoutMs) override;

    /// The same wait. True when there is input, and on an error condition without a hang-up.
    bool isInputPending(int timeoutMs) override;

    int flushInput() override;
    int flushOutput() override;
    int drainOutput() override;

protected:
    /// The line has been seen hung up, or the port was closed: waits for input may return at once.
    bool isHungUp() const { return hungUp; }

private:
    bool openDevice();
    void closeDescriptor();
    short pollFor(short events, int timeoutMs);
    void setModemLine(int line, bool on);
    bool apply();
    void loadSettings();
    bool refuse();

    // Written by the owner, read by reader and writer threads as well.
    std::atomic<int> descriptor{-1};

    std::string path;  // as last given to open()
    std::atomic<bool> hungUp{false};
    bool configured = false;
    termios settings{};      // as last applied, but for a field cleared since
    bool unapplied = false;  // there is such a field
};
