#pragma once

#include "io/SerialPort.h"

/// A serial port with an AT-command modem at its far end: collects the modem's answers and watches
/// for the end of a data call.
///
/// One driver owns it and serialises the calls with a lock of its own. What the modem sends is not
/// trusted: whatever it is, reading ends at the time-out or with a full buffer.
class ModemPort : public SerialPort {
public:
    /// The final result codes: indices into the tables below.
    enum Answer : int {
        None = -1,
        Ok = 0,
        Connect = 1,
        Ring = 2,
        NoCarrier = 3,
        Error = 4,
        NoAnswer = 5,
        CmsError = 6,
        CmeError = 7
    };

    /// The lines of the final result codes, ended by a null entry. The last two are the beginnings
    /// of lines that go on with a number. A ring is one of them on purpose: it ends whatever is
    /// being read.
    static const char* const modemAnswerStrings[];
    static const unsigned modemAnswerSizes[];  ///< the lengths of these texts

    ModemPort() = default;

    /// Opens the device as well; the port stays closed when that fails.
    explicit ModemPort(char const* devicePath) { open(devicePath); }

    ~ModemPort() override = default;

    /// Collects an answer until the line of a final result code is complete, `size` bytes have come
    /// or nothing comes for `timeoutMs` (negative: for ever); `lastAnswer` tells which code it was.
    /// The number of bytes stored. No NUL is added: the caller leaves room for one.
    /// With a null buffer the bytes are only counted, and no code ends the read.
    int read(char* buf, unsigned int size, int timeoutMs);

    /// Writes a text as it stands: the caller's text ends with the "\r" that the modem waits for.
    /// The result of writeData().
    int write(char const* text);

    /// Feeds one received byte to the watch for the line "NO CARRIER". True when it completes it.
    bool checkNoCarrier(char c);

    /// Reads and drops input for up to 5 seconds, in 50 waits. True as soon as the line has come;
    /// one that was cut by the end of an earlier wait counts.
    bool waitNoCarrier();

    /// What ended the last read(): an Answer.
    int lastAnswer = None;

private:
    unsigned int noCarrierPos = 0;  // leading bytes of the watched line that have come
};
