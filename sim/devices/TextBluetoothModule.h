#pragma once

#include <climits>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Journal.h"
#include "sim/SerialLine.h"
#include "sim/devices/BluetoothAir.h"
#include "sim/devices/Reply.h"

namespace sim {

/// The Bluetooth module with text commands on its serial line. It starts with a banner a second
/// after it has been powered or reset, echoes command lines, answers them, and packs everything
/// into frames once it is told to: then there is no echo, and links carry data. It takes every call
/// from the air, and announces it.
///
/// Any thread may use it.
class TextBluetoothModule final : public LinePeer, private BluetoothAir::Module {
public:
    static constexpr int MostLinks = 7;  // numbered from 0

    TextBluetoothModule(Journal& journal, SerialLine& line, BluetoothAir& air);

    SerialLine& line() { return serialLine; }

    // ---- Power. The levels, as the power control drives them.

    void setSupply(bool nowOn);
    void setEnable(bool level);
    void setReset(bool level);  ///< held while high; starts anew when it falls

    void setBootTime(Nanoseconds time);

    // ---- Commands.

    /// Answers the next `times` lines `command` with `reply`: the whole line, or its beginning and
    /// "*". The first rule that matches and is not used up counts.
    void onCommand(const std::string& command, Reply reply, int times = INT_MAX);
    void clearHooks();

    void setAnswerTime(Nanoseconds time);   ///< for every command; 10 ms by itself
    void setInquiryTime(Nanoseconds time);  ///< a second by itself
    void setSilent(bool silent);            ///< deaf and dumb until told otherwise

    void sayUnasked(const std::string& line);
    void transmit(std::string_view bytes) { serialLine.send(bytes); }  ///< as they are
    void sendFrame(uint8_t link, std::string_view payload);

    bool isReady() const;
    bool isMultiplexing() const;
    std::string pin() const;         ///< as the host has set it
    std::string accessCode() const;  ///< likewise
    std::vector<int> links() const;  ///< the numbers of those that are up

    void received(std::string_view bytes) override;

private:
    struct Answer {
        std::string lines;  // separated by '\n'
        Nanoseconds delay{0};
        std::function<void()> then = nullptr;  // done when they have been sent
    };
    struct Command;
    static const Command Commands[];

    using Lock = std::lock_guard<std::recursive_mutex>;

    // Power and line
    void powerChanged();
    void start();
    void stop();
    void at(Nanoseconds due, std::function<void()> action);

    // Channel
    size_t takeFrame(std::string_view bytes);
    void execute(const std::string& command);
    Reply replyTo(const std::string& command);
    void send(const std::string& bytes);
    void sendLines(const std::string& lines) { send(lineBytes(lines)); }
    std::string lineBytes(const std::string& lines) const;

    // Commands: what follows the command's name.
    Answer showSettings(const std::string& rest);
    Answer setEcho(const std::string& rest);
    Answer setMux(const std::string& rest);
    Answer setPin(const std::string& rest);
    Answer setAccessCode(const std::string& rest);
    Answer showVersion(const std::string& rest);
    Answer listLinks(const std::string& rest);
    Answer inquire(const std::string& rest);
    Answer call(const std::string& rest);
    Answer closeLink(const std::string& rest);
    Answer pingLink(const std::string& rest);
    Answer readSignal(const std::string& rest);

    // Links
    bool linkOffered(int link, const BluetoothAir::Remote& caller, int port) override;
    void linkData(int link, std::string_view bytes) override;
    void linkLost(int link) override;
    int freeNumber() const;
    int numberOf(int link) const;

    Journal& journal;
    SerialLine& serialLine;
    BluetoothAir& air;

    mutable std::recursive_mutex mutex;  // guards everything below
    std::vector<ReplyRule> rules;
    std::string pending;  // the beginning of a command line or frame
    Nanoseconds bootTime, answerTime, inquiryTime;
    Nanoseconds busyUntil{0};
    bool isSilent = false;

    bool isSupplied = false;
    bool isEnabled = false;
    bool isHeldInReset = false;
    bool ready = false;
    unsigned session = 0;  // changes when what was to be done later is off

    bool isEchoing = true;
    bool multiplexing = false;
    std::string callPin;
    std::string lap;
    std::map<int, int> airLinks;  // by number
};

}  // namespace sim
