#include "sim/devices/WlanAdapter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "network/WlanProtocol.h"
#include "sim/Device.h"

namespace sim {
namespace {

constexpr NetworkInterface::HardwareAddress AdapterAddress = {0x00, 0x0C, 0x43, 0x30, 0x70, 0xA0};

bool hasPassed(const std::optional<Nanoseconds>& begin, const std::optional<Nanoseconds>& delay) {
    return begin && delay && Clock::get().monotonic() >= *begin + *delay;
}

/// A parameter's value, without the quotes of a text.
std::string valueOf(const std::map<std::string, std::string>& parameters, const std::string& name) {
    const auto found = parameters.find(name);
    if (found == parameters.end())
        return "";
    const std::string& value = found->second;
    const bool isText = value.size() > 1 && value.front() == '"' && value.back() == '"';
    return isText ? value.substr(1, value.size() - 2) : value;
}

wlan::WirelessRecord& wireless(void* record) { return *static_cast<wlan::WirelessRecord*>(record); }

}  // namespace

WlanAdapter::WlanAdapter(Journal& eventJournal, KernelModules& kernelModules)
    : NetworkInterface(wlan::InterfaceName, eventJournal, AdapterAddress), modules(kernelModules) {
    modules.onChange([this] { refresh(); });
}

void WlanAdapter::setPower(bool on) {
    {
        const std::lock_guard<std::mutex> held(mutex);
        hasPower = on;
    }
    refresh();
}

void WlanAdapter::setRadio(bool on) {
    {
        const std::lock_guard<std::mutex> held(mutex);
        hasRadio = on;
    }
    refresh();
}

void WlanAdapter::refresh() {
    const bool hasDriver = modules.isLoaded(wlan::ModuleName);
    {
        const std::lock_guard<std::mutex> held(mutex);
        if (hasPower && hasRadio && hasDriver) {
            if (!readySince)
                readySince = Clock::get().monotonic();
            return;
        }
        readySince.reset();
        joinedAt.reset();
        wanted.clear();
    }
    reset();
}

void WlanAdapter::setNetwork(const std::string& ssid, const std::string& key) {
    const std::lock_guard<std::mutex> held(mutex);
    networkName = ssid;
    networkKey = key;
}

void WlanAdapter::setChannel(int channel) {
    constexpr int FirstChannelMHz = 2407;
    constexpr int LastChannel = 14;
    constexpr int LastChannelMHz = 2484;  // farther apart than the others
    setFrequency(channel == LastChannel ? LastChannelMHz : FirstChannelMHz + 5 * channel, 6);
}

void WlanAdapter::setFrequency(int32_t newMantissa, int16_t newExponent) {
    const std::lock_guard<std::mutex> held(mutex);
    mantissa = newMantissa;
    exponent = newExponent;
}

void WlanAdapter::setSignal(int dBm) {
    const std::lock_guard<std::mutex> held(mutex);
    level = static_cast<int8_t>(std::clamp(dBm, INT8_MIN, INT8_MAX));
}

int WlanAdapter::signal() const {
    const std::lock_guard<std::mutex> held(mutex);
    return level;
}

void WlanAdapter::appearAfter(std::optional<Nanoseconds> delay) {
    const std::lock_guard<std::mutex> held(mutex);
    appearDelay = delay;
}

void WlanAdapter::associateAfter(std::optional<Nanoseconds> delay) {
    const std::lock_guard<std::mutex> held(mutex);
    associateDelay = delay;
}

void WlanAdapter::drop() {
    const std::lock_guard<std::mutex> held(mutex);
    if (joinedAt)
        joinedAt = Clock::get().monotonic();
}

void WlanAdapter::failNext(unsigned request, int error, int times) {
    const std::lock_guard<std::mutex> held(mutex);
    failures[request] = {error, times};
}

void WlanAdapter::claimEssid(const std::string& bytes, uint16_t length) {
    const std::lock_guard<std::mutex> held(mutex);
    claim = {bytes, length};
}

void WlanAdapter::join(const std::map<std::string, std::string>& parameters) {
    const std::lock_guard<std::mutex> held(mutex);
    wanted = parameters;
    joinedAt = Clock::get().monotonic();
}

void WlanAdapter::leave() {
    const std::lock_guard<std::mutex> held(mutex);
    wanted.clear();
    joinedAt.reset();
}

/// Whether the supplicant's network is the one in reach, with the right key.
bool WlanAdapter::isInReach() const {
    const bool isPsk = valueOf(wanted, "key_mgmt") == "WPA-PSK";
    return !networkName.empty() && valueOf(wanted, "ssid") == networkName &&
           valueOf(wanted, isPsk ? "psk" : "wep_key0") == networkKey;
}

std::string WlanAdapter::essid() const {
    if (!isPresent() || !isUp())
        return "";
    const std::lock_guard<std::mutex> held(mutex);
    return hasPassed(joinedAt, associateDelay) && isInReach() ? networkName : "";
}

bool WlanAdapter::isPresent() const {
    const std::lock_guard<std::mutex> held(mutex);
    return hasPassed(readySince, appearDelay);
}

int WlanAdapter::ioctl(unsigned long request, void* record) {
    if (!isPresent())
        return failWith(ENODEV);
    {
        const std::lock_guard<std::mutex> held(mutex);
        const auto failure = failures.find(request);
        if (failure != failures.end() && failure->second.times > 0) {
            --failure->second.times;
            return failWith(failure->second.error);
        }
    }
    switch (request) {
    case wlan::GetEssid: return fillEssid(record);
    case wlan::GetStatistics: return fillStatistics(record);
    case wlan::GetFrequency: {
        const std::lock_guard<std::mutex> held(mutex);
        wireless(record).frequency = {mantissa, exponent, 0, 0};
        return 0;
    }
    default: return NetworkInterface::ioctl(request, record);
    }
}

/// Never more than the program has room for, whatever length is told.
int WlanAdapter::fillEssid(void* record) const {
    const std::string name = essid();
    const std::lock_guard<std::mutex> held(mutex);
    wlan::WirelessBuffer& buffer = wireless(record).buffer;
    const Claim told = claim.value_or(Claim{name, static_cast<uint16_t>(name.size())});
    if (!buffer.data)
        return failWith(EFAULT);
    memcpy(buffer.data, told.bytes.data(), std::min<size_t>(told.bytes.size(), buffer.length));
    buffer.length = told.length;
    buffer.flags = told.bytes.empty() ? 0 : 1;
    return 0;
}

int WlanAdapter::fillStatistics(void* record) const {
    const std::lock_guard<std::mutex> held(mutex);
    wlan::WirelessBuffer& buffer = wireless(record).buffer;
    wlan::WirelessStatistics statistics{};
    statistics.quality = 100;
    statistics.level = level;
    statistics.noise = -95;
    statistics.updated = 7;  // quality, level and noise
    if (!buffer.data || buffer.length < sizeof statistics)
        return failWith(E2BIG);
    memcpy(buffer.data, &statistics, sizeof statistics);
    buffer.length = sizeof statistics;
    return 0;
}

}  // namespace sim
