// The module's commands.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>

#include "sim/devices/TextBluetoothModule.h"

namespace sim {
namespace {

constexpr char Address[] = "00:07:80:12:34:56";
constexpr char SyntaxError[] = "SYNTAX ERROR";
constexpr int EchoBit = 2;  // of the echo mode, which starts as 7
constexpr Nanoseconds CallTime = std::chrono::milliseconds(50);

std::string hex(unsigned value) {
    char text[9];
    snprintf(text, sizeof text, "%06x", value);
    return text;
}

}  // namespace

struct TextBluetoothModule::Command {
    const char* name;
    bool hasRest;  // the name is followed by more
    Answer (TextBluetoothModule::*execute)(const std::string& rest);
};

const TextBluetoothModule::Command TextBluetoothModule::Commands[] = {
    {"SET CONTROL ECHO ", true, &TextBluetoothModule::setEcho},
    {"SET CONTROL MUX ", true, &TextBluetoothModule::setMux},
    {"SET BT AUTH * ", true, &TextBluetoothModule::setPin},
    {"SET BT LAP ", true, &TextBluetoothModule::setAccessCode},
    {"SET", false, &TextBluetoothModule::showSettings},
    {"INFO", false, &TextBluetoothModule::showVersion},
    {"LIST", false, &TextBluetoothModule::listLinks},
    {"INQUIRY ", true, &TextBluetoothModule::inquire},
    {"CALL ", true, &TextBluetoothModule::call},
    {"CLOSE ", true, &TextBluetoothModule::closeLink},
    {"PING ", true, &TextBluetoothModule::pingLink},
    {"RSSI ", true, &TextBluetoothModule::readSignal},
};

Reply TextBluetoothModule::replyTo(const std::string& command) {
    for (ReplyRule& rule : rules) {
        if (rule.takes(command))
            return rule.reply;
    }
    return Reply::normal();
}

void TextBluetoothModule::execute(const std::string& command) {
    journal.note("bt", command);
    const Reply reply = replyTo(command);
    if (isEchoing && !multiplexing && reply.isEchoed && reply.kind != Reply::Kind::Silence)
        sendLines(command);
    Answer answer;
    if (reply.kind == Reply::Kind::Lines) {
        answer.lines = reply.lines + (reply.lines.empty() ? "" : "\n") + reply.result;
    } else if (reply.kind == Reply::Kind::Normal) {
        const auto known =
            std::find_if(std::begin(Commands), std::end(Commands), [&](const Command& named) {
                const std::string name = named.name;
                return named.hasRest ? command.compare(0, name.size(), name) == 0 : command == name;
            });
        if (known == std::end(Commands))
            answer.lines = SyntaxError;
        else
            answer = (this->*known->execute)(command.substr(std::string(known->name).size()));
    }

    const Nanoseconds now = Clock::get().monotonic();
    busyUntil = std::max(busyUntil, now + answerTime + answer.delay + reply.delay);
    at(busyUntil, [this, answer, reply] {
        send(reply.bend(reply.kind == Reply::Kind::Raw ? reply.result : lineBytes(answer.lines)));
        if (answer.then)
            answer.then();
        if (reply.action)
            reply.action();
    });
}

TextBluetoothModule::Answer TextBluetoothModule::showSettings(const std::string&) {
    return {std::string("SET BT BDADDR ") + Address + "\nSET BT NAME Terminal\nSET BT LAP " + lap +
            "\nSET"};
}

TextBluetoothModule::Answer TextBluetoothModule::setEcho(const std::string& rest) {
    isEchoing = (std::atoi(rest.c_str()) & EchoBit) != 0;
    return {};
}

/// Without an echo, which is answer enough, the new mode is told.
TextBluetoothModule::Answer TextBluetoothModule::setMux(const std::string& rest) {
    Answer answer;
    const bool isOn = rest == "1";
    const bool isTold = multiplexing || !isEchoing;
    if (isOn) {
        multiplexing = true;
        answer.lines = isTold ? "READY." : "";
    } else {
        answer.lines = "READY.";
        answer.then = [this] {
            multiplexing = false;
            pending.clear();
        };
    }
    return answer;
}

TextBluetoothModule::Answer TextBluetoothModule::setPin(const std::string& rest) {
    callPin = rest;
    return {};
}

TextBluetoothModule::Answer TextBluetoothModule::setAccessCode(const std::string& rest) {
    lap = rest;
    return {};
}

TextBluetoothModule::Answer TextBluetoothModule::showVersion(const std::string&) {
    return {"Serial port module 2.1.0, build 20\nREADY."};
}

TextBluetoothModule::Answer TextBluetoothModule::listLinks(const std::string&) {
    std::string lines = "LIST " + std::to_string(airLinks.size());
    for (const auto& [number, link] : airLinks) {
        if (const auto remote = air.remoteOf(link))
            lines += "\nLIST " + std::to_string(number) + " CONNECTED RFCOMM " + remote->address;
    }
    return {lines};
}

TextBluetoothModule::Answer TextBluetoothModule::inquire(const std::string&) {
    const auto remotes = air.remotes();
    std::string lines = "INQUIRY " + std::to_string(remotes.size());
    std::string names;
    for (const auto& remote : remotes) {
        lines += "\nINQUIRY " + remote.address + " " + hex(remote.deviceClass);
        if (!remote.name.empty())
            names += "\nNAME " + remote.address + " \"" + remote.name + "\"";
    }
    return {lines + names, inquiryTime};
}

TextBluetoothModule::Answer TextBluetoothModule::call(const std::string& rest) {
    const std::string address = rest.substr(0, rest.find(' '));
    const int number = freeNumber();
    if (rest != address + " 1101 RFCOMM" || number < 0)
        return {SyntaxError};
    const std::string text = std::to_string(number);
    int link = 0;
    if (air.call(*this, address, callPin, link) != BluetoothAir::Outcome::Connected)
        return {"CALL " + text + "\nNO CARRIER " + text + " ERROR 104", CallTime};
    airLinks[number] = link;
    return {"CALL " + text + "\nCONNECT " + text + " RFCOMM 1", CallTime,
            [this, link] { air.greet(link); }};
}

TextBluetoothModule::Answer TextBluetoothModule::closeLink(const std::string& rest) {
    const auto known = airLinks.find(std::atoi(rest.c_str()));
    if (known == airLinks.end())
        return {SyntaxError};
    air.close(known->second);
    airLinks.erase(known);
    return {"NO CARRIER " + rest + " ERROR 0"};
}

TextBluetoothModule::Answer TextBluetoothModule::pingLink(const std::string& rest) {
    const auto known = airLinks.find(std::atoi(rest.c_str()));
    return {known == airLinks.end() ? SyntaxError : "PING " + rest + " 12 ms"};
}

TextBluetoothModule::Answer TextBluetoothModule::readSignal(const std::string& rest) {
    const auto known = airLinks.find(std::atoi(rest.c_str()));
    const auto remote = known == airLinks.end() ? std::nullopt : air.remoteOf(known->second);
    return {remote ? "RSSI " + rest + " " + std::to_string(remote->dBm) : SyntaxError};
}

}  // namespace sim
