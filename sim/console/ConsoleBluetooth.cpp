// The console's commands for the Bluetooth devices around the terminal and for its text module.

#include "sim/Text.h"
#include "sim/console/Arguments.h"
#include "sim/console/Console.h"

namespace sim {
namespace {

BluetoothAir::Remote remoteOf(Terminal& terminal, const std::string& address) {
    const auto known = terminal.air().find(address);
    if (!known)
        throw Wrong{"no such device: " + address};
    return *known;
}

std::string unless(bool done, const std::string& reason) {
    if (!done)
        throw Wrong{reason};
    return "";
}

}  // namespace

std::string Console::btFit(const Words& words) {
    terminal.fitTextModule(choice(words[1], "text", "radio"));
    return "";
}

std::string Console::btPresent(const Words& words) {
    terminal.air().present(words[1], joined(words, 2));
    return "";
}

std::string Console::btAway(const Words& words) {
    terminal.air().takeAway(words[1]);
    return "";
}

std::string Console::btChange(const Words& words) {
    using Remote = BluetoothAir::Remote;
    static constexpr Named<Remote::Service> Services[] = {{"echo", Remote::Echo},
                                                          {"sink", Remote::Sink}};
    static constexpr Named<Remote::Mood> Moods[] = {
        {"normal", Remote::Normal}, {"refusing", Remote::Refusing}, {"deaf", Remote::Deaf}};
    Remote remote = remoteOf(terminal, words[1]);
    if (words[0] == "bt pin")
        remote.pin = words[2];
    else if (words[0] == "bt signal")
        remote.dBm = static_cast<int>(number(words[2]));
    else if (words[0] == "bt service")
        remote.service = choice(words[2], Services);
    else
        remote.mood = choice(words[2], Moods);
    terminal.air().present(remote);
    return "";
}

std::string Console::btRing(const Words& words) {
    const int port = words.size() > 2 ? static_cast<int>(number(words[2])) : 1;
    return unless(terminal.air().ring(words[1], port), "nobody takes the call");
}

std::string Console::btSend(const Words& words) {
    return unless(terminal.air().sendFrom(words[1], joined(words, 2)), "no link: " + words[1]);
}

std::string Console::btDrop(const Words& words) {
    return unless(terminal.air().drop(words[1]), "no link: " + words[1]);
}

std::string Console::btRefuse(const Words& words) {
    terminal.textModule().onCommand(joined(words, 1), Reply::final("SYNTAX ERROR"), 1);
    return "";
}

std::string Console::btSay(const Words& words) {
    terminal.textModule().sayUnasked(joined(words, 1));
    return "";
}

}  // namespace sim
