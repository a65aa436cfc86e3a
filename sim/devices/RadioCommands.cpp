#include "sim/devices/RadioCommands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Result codes of "+CME ERROR:".
enum ErrorCode {
    NotAllowed = 3,
    NotSupported = 4,
    SimNotInserted = 10,
    SimPinRequired = 11,
    SimPukRequired = 12,
    SimFailure = 13,
    SimBusy = 14,
    SimWrong = 15,
    IncorrectPassword = 16,
    NoNetworkService = 30,
    IncorrectParameters = 50,
    UnspecifiedGprsError = 148
};

constexpr struct {
    int code;
    const char* text;
} ErrorTexts[] = {{NotAllowed, "operation not allowed"},
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

constexpr int RadioOffModes[] = {0, 4};  // of +CFUN
constexpr Nanoseconds LongestAttach = seconds(10);
constexpr Nanoseconds AttachTime = milliseconds(100);
constexpr Nanoseconds DialTime = milliseconds(100);
constexpr int MostContexts = 5;
constexpr char LocalAddress[] = "10.64.64.64";

bool isQuestion(const std::string& tail) { return tail == "?"; }
bool isTest(const std::string& tail) { return tail == "=?"; }
bool isSetting(const std::string& tail) {
    return tail.size() > 1 && tail[0] == '=' && !isTest(tail);
}

/// The parameters of "=a,b,\"c\"", without their quotes.
std::vector<std::string> parameters(const std::string& tail) {
    std::vector<std::string> result(1);
    bool quoted = false;
    for (size_t i = 1; i < tail.size(); ++i) {
        if (tail[i] == '"')
            quoted = !quoted;
        else if (tail[i] == ',' && !quoted)
            result.emplace_back();
        else
            result.back() += tail[i];
    }
    return result;
}

/// -1 for what is no number.
int toNumber(const std::string& text) {
    if (text.empty() || text.size() > 7 ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return -1;
    return std::atoi(text.c_str());
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

}  // namespace

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

void RadioCommands::search() {
    searching = true;
    searchBegin = Clock::get().monotonic();
}

void RadioCommands::setCoverage(RadioNetwork::Coverage coverage) {
    network.coverage = coverage;
    searchBegin = Clock::get().monotonic();
}

void RadioCommands::setSimState(RadioSim::State state) {
    sim.state = state;
    sim.triesLeft = state == RadioSim::PukNeeded ? 0 : RadioSim::PinTries;
    searchBegin = Clock::get().monotonic();
}

int RadioCommands::simError() const {
    switch (sim.state) {
    case RadioSim::Absent: return SimNotInserted;
    case RadioSim::Broken: return SimFailure;
    case RadioSim::Wrong: return SimWrong;
    case RadioSim::Busy: return SimBusy;
    case RadioSim::PinNeeded: return SimPinRequired;
    case RadioSim::PukNeeded: return SimPukRequired;
    case RadioSim::Ready: break;
    }
    return 0;
}

Nanoseconds RadioCommands::registeredIn() const {
    return searchBegin + network.registrationTime - Clock::get().monotonic();
}

/// Not registered 0, home 1, searching 2, denied 3, roaming 5.
int RadioCommands::registration() const {
    for (const int mode : RadioOffModes) {
        if (values.at("+CFUN") == mode)
            return 0;
    }
    if (!searching || simError() != 0)
        return 0;
    if (network.coverage == RadioNetwork::None || registeredIn() > Nanoseconds(0))
        return 2;
    switch (network.coverage) {
    case RadioNetwork::Denied: return 3;
    case RadioNetwork::Roaming: return 5;
    default: return 1;
    }
}

bool RadioCommands::isRegistered() const { return registration() == 1 || registration() == 5; }

Nanoseconds RadioCommands::nextChange() const {
    const bool willChange = registration() == 2 && network.coverage != RadioNetwork::None;
    return willChange ? std::max(registeredIn(), Nanoseconds(1)) : Nanoseconds(0);
}

std::string RadioCommands::takeUnsolicited() {
    const int now = registration();
    if (now == announced)
        return "";
    announced = now;
    const std::string text = std::to_string(now) + "\n";
    return (values.at("+CREG") > 0 ? "+CREG: " + text : "") +
           (values.at("+CGREG") > 0 ? "+CGREG: " + text : "");
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
            Command command{whole.substr(0, tail), whole.substr(tail)};
            for (char& c : command.name)
                c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            command.name.erase(command.name.find_last_not_of(' ') + 1);
            commands.push_back(command);
        } else if (first == 'D') {
            end = line.size();
            commands.push_back({"D", line.substr(at + 1)});
        } else {
            const size_t nameSize = first == '&' ? 2 : 1;
            end = std::min(at + nameSize, line.size());
            Command command{line.substr(at, nameSize), ""};
            for (char& c : command.name)
                c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
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
        if (isQuestion(command.tail)) {
            answer.lines += command.name + ": " + std::to_string(values[setting.name]) + "\n";
            return true;
        }
        if (isTest(command.tail)) {
            answer.lines += command.name + ": (" + std::to_string(setting.least) + "-" +
                            std::to_string(setting.most) + ")\n";
            return true;
        }
        const std::vector<std::string> given = parameters(command.tail);
        const int value = toNumber(given[0]);
        if (!isSetting(command.tail) || value < setting.least || value > setting.most)
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

bool RadioCommands::pin(const Command& command, Answer& answer) {
    if (isTest(command.tail))
        return true;
    const int error = simError();
    const bool needsCode = error == SimPinRequired || error == SimPukRequired;
    if (error != 0 && !needsCode)
        return refuse(answer, error);
    if (isQuestion(command.tail)) {
        answer.lines += error == 0                ? "+CPIN: READY\n"
                        : error == SimPinRequired ? "+CPIN: SIM PIN\n"
                                                  : "+CPIN: SIM PUK\n";
        return true;
    }
    if (!isSetting(command.tail) || error == 0)
        return refuse(answer, NotAllowed);
    const std::vector<std::string> given = parameters(command.tail);
    if (error == SimPukRequired && given.size() < 2)
        return refuse(answer, SimPukRequired);
    if (given[0] != (error == SimPinRequired ? sim.pin : sim.puk)) {
        if (error == SimPinRequired && --sim.triesLeft == 0)
            sim.state = RadioSim::PukNeeded;
        return refuse(answer, IncorrectPassword);
    }
    if (error == SimPukRequired)
        sim.pin = given[1];
    sim.triesLeft = RadioSim::PinTries;
    sim.state = RadioSim::Ready;
    search();
    return true;
}

bool RadioCommands::operatorSelection(const Command& command, Answer& answer) {
    if (simError() != 0)
        return refuse(answer, simError());
    const std::string name = operatorFormat == 2 ? network.number : network.name;
    if (isTest(command.tail)) {
        if (network.coverage != RadioNetwork::None)
            answer.lines += "+COPS: (2," + quoted(network.name) + "," + quoted(network.name) + "," +
                            quoted(network.number) + ")\n";
        return true;
    }
    if (isQuestion(command.tail)) {
        answer.lines += "+COPS: " + std::string(searching ? "0" : "2");
        if (isRegistered())
            answer.lines += "," + std::to_string(operatorFormat) + "," + quoted(name);
        answer.lines += "\n";
        return true;
    }
    const std::vector<std::string> given = parameters(command.tail);
    const int mode = isSetting(command.tail) ? toNumber(given[0]) : -1;
    const int format = given.size() > 1 ? toNumber(given[1]) : operatorFormat;
    if (mode < 0 || mode > 4 || format < 0 || format > 2)
        return refuse(answer, IncorrectParameters);
    const bool isNamed = mode == 1 || mode == 4;
    if (mode == 1 && (given.size() < 3 || (given[2] != network.number && given[2] != network.name)))
        return refuse(answer, NoNetworkService);
    operatorFormat = format;
    if (mode == 2)
        searching = attached = false;
    else if ((mode == 0 || isNamed) && !searching)
        search();
    return true;
}

bool RadioCommands::registrationReport(const Command& command, Answer& answer) {
    if (!isQuestion(command.tail))
        return executeSetting(command, answer);
    const int status = command.name == "+CREG" || isAttached() ? registration() : 0;
    answer.lines +=
        command.name + ": " + std::to_string(values[command.name]) + "," + std::to_string(status);
    if (values[command.name] == 2 && isRegistered())
        answer.lines += ",\"1A2B\",\"3C4D\"";
    answer.lines += "\n";
    return true;
}

bool RadioCommands::signalQuality(const Command& command, Answer& answer) {
    if (isTest(command.tail)) {
        answer.lines += "+CSQ: (0-31,99),(0-7,99)\n";
        return true;
    }
    const int level =
        network.coverage == RadioNetwork::None ? 99 : std::clamp((network.dBm + 113) / 2, 0, 31);
    answer.lines += "+CSQ: " + std::to_string(level) + ",0\n";
    return command.tail.empty();
}

/// Asked for while the module still searches, the attachment takes as long as that does.
bool RadioCommands::attach(const Command& command, Answer& answer) {
    if (isQuestion(command.tail)) {
        answer.lines += "+CGATT: " + std::to_string(isAttached() ? 1 : 0) + "\n";
        return true;
    }
    if (isTest(command.tail)) {
        answer.lines += "+CGATT: (0,1)\n";
        return true;
    }
    if (command.tail != "=0" && command.tail != "=1")
        return refuse(answer, IncorrectParameters);
    if (simError() != 0)
        return refuse(answer, simError());
    const Nanoseconds wait = nextChange();
    const bool willRegister =
        wait > Nanoseconds(0) && wait <= LongestAttach && network.coverage != RadioNetwork::Denied;
    if (command.tail == "=1" && !isRegistered() && !willRegister)
        return refuse(answer, NoNetworkService);
    if (command.tail == "=1" && !isAttached())
        answer.delay = wait + AttachTime;
    attached = command.tail == "=1";
    return true;
}

bool RadioCommands::context(const Command& command, Answer& answer) {
    if (isTest(command.tail)) {
        answer.lines += "+CGDCONT: (1-" + std::to_string(MostContexts) + "),\"IP\",,,(0),(0)\n";
        return true;
    }
    if (isQuestion(command.tail)) {
        for (const auto& defined : contexts)
            answer.lines += "+CGDCONT: " + defined.second + "\n";
        return true;
    }
    const std::vector<std::string> given = parameters(command.tail);
    const int number = isSetting(command.tail) ? toNumber(given[0]) : -1;
    if (number < 1 || number > MostContexts ||
        (given.size() > 1 && given[1] != "IP" && given[1] != "PPP"))
        return refuse(answer, IncorrectParameters);
    if (given.size() == 1)
        contexts.erase(number);
    else
        contexts[number] = command.tail.substr(1);
    return true;
}

bool RadioCommands::quality(const Command& command, Answer& answer) {
    if (isQuestion(command.tail)) {
        for (const auto& defined : qualities) {
            if (defined.first.compare(0, command.name.size(), command.name) == 0)
                answer.lines += command.name + ": " + defined.second + "\n";
        }
        return true;
    }
    const std::vector<std::string> given = parameters(command.tail);
    for (const std::string& parameter : given) {
        if (!isSetting(command.tail) || toNumber(parameter) < 0)
            return refuse(answer, IncorrectParameters);
    }
    if (contexts.count(toNumber(given[0])) == 0)
        return refuse(answer, UnspecifiedGprsError);
    qualities[command.name + given[0]] = command.tail.substr(1);
    return true;
}

bool RadioCommands::address(const Command&, Answer& answer) {
    for (const auto& defined : contexts)
        answer.lines += "+CGPADDR: " + std::to_string(defined.first) + "," +
                        quoted(isAttached() ? LocalAddress : "0.0.0.0") + "\n";
    return true;
}

bool RadioCommands::enterData(const Command& command, Answer& answer) {
    if (isTest(command.tail)) {
        answer.lines += "+CGDATA: (\"PPP\")\n";
        return true;
    }
    answer.delay = DialTime;
    const bool isServed = isRegistered();
    answer.result = isServed ? "CONNECT" : "NO CARRIER";
    if (isServed) {
        answer.effect = Effect::GoOnline;
        attached = true;
    }
    return isServed;
}

/// Only the packet service is dialled: "*99#", "*99***1#".
bool RadioCommands::dial(const Command& command, Answer& answer) {
    const size_t begin = std::min(command.tail.find_first_not_of("TPtp "), command.tail.size());
    const std::string number = command.tail.substr(begin);
    const bool isPacketService =
        number.compare(0, 3, "*99") == 0 && number.find('#') != std::string::npos;
    if (isPacketService)
        return enterData(command, answer);
    answer.delay = DialTime;
    answer.result = "NO CARRIER";
    return false;
}

bool RadioCommands::clock(const Command& command, Answer& answer) {
    const Nanoseconds wall = Clock::get().wall();
    if (isQuestion(command.tail)) {
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
    const std::string given = isSetting(command.tail) ? command.tail.substr(1) : "";
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
    if (isTest(command.tail))
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
    if (isTest(command.tail)) {
        answer.lines += "+CMUX: (0),(0),(1-5),(1-127)\n";
        return true;
    }
    const std::vector<std::string> given = parameters(command.tail);
    if (!isSetting(command.tail) || given[0] != "0")
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

bool RadioCommands::cellMonitor(const Command& command, Answer& answer) {
    if (isTest(command.tail)) {
        answer.lines += "#MONI: (0-7)\n";
        return true;
    }
    const bool isCovered = network.coverage != RadioNetwork::None;
    answer.lines += "#MONI: ";
    if (isRegistered())
        answer.lines += network.name + " ";
    answer.lines +=
        isCovered ? "BSIC:70 RxQual:0 LAC:1A2B Id:3C4D ARFCN:" + std::to_string(network.channel) +
                        " PWR:" + std::to_string(network.dBm) + "dbm TA:1\n"
                  : "BSIC:FF RxQual:99 LAC:FFFF Id:FFFF ARFCN:0 PWR:-115dbm TA:0\n";
    return true;
}

bool RadioCommands::shutDown(const Command& command, Answer& answer) {
    answer.effect = Effect::PowerOff;
    return command.tail.empty();
}

}  // namespace sim
