#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Journal.h"
#include "sim/SerialLine.h"
#include "sim/devices/RadioCommands.h"
#include "sim/devices/RadioMux.h"
#include "sim/devices/RadioPpp.h"
#include "sim/devices/Reply.h"

namespace sim {

/// The radio module on its serial line. It powers up and down by its lines, answers commands, and
/// multiplexes once it is told to: then channel 1 and the others take commands, and channel 2 takes
/// them too until it hears anything else, or has dialled: from then on it carries data. A data call
/// ends when the other side terminates its PPP link, and is left for commands, to be hung up with
/// "ATH" or by dialling anew, by "+++" with a second of silence before and after.
///
/// By itself it has a card that asks for the PIN "1234", a good signal, registers two seconds after
/// the PIN, and sends data back to where it came from. A data terminal's own numbers are used:
/// frames carry at most 31 octets.
///
/// Any thread may use it. Hooks are called on the thread at work, with the module's lock held: they
/// may use the module, and must not wait.
class RadioModule final : public LinePeer, private RadioMux::User {
public:
    RadioModule(Journal& journal, SerialLine& line);

    SerialLine& line() { return serialLine; }

    // ---- Power. The lines' levels, as the power control drives them.

    void setSupply(bool nowOn);   ///< needed to power up, and to be heard
    void setControl(bool level);  ///< low: forced off
    void setReset(bool level);    ///< starts anew when it falls
    void setPowerKey(bool level);
    void setDtr(bool level);  ///< low: raised
    int readStatus();         ///< 1 while it is on

    /// The module answers the `count`th long enough pulse of its power key from now; 0: none.
    void answerPulse(int count);

    /// It takes `count` readings of the status line until a module told to go off is off; negative:
    /// for ever.
    void lingerFor(int count);

    void setOn(bool nowOn);  ///< at once, ready to answer
    bool isOn() const;

    /// From power-up until it hears commands. Half a second by itself.
    void setBootTime(Nanoseconds time);

    // ---- Commands.

    /// What is asked of a hook after it has been made.
    class Hook {
    public:
        Hook& times(int count);  ///< only for the next `count` matches

    private:
        friend class RadioModule;
        Hook(RadioModule& owner, std::shared_ptr<ReplyRule> hookRule);
        RadioModule& module;
        std::shared_ptr<ReplyRule> rule;
    };

    /// Answers `command` with `reply`: the whole command line, or its beginning and "*". The
    /// first hook that matches and is not used up counts.
    Hook onCommand(const std::string& command, Reply reply);
    void failNext(const std::string& command) { onCommand(command, Reply::error()).times(1); }
    void clearHooks();

    void setAnswerTime(Nanoseconds time);  ///< for every command; 10 ms by itself

    /// Deaf and dumb until told otherwise, in whatever mode.
    void setSilent(bool silent);

    /// An unsolicited line such as "RING" on every channel that takes commands, now or later.
    void sayUnasked(const std::string& text, Nanoseconds delay = Nanoseconds(0));

    /// Any bytes on the serial line.
    void transmit(const std::string& bytes, Nanoseconds delay);

    // ---- SIM and network.

    void setSim(RadioSim::State state);
    void setPin(const std::string& pin, const std::string& puk);
    RadioSim simCard() const;
    void setCoverage(RadioNetwork::Coverage coverage);
    void setRegistrationTime(Nanoseconds time);
    void setSignal(int dBm);
    int signal() const;        ///< in dBm
    int registration() const;  ///< as in "+CREG:"
    bool isAttached() const;

    // ---- Data.

    using DataPeer = std::function<void(uint8_t channel, std::string_view bytes)>;

    /// Takes the data of channels that carry it; null: sends it back.
    void onData(DataPeer peer);
    void sendData(uint8_t channel, std::string_view bytes);
    /// Ends a data call from the network's side: "NO CARRIER".
    void dropCall();
    bool isOnline(uint8_t channel) const;  ///< and not left for commands

    // ---- Multiplexer. Channel 0 to 4.

    bool isMultiplexing() const;
    bool isChannelOpen(uint8_t channel) const;

    /// Sees every frame that arrives whole; true: it has dealt with it, and the module does not.
    void onFrame(std::function<bool(const RadioFrame&)> hook);

    void recordFrames(bool record = true);  ///< from now on; forgets earlier ones
    std::vector<RadioFrame> frames() const;

    void refuseChannel(uint8_t channel, bool refused = true);  ///< answers SABM with DM
    void sendFrame(const RadioFrame& frame);
    void sendMessage(uint8_t type, std::string_view value);  ///< on the control channel
    void openChannel(uint8_t channel);
    void closeChannel(uint8_t channel);
    void closeDown();

    void received(std::string_view bytes) override;

private:
    static constexpr uint8_t PlainLine = 0;  // as a channel: the line without multiplexing
    static constexpr uint8_t DataChannel = 2;

    struct Channel {
        enum Mode { Commands, Either, Data, Held };  // Held: commands during a data call
        Mode mode = Commands;
        std::string pending;  // the beginning of a command line
        RadioPpp ppp;
        Nanoseconds lastData{0};
        Nanoseconds busyUntil{0};
    };

    using Lock = std::lock_guard<std::recursive_mutex>;

    // Power
    void powerUp();
    void powerDown(const char* how);
    void restart();
    bool isListening() const;

    // Commands
    void take(uint8_t channel, std::string_view bytes);
    void takeCommands(uint8_t channel, std::string_view bytes);
    void execute(uint8_t channel, const std::string& command);
    Reply replyTo(const std::string& command);
    void answer(uint8_t channel, const Reply& reply, Nanoseconds delay);
    void act(uint8_t channel, const RadioCommands::Answer& normal);
    void say(uint8_t channel, std::string_view bytes);
    void at(Nanoseconds due, std::function<void()> action);
    void later(Nanoseconds delay, std::function<void()> action);
    void announce();
    bool hasCall(uint8_t channel) const;
    void takeData(uint8_t channel, std::string_view bytes);
    void endCall(uint8_t channel);
    void hangUpCall(uint8_t channel);

    // Multiplexer
    void startMultiplexing(unsigned longestInformation);
    void channelOpened(uint8_t channel) override;
    void channelClosed(uint8_t channel) override;
    void channelData(uint8_t channel, std::string_view bytes) override;
    void multiplexingEnded() override;
    void transmit(std::string_view bytes) override;
    void note(const std::string& text) override;

    Journal& journal;
    SerialLine& serialLine;

    mutable std::recursive_mutex mutex;  // guards everything below
    RadioCommands commands;
    RadioMux mux{*this};
    std::array<Channel, RadioMux::Channels> channels;
    std::vector<std::shared_ptr<ReplyRule>> rules;
    DataPeer dataPeer;
    std::function<bool(const RadioFrame&)> frameHook;
    std::vector<RadioFrame> recorded;
    bool isRecording = false;
    Nanoseconds answerTime;
    Nanoseconds bootTime;
    bool isSilent = false;
    bool multiplexing = false;
    unsigned session = 0;  // changes when what was to be done later is off

    bool on = false;
    bool goingOff = false;
    bool isSupplied = false;
    bool isEnabled = true;
    bool resetLevel = false;
    bool keyLevel = false;
    bool dtrLevel = false;
    int pulsesLeft = 1;
    int readingsLeft = 0;
    Nanoseconds keyDownSince{0};
    Nanoseconds readyAt{0};
};

}  // namespace sim
