#include "sim/devices/BluetoothAir.h"

#include <cstdio>
#include <utility>

#include "sim/Text.h"

namespace sim {
namespace {

std::string key(const std::string& address) { return upper(address); }

}  // namespace

void BluetoothAir::present(Remote remote) {
    remote.address = key(remote.address);
    const std::lock_guard<std::mutex> held(mutex);
    Remote& known = reachable[remote.address];
    remote.link = known.link;
    known = std::move(remote);
}

void BluetoothAir::present(const std::string& address, const std::string& name) {
    Remote remote;
    remote.address = address;
    remote.name = name;
    present(std::move(remote));
}

void BluetoothAir::takeAway(const std::string& address) {
    drop(address);
    const std::lock_guard<std::mutex> held(mutex);
    reachable.erase(key(address));
}

void BluetoothAir::setSignal(const std::string& address, int dBm) {
    const std::lock_guard<std::mutex> held(mutex);
    const auto remote = reachable.find(key(address));
    if (remote != reachable.end())
        remote->second.dBm = dBm;
}

bool BluetoothAir::ring(const std::string& address, int port) {
    std::unique_lock<std::mutex> held(mutex);
    const auto found = reachable.find(key(address));
    if (found == reachable.end() || found->second.link != 0)
        return false;
    const int link = ++lastLink;
    found->second.link = link;
    const Remote caller = found->second;
    for (Module* const module : std::vector<Module*>(modules)) {
        links[link] = module;
        held.unlock();
        const bool taken = module->linkOffered(link, caller, port);
        held.lock();
        if (taken) {
            journal.note("air", caller.address + " called");
            return true;
        }
    }
    links.erase(link);
    if (Remote* const remote = findByLink(link))
        remote->link = 0;
    return false;
}

bool BluetoothAir::sendFrom(const std::string& address, std::string_view bytes) {
    Module* module = nullptr;
    int link = 0;
    {
        const std::lock_guard<std::mutex> held(mutex);
        const auto remote = reachable.find(key(address));
        if (remote == reachable.end() || remote->second.link == 0)
            return false;
        link = remote->second.link;
        module = links.at(link);
    }
    module->linkData(link, bytes);
    return true;
}

/// Forgets the link of a device. False when it has none. With the lock held.
bool BluetoothAir::end(Remote& remote, Module*& module, int& link) {
    link = std::exchange(remote.link, 0);
    if (link == 0)
        return false;
    module = links.at(link);
    links.erase(link);
    return true;
}

bool BluetoothAir::drop(const std::string& address) {
    Module* module = nullptr;
    int link = 0;
    {
        const std::lock_guard<std::mutex> held(mutex);
        const auto remote = reachable.find(key(address));
        if (remote == reachable.end() || !end(remote->second, module, link))
            return false;
        journal.note("air", remote->first + " dropped");
    }
    module->linkLost(link);
    return true;
}

std::vector<BluetoothAir::Remote> BluetoothAir::remotes() const {
    const std::lock_guard<std::mutex> held(mutex);
    std::vector<Remote> all;
    for (const auto& [address, remote] : reachable)
        all.push_back(remote);
    return all;
}

std::optional<BluetoothAir::Remote> BluetoothAir::find(const std::string& address) const {
    const std::lock_guard<std::mutex> held(mutex);
    const auto found = reachable.find(key(address));
    if (found == reachable.end())
        return std::nullopt;
    return found->second;
}

void BluetoothAir::addModule(Module& module) {
    const std::lock_guard<std::mutex> held(mutex);
    modules.push_back(&module);
}

BluetoothAir::Outcome BluetoothAir::call(Module& caller, const std::string& address,
                                         const std::string& pin, int& link) {
    const std::lock_guard<std::mutex> held(mutex);
    const auto found = reachable.find(key(address));
    if (found == reachable.end() || found->second.mood == Remote::Deaf)
        return Outcome::NoAnswer;
    Remote& remote = found->second;
    if (remote.mood == Remote::Refusing || remote.link != 0)
        return Outcome::Refused;
    if (!remote.pin.empty() && remote.pin != pin)
        return Outcome::WrongPin;
    link = ++lastLink;
    remote.link = link;
    links[link] = &caller;
    journal.note("air", remote.address + " connected");
    return Outcome::Connected;
}

void BluetoothAir::greet(int link) {
    Module* module = nullptr;
    std::string greeting;
    {
        const std::lock_guard<std::mutex> held(mutex);
        const Remote* const remote = findByLink(link);
        if (!remote || remote->greeting.empty())
            return;
        greeting = remote->greeting;
        module = links.at(link);
    }
    module->linkData(link, greeting);
}

bool BluetoothAir::send(int link, std::string_view bytes) {
    Module* module = nullptr;
    {
        const std::lock_guard<std::mutex> held(mutex);
        Remote* const remote = findByLink(link);
        if (!remote)
            return false;
        if (remote->service == Remote::Sink) {
            remote->received += bytes;
            return true;
        }
        module = links.at(link);
    }
    module->linkData(link, bytes);
    return true;
}

bool BluetoothAir::close(int link) {
    const std::lock_guard<std::mutex> held(mutex);
    Remote* const remote = findByLink(link);
    Module* module = nullptr;
    if (!remote || !end(*remote, module, link))
        return false;
    journal.note("air", remote->address + " closed");
    return true;
}

void BluetoothAir::closeAll(const Module& module) {
    const std::lock_guard<std::mutex> held(mutex);
    for (auto& [address, remote] : reachable) {
        Module* owner = nullptr;
        int link = 0;
        if (remote.link != 0 && links.at(remote.link) == &module)
            end(remote, owner, link);
    }
}

BluetoothAir::Remote* BluetoothAir::findByLink(int link) {
    for (auto& [address, remote] : reachable) {
        if (link != 0 && remote.link == link)
            return &remote;
    }
    return nullptr;
}

std::optional<BluetoothAir::Remote> BluetoothAir::remoteOf(int link) const {
    const std::lock_guard<std::mutex> held(mutex);
    for (const auto& [address, remote] : reachable) {
        if (link != 0 && remote.link == link)
            return remote;
    }
    return std::nullopt;
}

std::string BluetoothAir::addressText(const std::array<uint8_t, 6>& bytes) {
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2],
             bytes[3], bytes[4], bytes[5]);
    return text;
}

std::array<uint8_t, 6> BluetoothAir::addressBytes(const std::string& text) {
    std::array<unsigned, 6> parts{};
    sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &parts[0], &parts[1], &parts[2], &parts[3],
           &parts[4], &parts[5]);
    std::array<uint8_t, 6> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(parts[i]);
    return bytes;
}

}  // namespace sim
