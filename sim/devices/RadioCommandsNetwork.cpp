// The commands about the SIM, the registration and the packet service.

#include <algorithm>

#include "sim/devices/RadioCommands.h"

namespace sim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int RadioOffModes[] = {0, 4};  // of +CFUN
constexpr Nanoseconds LongestAttach = seconds(10);
constexpr Nanoseconds AttachTime = milliseconds(100);
constexpr Nanoseconds DialTime = milliseconds(100);
constexpr int MostContexts = 5;

}  // namespace

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

bool RadioCommands::pin(const Command& command, Answer& answer) {
    if (command.isTest())
        return true;
    const int error = simError();
    const bool needsCode = error == SimPinRequired || error == SimPukRequired;
    if (error != 0 && !needsCode)
        return refuse(answer, error);
    if (command.isQuestion()) {
        answer.lines += error == 0                ? "+CPIN: READY\n"
                        : error == SimPinRequired ? "+CPIN: SIM PIN\n"
                                                  : "+CPIN: SIM PUK\n";
        return true;
    }
    if (!command.isSetting() || error == 0)
        return refuse(answer, NotAllowed);
    const std::vector<std::string> given = command.parameters();
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
    if (command.isTest()) {
        if (network.coverage != RadioNetwork::None)
            answer.lines += "+COPS: (2," + quoted(network.name) + "," + quoted(network.name) + "," +
                            quoted(network.number) + ")\n";
        return true;
    }
    if (command.isQuestion()) {
        answer.lines += "+COPS: " + std::string(searching ? "0" : "2");
        if (isRegistered())
            answer.lines += "," + std::to_string(operatorFormat) + "," + quoted(name);
        answer.lines += "\n";
        return true;
    }
    const std::vector<std::string> given = command.parameters();
    const int mode = command.isSetting() ? toNumber(given[0]) : -1;
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
    if (!command.isQuestion())
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
    if (command.isTest()) {
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
    if (command.isQuestion()) {
        answer.lines += "+CGATT: " + std::to_string(isAttached() ? 1 : 0) + "\n";
        return true;
    }
    if (command.isTest()) {
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
    if (command.isTest()) {
        answer.lines += "+CGDCONT: (1-" + std::to_string(MostContexts) + "),\"IP\",,,(0),(0)\n";
        return true;
    }
    if (command.isQuestion()) {
        for (const auto& defined : contexts)
            answer.lines += "+CGDCONT: " + defined.second + "\n";
        return true;
    }
    const std::vector<std::string> given = command.parameters();
    const int number = command.isSetting() ? toNumber(given[0]) : -1;
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
    if (command.isQuestion()) {
        for (const auto& defined : qualities) {
            if (defined.first.compare(0, command.name.size(), command.name) == 0)
                answer.lines += command.name + ": " + defined.second + "\n";
        }
        return true;
    }
    const std::vector<std::string> given = command.parameters();
    for (const std::string& parameter : given) {
        if (!command.isSetting() || toNumber(parameter) < 0)
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
                        quoted(isAttached() ? RadioNetwork::TerminalAddress : "0.0.0.0") + "\n";
    return true;
}

bool RadioCommands::enterData(const Command& command, Answer& answer) {
    if (command.isTest()) {
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

bool RadioCommands::cellMonitor(const Command& command, Answer& answer) {
    if (command.isTest()) {
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

}  // namespace sim
