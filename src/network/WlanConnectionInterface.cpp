// Requests to the interface and the adapter's driver, and what they tell about the link.

#include <sys/ioctl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "network/WlanConnection.h"
#include "network/WlanProtocol.h"

namespace {

/// Channels of the 2.4 GHz band, by the highest frequency that counts as each.
constexpr int LowestMHz = 2410;
constexpr struct {
    int highestMHz;
    int channel;
} Channels[] = {{2414, 1}, {2419, 2}, {2424, 3},  {2429, 4},  {2434, 5},  {2439, 6},  {2444, 7},
                {2449, 8}, {2454, 9}, {2459, 10}, {2464, 11}, {2469, 12}, {2477, 13}, {2489, 14}};

constexpr struct {
    int lowestLevel;  // dBm
    int percent;
} Qualities[] = {{-56, 99}, {-66, 79}, {-70, 59}, {-80, 39}, {-89, 19}};

int channelOf(const wlan::WirelessFrequency& frequency) {
    // In single precision, as it has always been counted: the last digit depends on it.
    const double megahertz =
        std::round(static_cast<double>(static_cast<float>(frequency.mantissa)) *
                   std::pow(10.0, frequency.exponent) / 1e6);
    if (!(megahertz >= LowestMHz))
        return 0;
    for (const auto& range : Channels) {
        if (megahertz <= range.highestMHz)
            return range.channel;
    }
    return 0;
}

int qualityOf(int level) {
    for (const auto& quality : Qualities) {
        if (level >= quality.lowestLevel)
            return quality.percent;
    }
    return 0;
}

/// A record of either kind begins with the name of the interface.
bool requestOf(int socket, unsigned request, void* record) {
    if (socket < 0)
        return false;
    std::strncpy(static_cast<char*>(record), wlan::InterfaceName, wlan::NameSize);
    return ::ioctl(socket, request, record) == 0;
}

}  // namespace

bool WlanConnection::ifaceRequest(unsigned int request, void* ifreq) {
    return requestOf(sock.get(), request, ifreq);
}

bool WlanConnection::ifaceWirelessRequest(unsigned int request, void* iwreq) {
    return requestOf(sock.get(), request, iwreq);
}

std::string WlanConnection::ifaceGetEssid() {
    char essid[wlan::EssidSize + 1] = {};
    wlan::WirelessRecord record{};
    record.buffer = {essid, wlan::EssidSize, 0};
    if (!ifaceWirelessRequest(wlan::GetEssid, &record))
        return "";
    essid[std::min(record.buffer.length, wlan::EssidSize)] = '\0';
    return essid;
}

bool WlanConnection::setInterfaceUp(bool up, const char* readError, const char* writeError) {
    wlan::InterfaceRecord record{};
    if (!ifaceRequest(wlan::GetInterfaceFlags, &record))
        return fail(readError);
    record.flags = static_cast<int16_t>(up ? record.flags | wlan::InterfaceUp
                                           : record.flags & ~wlan::InterfaceUp);
    return ifaceRequest(wlan::SetInterfaceFlags, &record) || fail(writeError);
}

bool WlanConnection::isConnectionUp() {
    wlan::InterfaceRecord record{};
    return ifaceRequest(wlan::GetInterfaceFlags, &record) && (record.flags & wlan::InterfaceUp) &&
           matchSSID(ifaceGetEssid().c_str());
}

bool WlanConnection::matchSSID(const char* essid) {
    std::string ssid = settings.ssid;
    if (ssid.size() > 1 && ssid.front() == '"' && ssid.back() == '"')
        ssid = ssid.substr(1, ssid.size() - 2);
    return essid && ssid == essid;
}

bool WlanConnection::getNetworkInfo(GENERIC_NETWORK_INFO& info) {
    info.networkName = ifaceGetEssid();
    info.connected = matchSSID(info.networkName.c_str()) ? 1 : 0;

    wlan::WirelessRecord frequency{};
    if (!ifaceWirelessRequest(wlan::GetFrequency, &frequency))
        return false;
    info.channel = channelOf(frequency.frequency);

    wlan::WirelessStatistics statistics{};
    wlan::WirelessRecord request{};
    request.buffer = {&statistics, sizeof statistics, wlan::ClearUpdatedMarks};
    if (!ifaceWirelessRequest(wlan::GetStatistics, &request))
        return false;
    info.signalQuality = qualityOf(statistics.level);

    addAddresses(wlan::InterfaceName, info);
    return true;
}
