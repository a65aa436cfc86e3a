// The supplicant: a daemon that takes commands as datagrams on a socket in its control directory.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "sim/programs/Programs.h"

namespace program {
namespace {

constexpr int Refused = 255;
constexpr int Nothing = -1;  // descriptor
constexpr char Ok[] = "OK\n";
constexpr char Fail[] = "FAIL\n";

using Parameters = std::map<std::string, std::string>;

struct Options {
    std::string interface, pidFile, controlFolder, configuration;
    bool background = false;
};

struct Network {
    Parameters parameters;
    bool isEnabled = false;
};

bool isText(const std::string& value) {
    return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

bool isHex(const std::string& value, size_t least, size_t most) {
    return value.size() >= least && value.size() <= most && value.size() % 2 == 0 &&
           value.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

/// Text in quotes, or its bytes in hexadecimal without.
bool isBytes(const std::string& value, size_t least, size_t most) {
    return isText(value) ? value.size() - 2 >= least && value.size() - 2 <= most
                         : isHex(value, 2 * least, 2 * most);
}

/// Blank-separated words, all out of a list.
bool areOf(const std::string& value, const std::vector<std::string>& known) {
    std::istringstream words(value);
    size_t count = 0;
    for (std::string word; words >> word; ++count) {
        bool found = false;
        for (const std::string& one : known)
            found = found || one == word;
        if (!found)
            return false;
    }
    return count > 0;
}

bool isValid(const std::string& name, const std::string& value) {
    if (name == "ssid")
        return isBytes(value, 0, 32);
    if (name == "psk")
        return isText(value) ? isBytes(value, 8, 63) : isHex(value, 64, 64);
    if (name == "key_mgmt")
        return areOf(value, {"NONE", "WPA-PSK", "WPA-EAP", "IEEE8021X"});
    if (name == "proto")
        return areOf(value, {"WPA", "WPA2", "RSN"});
    if (name == "auth_alg")
        return areOf(value, {"OPEN", "SHARED", "LEAP"});
    if (name == "wep_tx_keyidx")
        return value.size() == 1 && value[0] >= '0' && value[0] <= '3';
    if (name.size() == 8 && name.compare(0, 7, "wep_key") == 0 && name[7] >= '0' && name[7] <= '3')
        return isBytes(value, 1, 32);
    return false;
}

/// The network of a configuration file, enabled; none when there is none.
std::map<int, Network> readConfiguration(const std::string& hostPath) {
    std::map<int, Network> networks;
    std::ifstream file(hostPath);
    bool isInside = false;
    for (std::string line; std::getline(file, line);) {
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.compare(0, 8, "network=") == 0)
            isInside = true;
        const size_t equals = line.find('=');
        if (isInside && equals != std::string::npos && line.back() != '{')
            networks[0].parameters[line.substr(0, equals)] = line.substr(equals + 1);
    }
    if (!networks.empty())
        networks[0].isEnabled = true;
    return networks;
}

class Daemon {
public:
    Daemon(Door& terminalDoor, const Options& given) : door(terminalDoor), options(given) {}
    ~Daemon() { ::unlink(address.sun_path); }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    bool open() {
        const std::string folder = door.hostPath(options.controlFolder);
        const std::string path = folder + "/" + options.interface;
        ::mkdir(folder.c_str(), 0770);
        ::unlink(path.c_str());
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path)
            return false;
        memcpy(address.sun_path, path.c_str(), path.size());
        control = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        return ::bind(control, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }

    void start(const std::map<int, Network>& configured) {
        networks = configured;
        join();
    }

    void serve() {
        constexpr int LookMs = 50;
        while (!isEnding && waitUnlessEnded(door, control, LookMs)) {
            char command[4096];
            sender = {};
            senderSize = sizeof sender;
            const ssize_t size = ::recvfrom(control, command, sizeof command, MSG_DONTWAIT,
                                            reinterpret_cast<sockaddr*>(&sender), &senderSize);
            if (size >= 0)
                handle(std::string(command, static_cast<size_t>(size)));
            tellOfAssociation();
        }
        door.ask({"leave"});
    }

private:
    void handle(const std::string& command) {
        for (const std::string& step : door.ask({"command", command})) {
            std::istringstream words(step);
            std::string kind;
            long first = 0;
            long second = 0;
            words >> kind >> first >> second;
            if (kind == "obey")
                answer(obey(command));
            else if (kind == "answer")
                answer(step.substr(kind.size() + 1));
            else if (kind == "delay")
                waitUnlessEnded(door, Nothing, static_cast<int>(first));
            else if (kind == "die")
                _exit(EXIT_FAILURE);
            else if (kind == "events")
                flood(first, second);
        }
    }

    void answer(const std::string& text) const { sendTo(sender, senderSize, text); }

    void sendTo(const sockaddr_un& to, socklen_t size, const std::string& text) const {
        ::sendto(control, text.data(), text.size(), MSG_DONTWAIT,
                 reinterpret_cast<const sockaddr*>(&to), size);
    }

    void flood(long count, long gapMs) const {
        for (long i = 0; i < count; ++i) {
            if (!waitUnlessEnded(door, Nothing, static_cast<int>(gapMs)))
                return;
            answer("<3>CTRL-EVENT-SCAN-RESULTS " + std::to_string(i));
        }
    }

    std::string obey(const std::string& command) {
        std::istringstream words(command);
        std::string verb;
        words >> verb;
        if (verb == "PING")
            return "PONG\n";
        if (verb == "ATTACH" || verb == "DETACH") {
            monitors.erase(sender.sun_path);
            if (verb == "ATTACH")
                monitors[sender.sun_path] = {sender, senderSize};
            return Ok;
        }
        if (verb == "TERMINATE") {
            isEnding = true;
            return Ok;
        }
        if (verb == "ADD_NETWORK") {
            const int added = networks.empty() ? 0 : networks.rbegin()->first + 1;
            networks[added];
            return std::to_string(added) + "\n";
        }
        if (verb == "LIST_NETWORKS")
            return list();
        if (verb == "STATUS")
            return status();
        if (verb == "SCAN")
            return Ok;
        return obeyForNetwork(verb, words);
    }

    std::string obeyForNetwork(const std::string& verb, std::istringstream& words) {
        int number = -1;
        words >> number;
        const auto network = networks.find(number);
        const bool isKnown = network != networks.end();
        if (verb == "SET_NETWORK" || verb == "GET_NETWORK") {
            std::string name;
            std::string value;
            words >> name >> std::ws;
            std::getline(words, value, '\0');
            if (isKnown && verb == "GET_NETWORK")
                return network->second.parameters.count(name) ? network->second.parameters[name]
                                                              : Fail;
            if (!isKnown || !isValid(name, value))
                return Fail;
            network->second.parameters[name] = value;
            return Ok;
        }
        if (verb == "ENABLE_NETWORK" || verb == "DISABLE_NETWORK" || verb == "SELECT_NETWORK") {
            if (!isKnown)
                return Fail;
            if (verb == "SELECT_NETWORK") {
                for (auto& other : networks)
                    other.second.isEnabled = false;
            }
            network->second.isEnabled = verb != "DISABLE_NETWORK";
            join();
            return Ok;
        }
        if (verb == "REMOVE_NETWORK") {
            if (!isKnown)
                return Fail;
            networks.erase(network);
            join();
            return Ok;
        }
        return "UNKNOWN COMMAND\n";
    }

    /// Has the adapter look for the first enabled network, or for none.
    void join() const {
        for (const auto& [number, network] : networks) {
            if (!network.isEnabled)
                continue;
            Words question{"join"};
            for (const auto& [name, value] : network.parameters) {
                question.push_back(name);
                question.push_back(value);
            }
            door.ask(question);
            return;
        }
        door.ask({"leave"});
    }

    std::string list() const {
        std::string text = "network id / ssid / bssid / flags\n";
        for (const auto& [number, network] : networks) {
            const auto ssid = network.parameters.find("ssid");
            text += std::to_string(number) + "\t" +
                    (ssid != network.parameters.end() ? ssid->second : "") + "\tany\t" +
                    (network.isEnabled ? "" : "[DISABLED]") + "\n";
        }
        return text;
    }

    std::string status() const {
        const std::string ssid = door.ask({"essid"})[0];
        return ssid.empty() ? "wpa_state=SCANNING\n" : "ssid=" + ssid + "\nwpa_state=COMPLETED\n";
    }

    void tellOfAssociation() {
        if (monitors.empty())
            return;
        const bool isNow = !door.ask({"essid"})[0].empty();
        if (isNow == isAssociated)
            return;
        isAssociated = isNow;
        for (const auto& [path, monitor] : monitors)
            sendTo(monitor.first, monitor.second,
                   isNow ? "<3>CTRL-EVENT-CONNECTED - Connection to 00:0c:41:82:b2:55 completed "
                           "(auth) [id=0 id_str=]"
                         : "<3>CTRL-EVENT-DISCONNECTED bssid=00:0c:41:82:b2:55 reason=4");
    }

    Door& door;
    const Options& options;
    sockaddr_un address{};
    int control = -1;
    std::map<int, Network> networks;
    std::map<std::string, std::pair<sockaddr_un, socklen_t>> monitors;  // by path
    sockaddr_un sender{};
    socklen_t senderSize = 0;
    bool isAssociated = false;
    bool isEnding = false;
};

}  // namespace

int wpaSupplicant(Door& door, int argc, char** argv) {
    Options options;
    for (int option = 0; (option = getopt(argc, argv, "BD:i:P:C:c:")) != -1;) {
        switch (option) {
        case 'B': options.background = true; break;
        case 'D': break;
        case 'i': options.interface = optarg; break;
        case 'P': options.pidFile = door.hostPath(optarg); break;
        case 'C': options.controlFolder = optarg; break;
        case 'c': options.configuration = door.hostPath(optarg); break;
        default: return Refused;
        }
    }
    const bool lacksFile =
        !options.configuration.empty() && ::access(options.configuration.c_str(), R_OK) != 0;
    if (lacksFile || door.ask({"interface", options.interface})[0] != "yes")
        return Refused;
    Daemon daemon(door, options);
    if (!daemon.open())
        return Refused;
    holdEndingSignals();
    if (options.background)
        door.daemonize([&] { writePidFile(options.pidFile); });
    daemon.start(options.configuration.empty() ? std::map<int, Network>{}
                                               : readConfiguration(options.configuration));
    daemon.serve();
    ::unlink(options.pidFile.c_str());
    return EXIT_SUCCESS;
}

}  // namespace program
