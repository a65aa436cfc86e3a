#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bluetooth/BluetoothModule.h"
#include "bluetooth/BluetoothPort.h"
#include "bluetooth/ExchangeLock.h"

/// The driver of a Bluetooth module that takes commands as text on a serial line.
///
/// In text mode the line carries nothing else. In MUX mode commands, answers and the data of up to
/// nine serial links share it in frames; that mode is needed for data, and is also entered when the
/// module begins an answer with a frame by itself.
///
/// Any thread may call the operations: each holds the driver's lock from its command to the end of
/// the answer, and link data that comes in meanwhile reaches its connection from there. The
/// module's reader thread polls for data only when it starts and after each successful
/// sendSPPData(); otherwise data waits in the line for the next command or write. An operation
/// takes as long as its answer, up to the time-out it names, and before that waits for the lock.
///
/// What an application sees of the way answers are read, and lives with:
/// - An answer in several pieces is looked at from its beginning with each of them, until a final
///   line, a bad frame, a full buffer or silence ends it. In MUX mode the link data in it is
///   delivered again each time: of frames A and B that come one after the other, each within the
///   time-out of the last, the link's FIFO gets A, A, B. It does not as long as the last final line
///   was one of the table: that ends the reading after each piece. Protocols on a link have to
///   tell repetitions. The text of an answer that comes in pieces is repeated, too: a scan may then
///   name a device twice or a mangled one, and an address or a link's number may be wrong.
/// - Data for a link that no connection has is dropped, and so is what is left of a frame that does
///   not come whole within the time-out or the buffer of 1024 bytes; what comes together with the
///   rest of such a frame may be.
/// - A write wakes the reader for one poll of 250 ms. What comes later waits in the line; so does
///   everything when the wake-up was lost, as it is while the reader is between a poll and its
///   sleep. Whoever expects data that does not come writes again, or asks with ping().
/// - A link that the other side ends is not reported: the connection stays connected.
/// - A connection that has not been connected yet counts as link 0, for incoming data and for
///   disconnectSPP().
/// - A failed open() leaves the driver's lock held, so that every later operation waits for ever.
///
/// No incoming connections: listenSPP() and addSDPRecord() refuse.
class BlueGigaBluetoothModule : public BluetoothModule {
public:
    /// How an answer has ended.
    enum Answer : int {
        ANSWER_NONE = 0,  ///< without a final line
        ANSWER_OK = 1,
        ANSWER_ERROR = 2
    };

    /// A line that ends an answer.
    struct FinalLine {
        const char* text;  ///< its beginning; null in the last entry
        int type;          ///< an Answer
    };

    /// The final lines in the order they are looked for, ended by one of type ANSWER_NONE.
    static const FinalLine answers[];

    /// The current module from now on. The line is opened by open().
    explicit BlueGigaBluetoothModule(const char* device);

    /// Stops the reader and closes the line. Takes no lock that a failed open() has left held.
    ~BlueGigaBluetoothModule() override;

    /// Opens the line and starts the reader. False when it is open already, and when it cannot be
    /// opened; the latter is for good.
    bool open() override;

    /// Closes the line and stops the reader. True also when it is not open. The mode stays.
    bool close();

    /// The same as close().
    bool shutdown() override { return close(); }

    /// Only kept. True.
    bool setEnabled(bool enabled) override;

    // ---- The channel. To be called with the driver's lock held, but for the two frame functions.

    /// Sends a command or, in MUX mode, the payload of a frame for `link`, of up to 124 bytes. In
    /// text mode a carriage return follows, and the link does not matter. True when all was
    /// written.
    bool writeCommand(const char* data, unsigned int len, int link);

    /// Reads until a final line has come, or nothing for `timeoutMs`; link data is delivered.
    /// Appends the answer without the final line to `out`, unless that is null. False when nothing
    /// has come.
    bool readAnswer(std::string* out, int timeoutMs);

    /// Looks for a final line, which stands before the last two bytes of the text, and notes its
    /// type. Its length with those two; 0 for none.
    unsigned int setAnswerType(const char* text, unsigned int len);

    /// How the last answer has ended; ANSWER_NONE before the first and without a line.
    int getAnswerType() override;

    /// Lays out a frame in `buf`, which holds one byte more than `bufSize`: the longest payload is
    /// bufSize - 4, and its trailer goes there. The frame's length; 0 when the payload is too long.
    static unsigned int createMuxFrame(char* buf, unsigned int bufSize, const char* data,
                                       unsigned int len, int link);

    /// Takes the frames out of buf[pos] to buf[end - 1]: link data is delivered, the text of the
    /// command link appended to `out` (which may be null) without its final line. Where the last
    /// frame has ended; 0 at a frame with a bad link or trailer, and at a link's that is not there
    /// as a whole. One of the command link counts then as filled up with zero bytes, and ends
    /// behind `end`. Without a frame: pos.
    unsigned int parseMuxFrame(std::string* out, char* buf, unsigned int pos, unsigned int end);

    /// Waits for the driver's lock; for ever after a failed open().
    void lock() { driverLock.lock(); }

    /// Lets go of it.
    void unlock() { driverLock.unlock(); }

    // ---- The module's operations.

    bool enableMUX() override;   ///< 1 s
    bool disableMUX() override;  ///< 1 s

    /// Reads and delivers what is there or comes within the time-out.
    void pollIncomingData(int timeoutMs) override;

    /// Waits for the module's start-up banner, up to five times 1 s.
    bool isAlive() override;

    /// The module answers a setting with nothing, or with the line itself while it echoes; 1 s. In
    /// text mode the first two succeed only without an echo and setLAP() only with one, so that
    /// connectSPP(), which begins with them, fails there while the module echoes.
    /// @{
    bool disableEcho() override;
    bool setAuth(char* pin) override;
    bool setLAP(const char* lap) override;
    /// @}

    /// "00:07:80:12:34:56"; empty when the module does not tell. 1 s.
    std::string getLocalMac() override;

    /// The module's own text; 1 s, or until a second has passed without more of it.
    std::string getVersion() override;

    /// The module's own list of its links, as text; until a second has passed without more of it.
    std::string queryActiveConnections();

    /// Asks for the first link that answers. 1 s for each that does not. False without links.
    bool ping() override;

    /// The weakest of the connected links in dBm, plus 100; -28 without any. 250 ms for each.
    int getSignalStrength() override;

    /// Calls the serial port service of a device, whatever the port: 1 s and 5 s. The connection is
    /// connected before this returns.
    bool connectSPP(int id, unsigned char* addr, unsigned char port) override;

    /// Ends the link of a connection. 5 s. True when the module says so; the state of the
    /// connection stays.
    bool disconnectSPP(int id) override;

    /// Refused: no incoming connections.
    bool listenSPP(int /*id*/) override { return false; }

    /// Refused: no service records.
    bool addSDPRecord(int /*id*/, void* /*record*/, unsigned int /*size*/) override {
        return false;
    }

    /// Sends data on a connection's link: all of it, up to 124 bytes, or nothing.
    bool sendSPPData(int id, const void* data, unsigned int len) override;

    /// The devices in reach, in the order found. Some names may be missing. Takes 10 seconds and
    /// more, unless there are none.
    std::vector<Device> scanDevices() override;

private:
    using ExchangeGuard = LockGuard<bluetooth::ExchangeLock>;

    enum class Exchanged { NotWritten, Unanswered, Answered };
    enum Which { AnyLink, ConnectedLink };

    Exchanged exchange(const std::string& command, std::string& answer, int timeoutMs);
    std::string exchangeLong(const std::string& command, int timeoutMs);
    bool setting(const std::string& command);
    void takeText(std::string* out, const char* text, unsigned int len);
    void deliver(unsigned int link, char* data, unsigned int len);
    BluetoothSPPConnection* connectionAt(int id);
    std::optional<int> linkAt(int id, Which which);

    const std::string device;
    // Null while closed. Changed under driverLock, atomically; so it is read without the lock.
    std::shared_ptr<BluetoothPort> port;
    std::atomic<bool> enabled{true};  // kept, not used
    std::atomic<bool> isMuxOn{false};
    bluetooth::ExchangeLock driverLock;  // one exchange at a time; taken before registryLock
};
