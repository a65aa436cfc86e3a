#include "sim/devices/KernelModules.h"

#include <algorithm>

#include "network/WlanProtocol.h"

namespace sim {
namespace {

constexpr int Done = 0;
constexpr int Failed = 1;
constexpr char ModuleFolder[] = "/lib/modules/wireless/";

/// The kernel's own spelling.
std::string named(std::string module) {
    std::replace(module.begin(), module.end(), '-', '_');
    return module;
}

const std::string& usbHost() {
    static const std::string name = named(wlan::UsbModuleName);
    return name;
}

}  // namespace

KernelModules::KernelModules(const RootFolder& rootFolder) : files(rootFolder) { write(); }

void KernelModules::serve(Programs& programs) {
    const auto doing = [this](int (KernelModules::*action)(const std::string&)) {
        return [this, action](const Words& question) {
            const int status = question.size() > 1 ? (this->*action)(question[1]) : Failed;
            return Words{std::to_string(status)};
        };
    };
    programs.answer("modprobe", doing(&KernelModules::probe));
    programs.answer("insmod", doing(&KernelModules::insert));
    programs.answer("rmmod", doing(&KernelModules::remove));
}

bool KernelModules::isLoaded(const std::string& module) const {
    const std::lock_guard<std::mutex> held(mutex);
    return contains(module);
}

bool KernelModules::contains(const std::string& module) const {
    return std::find(modules.begin(), modules.end(), module) != modules.end();
}

/// Has `apply` change the list, if it can.
template <class Change> int KernelModules::change(Change apply) {
    {
        const std::lock_guard<std::mutex> held(mutex);
        if (!apply())
            return Failed;
        write();
    }
    if (changed)
        changed();
    return Done;
}

int KernelModules::probe(const std::string& module) {
    return change([&] {
        if (named(module) != usbHost())
            return false;
        if (!contains(usbHost()))
            modules.insert(modules.begin(), usbHost());
        return true;
    });
}

int KernelModules::insert(const std::string& file) {
    return change([&] {
        const std::string driver = wlan::ModuleName;
        if (file != ModuleFolder + driver + ".ko" || !contains(usbHost()) || contains(driver))
            return false;
        modules.insert(modules.begin(), driver);
        return true;
    });
}

int KernelModules::remove(const std::string& module) {
    return change([&] {
        const auto found = std::find(modules.begin(), modules.end(), named(module));
        const bool isInUse = named(module) == usbHost() && contains(wlan::ModuleName);
        if (found == modules.end() || isInUse)
            return false;
        modules.erase(found);
        return true;
    });
}

void KernelModules::write() const {
    std::string text;
    for (const std::string& module : modules)
        text += module + " 541932 0 - Live 0xbf000000\n";
    files.write("/proc/modules", text);
}

}  // namespace sim
