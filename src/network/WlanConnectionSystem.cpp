// The driver and the static address: what is done by programs of the system.

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "io/FileStream.h"
#include "network/ModuleList.h"
#include "network/WlanConnection.h"
#include "network/WlanProtocol.h"

namespace {

/// A variable of the environment, "NAME=value", for the length of a scope. Afterwards there is none
/// of that name, whatever was there before.
class EnvironmentEntry {
public:
    EnvironmentEntry(const char* literalName, const std::string& value)
        : name(literalName), entry(copyOf(std::string(name) + "=" + value)),
          added(::putenv(entry.get()) == 0) {}
    EnvironmentEntry(const EnvironmentEntry&) = delete;
    EnvironmentEntry& operator=(const EnvironmentEntry&) = delete;

    /// The environment holds the entry itself, so it is freed only when it has gone from there.
    ~EnvironmentEntry() {
        if (added && ::unsetenv(name) != 0)
            static_cast<void>(entry.release());
    }

    bool isSet() const { return added; }

private:
    static std::unique_ptr<char[]> copyOf(const std::string& text) {
        auto copy = std::make_unique<char[]>(text.size() + 1);
        std::memcpy(copy.get(), text.c_str(), text.size() + 1);
        return copy;
    }

    const char* const name;
    std::unique_ptr<char[]> entry;
    const bool added;
};

/// Whether a command of the system succeeds.
bool runs(const std::string& command) { return std::system(command.c_str()) == 0; }

std::string dotted(uint32_t address) {
    char text[32] = {};
    in_addr bytes{};
    bytes.s_addr = address;
    ::inet_ntop(AF_INET, &bytes, text, sizeof text);
    return text;
}

}  // namespace

bool WlanConnection::isModuleLoaded() {
    const io::FileStream modules = io::openStream("/proc/modules", "r");
    return modules && wlan::isModuleListed(modules.get(), wlan::ModuleName);
}

bool WlanConnection::loadWlanModule() {
    return isModuleLoaded() ||
           (runs(std::string("modprobe ") + wlan::UsbModuleName) &&
            runs(std::string("insmod /lib/modules/wireless/") + wlan::ModuleName + ".ko"));
}

bool WlanConnection::unloadWlanModule() {
    return !isModuleLoaded() || (runs(std::string("rmmod ") + wlan::ModuleName) &&
                                 runs(std::string("rmmod ") + wlan::UsbModuleName));
}

bool WlanConnection::setStaticIp() {
    const EnvironmentEntry entries[] = {{"interface", wlan::InterfaceName},
                                        {"ip", dotted(settings.ipAddress)},
                                        {"subnet", dotted(settings.subnetMask)},
                                        {"router", dotted(settings.router)},
                                        {"dns", dotted(settings.dns)}};
    for (const EnvironmentEntry& entry : entries) {
        if (!entry.isSet())
            return false;
    }
    return runs("/usr/share/udhcpc/default.script bound");
}
