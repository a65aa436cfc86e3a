#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace sim {

/// One frame of the multiplexing protocol, without flags and check sequence.
struct RadioFrame {
    uint8_t channel = 0;
    uint8_t control = 0;  ///< with the poll/final bit
    bool commandBit = false;
    std::string data;
};

/// The radio module's end of 3GPP TS 27.010 in the basic option. It is the responding station and a
/// full peer on every channel: it answers what the standard has it answer, keeps to flow control,
/// and takes no frame longer than agreed. Its owner calls it under one lock of its own.
class RadioMux {
public:
    static constexpr uint8_t Channels = 5;  // 0 is the control channel

    /// What the multiplexer serves.
    class User {
    public:
        virtual void channelOpened(uint8_t channel) = 0;
        virtual void channelClosed(uint8_t channel) = 0;
        virtual void channelData(uint8_t channel, std::string_view bytes) = 0;
        virtual void multiplexingEnded() = 0;
        virtual void transmit(std::string_view bytes) = 0;
        virtual void note(const std::string& text) = 0;

    protected:
        ~User() = default;
    };

    explicit RadioMux(User& served) : user(served) {}

    /// Begins anew, all channels closed.
    void start(unsigned longestInformation);
    void received(std::string_view bytes);

    bool isOpen(uint8_t channel) const { return channels.at(channel).isOpen; }

    /// The data of an open channel, in frames as long as agreed; kept back while the other side
    /// asks for it. On a closed channel it is lost.
    void sendData(uint8_t channel, std::string_view bytes);

    /// Any frame, as it stands.
    void sendFrame(const RadioFrame& frame);

    /// A message on the control channel: type, length and value.
    void sendMessage(uint8_t type, std::string_view value);

    void open(uint8_t channel);   ///< sends SABM
    void close(uint8_t channel);  ///< sends DISC
    void closeDown();             ///< tells the other side that multiplexing ends
    void refuse(uint8_t channel, bool refused) { channels.at(channel).isRefused = refused; }

    /// Sees every frame that arrives whole; true: it has dealt with it.
    std::function<bool(const RadioFrame&)> frameHook;

    static std::string encode(const RadioFrame& frame);

private:
    struct Channel {
        bool isOpen = false;
        bool isRefused = false;
        bool isOpening = false;  // by our own SABM
        bool isHeld = false;     // the other side does not take data
        std::string waiting;
    };

    size_t takeFrame(std::string_view bytes);
    void handle(const RadioFrame& frame);
    void handleUnnumbered(const RadioFrame& frame, Channel& channel);
    void handleInformation(const RadioFrame& frame);
    void handleMessages(std::string_view messages);
    void handleMessage(uint8_t type, std::string_view value);
    void holdChannel(std::string_view modemStatus);
    void sendWaiting();
    void setOpen(uint8_t channel, bool open);
    void respond(uint8_t channel, uint8_t control, bool final);
    void end();

    User& user;
    std::array<Channel, Channels> channels;
    std::string pending;  // the beginning of a frame
    unsigned mostInformation = 31;
    bool isActive = false;
    bool allHeld = false;
};

}  // namespace sim
