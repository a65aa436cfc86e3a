#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "sim/Clock.h"
#include "sim/Device.h"
#include "sim/Journal.h"
#include "sim/ServerThread.h"

namespace sim {

/// What is connected to the far end of a serial line.
class LinePeer {
public:
    /// Bytes from the application, on the line's own thread, with no lock of the line held.
    virtual void received(std::string_view bytes) = 0;

protected:
    ~LinePeer() = default;
};

/// A serial line: a device node whose opens are the application's end of a pseudo-terminal. What a
/// pseudo-terminal lacks is modelled: the full settings, the modem lines, breaks, and a drain that
/// waits until the far end has taken every byte.
///
/// Any thread may use the far end. The line's thread hands received bytes to the peer and does what
/// was asked for later. Bytes sent while nobody has the line open are lost, as on a wire.
class SerialLine : public Device {
public:
    static constexpr size_t MostWaiting = 256 * 1024;

    SerialLine(std::string name, Journal& journal);
    ~SerialLine() override;

    /// The peer stays until it is replaced or the line is closed down; once this has returned, the
    /// one before is not called any more.
    void connect(LinePeer* newPeer);

    /// Sends bytes to the application, now or after a delay of simulated time. What comes later is
    /// never sent before what was asked for earlier. Bytes that the application leaves no room for
    /// wait if it has asked for hardware flow control, and are lost otherwise. While more than
    /// `MostWaiting` bytes wait, nothing is taken from the application either.
    void send(std::string_view bytes, Nanoseconds delay = Nanoseconds(0));

    /// From now on everything arrives in pieces of at most `size` bytes, each `gap` of simulated
    /// time after the one before; 0: as it is sent.
    void fragment(size_t size, Nanoseconds gap = std::chrono::milliseconds(1));

    /// `change` may alter, shorten or lengthen whatever is sent to the application, or what is
    /// received from it. Called with the line's lock held; null for none any more.
    using Distortion = std::function<void(std::string& bytes)>;
    void distortSent(Distortion change);
    void distortReceived(Distortion change);

    /// The next `count` bytes sent to the application arrive with other bits. In place of any
    /// distortion.
    void garble(size_t count);

    /// Calls `action` on the line's thread, with no lock held, when the simulated monotonic clock
    /// has come to `due`; actions for the same moment in the order they were asked for. Not any
    /// more once the line has been shut down.
    void at(Nanoseconds due, std::function<void()> action);

    /// The far end goes away: a waiting application sees a hang-up, a new open gets a new line.
    void hangUp();

    /// The settings last applied, in the customary short form: "9600 8N1", with "rtscts" and
    /// "xonxoff" for the flow controls.
    std::string settings() const;
    termios attributes() const;

    /// Whether they have that speed, in bits per second. One that no line has is taken for it.
    bool isSetTo(int baud) const;

    int modemLines() const;  ///< TIOCM_ bits as the application sees them
    void setModemLine(int line, bool on);

    bool isOpen() const;

    /// Ends the line's thread. Called once, before the peer goes.
    void shutDown();

    std::shared_ptr<OpenFile> open(const std::string& path, int flags) override;

private:
    friend class SerialFile;

    struct Delayed {
        Nanoseconds due;  // simulated monotonic time
        std::string bytes;
    };

    void serve();
    bool createPair();
    void closePair();
    void wake() const;
    void enqueue(std::string bytes, Nanoseconds due);
    size_t transmit(std::string_view bytes);
    void discardSent(int nearEnd) const;
    void dropWaiting();
    Nanoseconds sendDue();
    Nanoseconds runDue(std::unique_lock<std::mutex>& held);
    void takeReceived(std::unique_lock<std::mutex>& held);

    const std::string name;
    Journal& journal;

    mutable std::mutex mutex;  // guards everything down to isStopping
    std::condition_variable consumed;
    LinePeer* peer = nullptr;
    std::deque<Delayed> outbox;
    size_t outboxBytes = 0;
    bool isHeldBack = false;  // the first of them wait for room
    size_t pieceSize = 0;     // 0: whole
    Nanoseconds pieceGap{0};
    Distortion sentChange, receivedChange;
    std::multimap<Nanoseconds, std::function<void()>> actions;  // by simulated monotonic time
    int farEnd = -1;
    int keeper = -1;  // holds the application's end open, so that its last close is no hang-up
    std::string nearPath;
    unsigned generation = 0;    // of the pair; opens of an older one are hung up
    int opens = 0;              // of the present pair
    bool isDelivering = false;  // to the peer, without the lock
    size_t writtenBytes = 0;    // or about to be; never less than have been consumed
    size_t consumedBytes = 0;
    termios lineSettings{};
    int modemBits = 0;
    bool isStopping = false;

    int wakeUp = -1;
    ServerThread server;
};

}  // namespace sim
