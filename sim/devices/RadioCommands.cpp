// The module's command lines, its settings, and the commands about itself.

#include "sim/devices/RadioCommands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "sim/Text.h"

namespace sim {
namespace {

using std::chrono::seconds;

constexpr struct {
    int number;
    const char* text;
} NumericResults[] = {{0, "OK"},    {1, "CONNECT"},     {2, "RING"}, {3, "NO CARRIER"},
                      {4, "ERROR"}, {6, "NO DIALTONE"}, {7, "BUSY"}, {8, "NO ANSWER"}};

constexpr struct {
    const char* name;
    int least, most, initial;
} Settings[] = {{"+CMEE", 0, 2, 0},    {"+IPR", 0, 115200, 0}, {"+CFUN", 0, 5, 1},
                {"+CREG", 0, 2, 0},    {"+CGREG", 0, 2, 0},    {"#SELINT", 0, 2, 0},
                {"#AUTOBND", 0, 2, 0}, {"#BND", 0, 5, 0},      {"+CRC", 0, 1, 0},
                {"+CLIP", 0, 1, 0},    {"+CMGF", 0, 1, 0},     {"+CGACT", 0, 1, 0}};

}  // namespace

struct RadioCommands::ErrorText {
    int code;
    const char* text;
};

const RadioCommands::ErrorText RadioCommands::ErrorTexts[] = {
    {NotAllowed, "operation not allowed"},
    {NotSupported, "operation not supported"},
    {SimNotInserted, "SIM not inserted"},
    {SimPinRequired, "SIM PIN required"},
    {SimPukRequired, "SIM PUK required"},
    {SimFailure, "SIM failure"},
    {SimBusy, "SIM busy"},
    {SimWrong, "SIM wrong"},
    {IncorrectPassword, "incorrect password"},
    {NoNetworkService, "no network service"},
    {IncorrectParameters, "incorrect parameters"},
    {UnspecifiedGprsError, "unspecified GPRS error"}};

struct RadioCommands::Entry {
    const char* name;
    bool (RadioCommands::*execute)(const Command&, Answer&);
};

const RadioCommands::Entry RadioCommands::Entries[] = {
    {"+CPIN", &RadioCommands::pin},
    {"+COPS", &RadioCommands::operatorSelection},
    {"+CREG", &RadioCommands::registrationReport},
    {"+CGREG", &RadioCommands::registrationReport},
    {"+CSQ", &RadioCommands::signalQuality},
    {"+CGATT", &RadioCommands::attach},
    {"+CGDCONT", &RadioCommands::context},
    {"+CGQMIN", &RadioCommands::quality},
    {"+CGQREQ", &RadioCommands::quality},
    {"+CGPADDR", &RadioCommands::address},
    {"+CGDATA", &RadioCommands::enterData},
    {"+CCLK", &RadioCommands::clock},
    {"+CGMI", &RadioCommands::identity},
    {"+CGMM", &RadioCommands::identity},
    {"+CGMR", &RadioCommands::identity},
    {"+CGSN", &RadioCommands::identity},
    {"+CIMI", &RadioCommands::identity},
    {"+CMUX", &RadioCommands::multiplex},
    {"#MONI", &RadioCommands::cellMonitor},
    {"#SHDN", &RadioCommands::shutDown},
};

std::vector<std::string> RadioCommands::Command::parameters() const {
    std::vector<std::string> result(1);
    bool inQuotes = false;
    for (size_t i = 1; i < tail.size(); ++i) {
        if (tail[i] == '"')
            inQuotes = !inQuotes;
        else if (tail[i] == ',' && !inQuotes)
            result.emplace_back();
        else
            result.back() += tail[i];
    }
    return result;
}

int RadioCommands::toNumber(const std::string& text) {
    if (text.empty() || text.size() > 7 ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return -1;
    return std::atoi(text.c_str());
}

void RadioCommands::powerUp() {
    for (const auto& setting : Settings)
        values[setting.name] = setting.initial;
    contexts.clear();
    qualities.clear();
    echo = verbose = true;
    quiet = attached = false;
    operatorFormat = announced = 0;
    if (sim.state == RadioSim::Ready && !sim.pin.empty())
        sim.state = RadioSim::PinNeeded;
    search();
}

std::string RadioCommands::formatResult(const std::string& result) const {
    if (quiet)
        return "";
    if (verbose)
        return "\r\n" + result + "\r\n";
    for (const auto& known : NumericResults) {
        if (result == known.text)
            return std::to_string(known.number) + "\r";
    }
    return result + "\r\n";
}

std::string RadioCommands::formatLines(const std::string& lines) const {
    std::string text;
    for (size_t at = 0; at < lines.size();) {
        const size_t end = std::min(lines.find('\n', at), lines.size());
        text += (verbose ? "\r\n" : "") + lines.substr(at, end - at) + "\r\n";
        at = end + 1;
    }
    return text;
}

RadioCommands::Answer RadioCommands::execute(const std::string& line) {
    Answer answer;
    answer.result = "OK";
    for (const Command& command : split(line.substr(2))) {
        if (!executeOne(command, answer)) {
            if (answer.result == "OK")
                answer.result = "ERROR";
            break;
        }
    }
    return answer;
}

/// "E0V1+CMEE=1;+CREG?" is a basic command with its number, another one, and two extended ones.
std::vector<RadioCommands::Command> RadioCommands::split(const std::string& line) {
    std::vector<Command> commands;
    for (size_t at = 0; at < line.size();) {
        const char first = static_cast<char>(std::toupper(static_cast<unsigned char>(line[at])));
        if (first == ' ' || first == ';') {
            ++at;
            continue;
        }
        size_t end = at;
        if (first == '+' || first == '#') {
            for (bool inQuotes = false; end < line.size() && (inQuotes || line[end] != ';'); ++end)
                inQuotes ^= line[end] == '"';
            const std::string whole = line.substr(at, end - at);
            const size_t tail = std::min(whole.find_first_of("?="), whole.size());
            Command command{upper(whole.substr(0, tail)), whole.substr(tail)};
            command.name.erase(command.name.find_last_not_of(' ') + 1);
            commands.push_back(command);
        } else if (first == 'D') {
            end = line.size();
            commands.push_back({"D", line.substr(at + 1)});
        } else {
            const size_t nameSize = first == '&' ? 2 : 1;
            end = std::min(at + nameSize, line.size());
            Command command{upper(line.substr(at, nameSize)), ""};
            while (end < line.size() && (std::isdigit(static_cast<unsigned char>(line[end])) ||
                                         (first == 'S' && (line[end] == '=' || line[end] == '?'))))
                command.tail += line[end++];
            commands.push_back(command);
        }
        at = end;
    }
    return commands;
}

bool RadioCommands::executeOne(const Command& command, Answer& answer) {
    for (const Entry& entry : Entries) {
        if (command.name == entry.name)
            return (this->*entry.execute)(command, answer);
    }
    const bool isExtended = command.name[0] == '+' || command.name[0] == '#';
    return isExtended ? executeSetting(command, answer) : executeBasic(command, answer);
}

bool RadioCommands::refuse(Answer& answer, int code) const {
    const int format = values.at("+CMEE");
    if (format == 0) {
        answer.result = "ERROR";
        return false;
    }
    std::string text = std::to_string(code);
    for (const auto& known : ErrorTexts) {
        if (format == 2 && known.code == code)
            text = known.text;
    }
    answer.result = "+CME ERROR: " + text;
    return false;
}

bool RadioCommands::executeBasic(const Command& command, Answer& answer) {
    const int number = std::max(toNumber(command.tail), 0);
    const auto choose = [number](bool& setting) {
        setting = number == 1;
        return number <= 1;
    };
    switch (command.name[0]) {
    case 'E': return choose(echo);
    case 'V': return choose(verbose);
    case 'Q': return choose(quiet);
    case 'D': return dial(command, answer);
    case 'H': answer.effect = Effect::HangUp; return true;
    case 'O': return false;  // no call to go back to
    case 'Z':
        echo = verbose = true;
        quiet = false;
        return true;
    case 'I': answer.lines += "Simulated radio module\n"; return true;
    case '&':
        return command.name.size() == 2 &&
               std::string("FKWDCS").find(command.name[1]) != std::string::npos;
    case 'L':
    case 'M':
    case 'S':
    case 'X': return true;
    default: return false;
    }
}

bool RadioCommands::executeSetting(const Command& command, Answer& answer) {
    for (const auto& setting : Settings) {
        if (command.name != setting.name)
            continue;
        if (command.isQuestion()) {
            answer.lines += command.name + ": " + std::to_string(values[setting.name]) + "\n";
            return true;
        }
        if (command.isTest()) {
            answer.lines += command.name + ": (" + std::to_string(setting.least) + "-" +
                            std::to_string(setting.most) + ")\n";
            return true;
        }
        const std::vector<std::string> given = command.parameters();
        const int value = toNumber(given[0]);
        if (!command.isSetting() || value < setting.least || value > setting.most)
            return refuse(answer, IncorrectParameters);
        const int before = values[setting.name];
        values[setting.name] = value;
        if (command.name == "+CFUN" && value != before)
            search();
        if (command.name == "+CFUN" && given.size() > 1 && given[1] == "1")
            answer.effect = Effect::Restart;
        return true;
    }
    return false;
}

bool RadioCommands::clock(const Command& command, Answer& answer) {
    const Nanoseconds wall = Clock::get().wall();
    if (command.isQuestion()) {
        const time_t now = toTimespec(wall + clockOffset).tv_sec;
        tm parts{};
        gmtime_r(&now, &parts);
        char text[40];
        const size_t size = strftime(text, sizeof text, "%y/%m/%d,%H:%M:%S", &parts);
        answer.lines += "+CCLK: " + quoted(std::string(text, size) + clockZone) + "\n";
        return true;
    }
    tm parts{};
    int zoneAt = 0;
    const std::string given = command.isSetting() ? command.tail.substr(1) : "";
    const bool isRead =
        sscanf(given.c_str(), "\"%2d/%2d/%2d,%2d:%2d:%2d%n", &parts.tm_year, &parts.tm_mon,
               &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &zoneAt) == 6;
    if (!isRead || given.back() != '"' || parts.tm_mon < 1 || parts.tm_mon > 12 ||
        parts.tm_mday < 1 || parts.tm_mday > 31 || parts.tm_hour > 23 || parts.tm_min > 59 ||
        parts.tm_sec > 59)
        return refuse(answer, IncorrectParameters);
    parts.tm_year += 100;
    parts.tm_mon -= 1;
    clockOffset = seconds(timegm(&parts)) - std::chrono::floor<seconds>(wall);
    // Whatever stands for the zone is given back as it came.
    clockZone =
        given.substr(static_cast<size_t>(zoneAt), given.size() - 1 - static_cast<size_t>(zoneAt));
    return true;
}

bool RadioCommands::identity(const Command& command, Answer& answer) {
    static constexpr struct {
        const char* name;
        const char* text;
    } Identities[] = {{"+CGMI", "Simulated"},
                      {"+CGMM", "Radio module"},
                      {"+CGMR", "10.00.005"},
                      {"+CGSN", "350077523237513"},
                      {"+CIMI", "001010123456789"}};
    if (command.isTest())
        return true;
    if (!command.tail.empty())
        return false;
    if (command.name == "+CIMI" && simError() != 0)
        return refuse(answer, simError());
    for (const auto& identity : Identities) {
        if (command.name == identity.name)
            answer.lines += std::string(identity.text) + "\n";
    }
    return true;
}

bool RadioCommands::multiplex(const Command& command, Answer& answer) {
    if (command.isTest()) {
        answer.lines += "+CMUX: (0),(0),(1-5),(1-127)\n";
        return true;
    }
    const std::vector<std::string> given = command.parameters();
    if (!command.isSetting() || given[0] != "0")
        return refuse(answer, NotSupported);
    if (given.size() > 3) {
        const int longest = toNumber(given[3]);
        if (longest < 1 || longest > 127)
            return refuse(answer, IncorrectParameters);
        answer.longestInformation = static_cast<unsigned>(longest);
    }
    answer.effect = Effect::Multiplex;
    return true;
}

bool RadioCommands::shutDown(const Command& command, Answer& answer) {
    answer.effect = Effect::PowerOff;
    return command.tail.empty();
}

}  // namespace sim
