#pragma once

#include <iosfwd>
#include <string>

#include "sim/Terminal.h"

namespace sim {

/// The door to a terminal as text commands, one a line: what a person, a script or a test does to
/// the world around the terminal. "help" lists them. Used by one thread.
class Console {
public:
    explicit Console(Terminal& terminal);

    /// Carries out one line; empty lines and those that begin with '#' do nothing. The answer, or
    /// what is wrong with the line, in one or more lines without a final newline; "" when there is
    /// nothing to say. "wait" and "await" return when what they wait for has happened.
    std::string execute(const std::string& line);

    /// Carries out all of a script. The first line that fails ends it: its number and what is
    /// wrong.
    std::string run(std::istream& script);

    /// Reads commands from `input` and answers to `output`, until its end or "quit".
    void converse(std::istream& input, std::ostream& output, const std::string& prompt);

    bool hasQuit() const { return quitting; }

    /// Whether the last line could not be carried out.
    bool hasFailed() const { return failed; }

private:
    struct Command;
    static const Command Commands[];

    std::string help(const Words& words);
    std::string key(const Words& words);
    std::string trigger(const Words& words);
    std::string barcodePresent(const Words& words);
    std::string rfidPresent(const Words& words);
    std::string rfidRemove(const Words& words);
    std::string rfidType(const Words& words);
    std::string scanners(const Words& words);
    std::string setAttribute(const Words& words);
    std::string usb(const Words& words);
    std::string card(const Words& words);
    std::string mute(const Words& words);
    std::string line(const Words& words);
    std::string radioSignal(const Words& words);
    std::string radioNetwork(const Words& words);
    std::string radioSim(const Words& words);
    std::string radioFail(const Words& words);
    std::string radioSay(const Words& words);
    std::string radioEnd(const Words& words);
    std::string ppp(const Words& words);
    std::string wlanNetwork(const Words& words);
    std::string wlanNumber(const Words& words);
    std::string wlanDelay(const Words& words);
    std::string wlanDrop(const Words& words);
    std::string supplicant(const Words& words);
    std::string dhcp(const Words& words);
    std::string dhcpLease(const Words& words);
    std::string btFit(const Words& words);
    std::string btPresent(const Words& words);
    std::string btAway(const Words& words);
    std::string btChange(const Words& words);
    std::string btRing(const Words& words);
    std::string btSend(const Words& words);
    std::string btDrop(const Words& words);
    std::string btRefuse(const Words& words);
    std::string btSay(const Words& words);
    std::string packetRefuse(const Words& words);
    std::string program(const Words& words);
    std::string node(const Words& words);
    std::string wakeKey(const Words& words);
    std::string wait(const Words& words);
    std::string await(const Words& words);
    std::string speed(const Words& words);
    std::string quit(const Words& words);

    Terminal& terminal;
    size_t seen = 0;  // journal entries that an earlier "await" has passed
    bool failed = false;
    bool quitting = false;
};

}  // namespace sim
