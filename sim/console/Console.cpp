#include "sim/console/Console.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <istream>
#include <optional>
#include <ostream>
#include <sstream>

#include "sim/HostTime.h"
#include "sim/Text.h"
#include "sim/console/Arguments.h"
#include "sim/launcher/Environment.h"

namespace sim {
namespace {

constexpr int TriggerKey = 59;  // F1, which the trigger of the terminal sends
constexpr int EnterKey = 28;
constexpr auto TriggerHold = std::chrono::milliseconds(300);
constexpr auto LongestAwait = std::chrono::minutes(5);  // of the host's time

/// The devices on a serial line.
enum LineDevice { Barcode, Radio, TextModule, PacketModule };
constexpr Named<LineDevice> LineDevices[] = {
    {"barcode", Barcode}, {"radio", Radio}, {"bt", TextModule}, {"packet", PacketModule}};

SerialLine& lineTo(Terminal& terminal, LineDevice device) {
    switch (device) {
    case Barcode: return terminal.barcodeLine();
    case Radio: return terminal.radio().line();
    case TextModule: return terminal.textModule().line();
    case PacketModule: break;
    }
    return terminal.packetModule().line();
}

/// Whether a line begins with the name of a command, which then becomes its first word.
bool takeName(std::vector<std::string>& words, const std::string& name) {
    const size_t blank = name.find(' ');
    if (blank == std::string::npos)
        return words[0] == name;
    if (words.size() < 2 || words[0] + " " + words[1] != name)
        return false;
    words.erase(words.begin());
    words[0] = name;
    return true;
}

void pass(Nanoseconds simulated) {
    const timespec time = toTimespec(Clock::get().realDuration(simulated));
    const HostTime hostTime;
    nanosleep(&time, nullptr);
}

}  // namespace

struct Console::Command {
    const char* name;
    size_t least;  // words after the name
    const char* usage;
    const char* what;
    std::string (Console::*execute)(const Words&);
};

const Console::Command Console::Commands[] = {
    {"help", 0, "", "lists these commands", &Console::help},
    {"trigger", 0, "", "pulls the trigger and lets it go", &Console::trigger},
    {"barcode present", 1, "TEXT", "holds a code before the barcode engine",
     &Console::barcodePresent},
    {"rfid present", 1, "ID [DATA]", "holds a tag before the RFID engine: its identifier in hex",
     &Console::rfidPresent},
    {"rfid remove", 0, "", "takes the tag away", &Console::rfidRemove},
    {"rfid type", 1, "nxp|ams|none", "the RFID engine that is fitted", &Console::rfidType},
    {"scanners", 1, "DESCRIPTION", "what the terminal tells of its engines: 12",
     &Console::scanners},
    {"key", 1, "CODE [down|up]", "presses a key, or only one half of it", &Console::key},
    {"battery", 1, "MILLIVOLTS", "the battery's voltage", &Console::setAttribute},
    {"temperature", 1, "HUNDREDTHS", "in hundredths of a degree", &Console::setAttribute},
    {"light", 1, "LEVEL", "what the light sensor reads", &Console::setAttribute},
    {"usb", 1, "on|off", "plugs the USB supply in or out", &Console::usb},
    {"card", 1, "push|pull", "puts the memory card in, or takes it out", &Console::card},
    {"mute", 2, "barcode|radio|bt|packet on|off", "that device neither hears nor answers",
     &Console::mute},
    {"line", 2, "barcode|radio|bt|packet hangup|garble [COUNT]",
     "the line to that device hangs up, or alters the next bytes", &Console::line},
    {"radio signal", 1, "DBM", "the power that the radio module receives", &Console::radioSignal},
    {"radio network", 1, "home|roaming|none|denied", "the network around it",
     &Console::radioNetwork},
    {"radio sim", 1, "ready|pin|puk|absent|busy", "its SIM; also broken, wrong",
     &Console::radioSim},
    {"radio fail", 1, "COMMAND [CODE]", "the next such command fails", &Console::radioFail},
    {"radio say", 1, "TEXT", "it sends an unsolicited line", &Console::radioSay},
    {"radio drop", 0, "", "the network ends its data call", &Console::radioEnd},
    {"radio close", 0, "", "it ends multiplexing", &Console::radioEnd},
    {"ppp", 1, "normal|never|stubborn", "how the next PPP daemon is; now: down, crash",
     &Console::ppp},
    {"wlan network", 0, "[SSID [KEY]]", "the network in reach, or none", &Console::wlanNetwork},
    {"wlan signal", 1, "DBM", "the power that the adapter receives", &Console::wlanNumber},
    {"wlan channel", 1, "NUMBER", "of the network", &Console::wlanNumber},
    {"wlan appear", 1, "SECONDS|never", "how long after its driver the adapter is there",
     &Console::wlanDelay},
    {"wlan associate", 1, "SECONDS|never", "how long it takes to associate", &Console::wlanDelay},
    {"wlan drop", 0, "", "it loses the network, and associates again", &Console::wlanDrop},
    {"supplicant", 1, "normal|silent", "answers commands or does not; now: die",
     &Console::supplicant},
    {"dhcp lease", 4, "IP MASK ROUTER DNS", "what it gives", &Console::dhcpLease},
    {"dhcp", 1, "answer|fail", "the DHCP server answers or does not", &Console::dhcp},
    {"bt fit", 1, "text|radio", "which module is on /dev/ttyAT1", &Console::btFit},
    {"bt present", 2, "ADDRESS NAME", "a Bluetooth device comes into reach", &Console::btPresent},
    {"bt away", 1, "ADDRESS", "it is out of reach", &Console::btAway},
    {"bt pin", 2, "ADDRESS PIN", "what it asks a caller for", &Console::btChange},
    {"bt signal", 2, "ADDRESS DBM", "its power as the terminal receives it", &Console::btChange},
    {"bt service", 2, "ADDRESS echo|sink", "what it does with data", &Console::btChange},
    {"bt mood", 2, "ADDRESS normal|refusing|deaf", "how it takes a call", &Console::btChange},
    {"bt ring", 1, "ADDRESS [PORT]", "it calls the terminal", &Console::btRing},
    {"bt send", 2, "ADDRESS TEXT", "it sends data over its link", &Console::btSend},
    {"bt drop", 1, "ADDRESS", "it ends its link", &Console::btDrop},
    {"bt refuse", 1, "COMMAND", "the text module refuses the next such command",
     &Console::btRefuse},
    {"bt say", 1, "TEXT", "it sends an unsolicited line", &Console::btSay},
    {"packet refuse", 1, "OPCODE", "the packet Bluetooth module refuses the next request (hex)",
     &Console::packetRefuse},
    {"program", 2, "NAME STATUS", "its next start ends with that exit status", &Console::program},
    {"missing", 1, "PATH", "takes a device node or file away", &Console::node},
    {"present", 1, "PATH", "puts it back", &Console::node},
    {"wake-key", 1, "SECONDS", "the Enter key ends the next suspend after that time",
     &Console::wakeKey},
    {"wait", 1, "SECONDS", "lets the terminal's time pass", &Console::wait},
    {"await", 1, "TEXT", "waits until the terminal's journal says so", &Console::await},
    {"speed", 1, "FACTOR", "how fast the terminal's time passes", &Console::speed},
    {"quit", 0, "", "ends the terminal", &Console::quit},
};

Console::Console(Terminal& openedTerminal) : terminal(openedTerminal) {}

std::string Console::execute(const std::string& line) {
    std::istringstream text(line);
    Words words;
    for (std::string word; text >> word;)
        words.push_back(word);
    failed = false;
    if (words.empty() || words[0][0] == '#')
        return "";
    try {
        for (const Command& command : Commands) {
            if (!takeName(words, command.name))
                continue;
            if (words.size() - 1 < command.least)
                throw Wrong{std::string(command.name) + " " + command.usage};
            return (this->*command.execute)(words);
        }
        throw Wrong{"unknown command '" + words[0] + "', try help"};
    } catch (const Wrong& wrong) {
        failed = true;
        return wrong.reason;
    }
}

std::string Console::run(std::istream& script) {
    std::string line;
    for (int number = 1; !quitting && std::getline(script, line); ++number) {
        const std::string answer = execute(line);
        if (failed)
            return "line " + std::to_string(number) + ": " + answer;
    }
    return "";
}

void Console::converse(std::istream& input, std::ostream& output, const std::string& prompt) {
    std::string line;
    while (!quitting && output << prompt << std::flush && std::getline(input, line)) {
        const std::string answer = execute(line);
        if (!answer.empty())
            output << answer << std::endl;
    }
    quitting = true;
}

std::string Console::help(const Words&) {
    std::string text;
    for (const Command& command : Commands) {
        std::string usage = std::string(command.name) + " " + command.usage;
        usage.resize(std::max<size_t>(30, usage.size() + 2), ' ');
        text += (text.empty() ? "" : "\n") + usage + command.what;
    }
    return text;
}

std::string Console::key(const Words& words) {
    const int code = static_cast<int>(number(words[1]));
    const bool both = words.size() == 2;
    if (both || choice(words[2], "down", "up"))
        terminal.pressKey(code, true);
    if (both || words[2] == "up")
        terminal.pressKey(code, false);
    return "";
}

std::string Console::trigger(const Words&) {
    terminal.pressKey(TriggerKey, true);
    pass(TriggerHold);
    terminal.pressKey(TriggerKey, false);
    return "";
}

std::string Console::barcodePresent(const Words& words) {
    terminal.barcode().present(joined(words, 1));
    return "";
}

std::string Console::mute(const Words& words) {
    const bool isMute = choice(words[2], "on", "off");
    switch (choice(words[1], LineDevices)) {
    case Barcode: terminal.barcode().setSilent(isMute); break;
    case Radio: terminal.radio().setSilent(isMute); break;
    case TextModule: terminal.textModule().setSilent(isMute); break;
    case PacketModule: terminal.packetModule().setSilent(isMute); break;
    }
    return "";
}

std::string Console::line(const Words& words) {
    SerialLine& line = lineTo(terminal, choice(words[1], LineDevices));
    if (words[2] == "garble")
        line.garble(static_cast<size_t>(std::max(number(words.size() > 3 ? words[3] : "1"), 0.0)));
    else if (words[2] == "hangup")
        line.hangUp();
    else
        throw Wrong{"'hangup' or 'garble', not: " + words[2]};
    return "";
}

std::string Console::setAttribute(const Words& words) {
    const Attribute& attribute = words[0] == "battery"       ? terminal.battery()
                                 : words[0] == "temperature" ? terminal.temperature()
                                                             : terminal.light();
    attribute.set(std::lround(number(words[1])));
    return "";
}

std::string Console::usb(const Words& words) {
    terminal.usbSupply().set(choice(words[1], "on", "off") ? 1 : 0);
    return "";
}

std::string Console::card(const Words& words) {
    terminal.card().setInserted(choice(words[1], "push", "pull"));
    return "";
}

std::string Console::radioSignal(const Words& words) {
    terminal.radio().setSignal(static_cast<int>(number(words[1])));
    return "";
}

std::string Console::radioNetwork(const Words& words) {
    static constexpr Named<RadioNetwork::Coverage> Networks[] = {{"home", RadioNetwork::Home},
                                                                 {"roaming", RadioNetwork::Roaming},
                                                                 {"none", RadioNetwork::None},
                                                                 {"denied", RadioNetwork::Denied}};
    terminal.radio().setCoverage(choice(words[1], Networks));
    return "";
}

std::string Console::radioSim(const Words& words) {
    static constexpr Named<RadioSim::State> States[] = {
        {"ready", RadioSim::Ready},   {"pin", RadioSim::PinNeeded}, {"puk", RadioSim::PukNeeded},
        {"absent", RadioSim::Absent}, {"busy", RadioSim::Busy},     {"broken", RadioSim::Broken},
        {"wrong", RadioSim::Wrong}};
    terminal.radio().setSim(choice(words[1], States));
    return "";
}

std::string Console::radioFail(const Words& words) {
    const Reply reply =
        words.size() > 2 ? Reply::error(static_cast<int>(number(words[2]))) : Reply::error();
    terminal.radio().onCommand(words[1], reply).times(1);
    return "";
}

std::string Console::radioSay(const Words& words) {
    terminal.radio().sayUnasked(joined(words, 1));
    return "";
}

std::string Console::radioEnd(const Words& words) {
    if (words[0] == "radio drop")
        terminal.radio().dropCall();
    else
        terminal.radio().closeDown();
    return "";
}

std::string Console::ppp(const Words& words) {
    PppLink& link = terminal.ppp();
    enum Order { Normal, Never, Stubborn, Down, Crash };
    static constexpr Named<Order> Orders[] = {{"normal", Normal},
                                              {"never", Never},
                                              {"stubborn", Stubborn},
                                              {"down", Down},
                                              {"crash", Crash}};
    const Order order = choice(words[1], Orders);
    if (order == Down)
        terminal.radio().dropCall();
    else if (order == Crash)
        link.crash();
    if (order == Down || order == Crash)
        return "";
    link.setNeverUp(order == Never);
    link.setStubborn(order == Stubborn);
    return "";
}

std::string Console::wlanNetwork(const Words& words) {
    terminal.wlan().setNetwork(words.size() > 1 ? words[1] : "", joined(words, 2));
    return "";
}

std::string Console::wlanNumber(const Words& words) {
    constexpr int FirstChannel = 1, LastChannel = 14;
    const auto value = static_cast<int>(number(words[1]));
    if (words[0] == "wlan signal")
        terminal.wlan().setSignal(value);
    else if (value < FirstChannel || value > LastChannel)
        throw Wrong{"not a channel: " + words[1]};
    else
        terminal.wlan().setChannel(value);
    return "";
}

std::string Console::wlanDelay(const Words& words) {
    std::optional<Nanoseconds> delay;
    if (words[1] != "never")
        delay = seconds(words[1]);
    if (words[0] == "wlan appear")
        terminal.wlan().appearAfter(delay);
    else
        terminal.wlan().associateAfter(delay);
    return "";
}

std::string Console::wlanDrop(const Words&) {
    terminal.wlan().drop();
    return "";
}

std::string Console::supplicant(const Words& words) {
    enum Order { Normal, Silent, Die };
    static constexpr Named<Order> Orders[] = {{"normal", Normal}, {"silent", Silent}, {"die", Die}};
    switch (choice(words[1], Orders)) {
    case Normal: terminal.supplicant().clear(); break;
    case Silent: terminal.supplicant().onCommand("", {}, INT_MAX); break;
    case Die:
        terminal.programs().signalRunning("wpa_supplicant", SIGKILL);
        terminal.wlan().leave();
        break;
    }
    return "";
}

std::string Console::dhcp(const Words& words) {
    terminal.dhcp().setAnswering(choice(words[1], "answer", "fail"));
    return "";
}

std::string Console::dhcpLease(const Words& words) {
    terminal.dhcp().setLease({words[1], words[2], words[3], words[4]});
    return "";
}

std::string Console::packetRefuse(const Words& words) {
    const double opcode = number("0x" + words[1]);
    if (opcode < 0 || opcode > UINT8_MAX)
        throw Wrong{"not an opcode: " + words[1]};
    terminal.packetModule().onRequest(static_cast<uint8_t>(opcode), PacketReply::refusal());
    return "";
}

std::string Console::program(const Words& words) {
    terminal.programs().failNext(words[1], static_cast<int>(number(words[2])));
    return "";
}

std::string Console::node(const Words& words) {
    terminal.setPresent(words[1], words[0] == "present");
    return "";
}

std::string Console::wakeKey(const Words& words) {
    terminal.power().wakeByKey(EnterKey, seconds(words[1]));
    return "";
}

std::string Console::wait(const Words& words) {
    pass(seconds(words[1]));
    return "";
}

std::string Console::await(const Words& words) {
    const std::string text = joined(words, 1);
    const size_t found = terminal.journal().await(text, seen, LongestAwait);
    if (found == 0)
        throw Wrong{"has not happened: " + text};
    seen = found;
    return "";
}

std::string Console::speed(const Words& words) {
    const double factor = number(words[1]);
    if (factor < launcher::LeastSpeed || factor > launcher::MostSpeed)
        throw Wrong{"not a speed: " + words[1]};
    terminal.clock().setSpeed(factor);
    return "";
}

std::string Console::quit(const Words&) {
    quitting = true;
    return "";
}

}  // namespace sim
