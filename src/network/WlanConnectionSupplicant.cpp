// The supplicant's configuration over its control connection.

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Number.h"
#include "network/WlanConnection.h"

namespace {

using Parameters = std::vector<std::pair<const char*, std::string>>;

Parameters parametersOf(const WLAN_CONNECTION_SETTINGS& settings) {
    switch (settings.securityType) {
    case WlanConnection::SecurityOpen:
        return {{"ssid", settings.ssid}, {"key_mgmt", "NONE"}, {"auth_alg", "OPEN"}};
    case WlanConnection::SecurityWep:
        return {{"ssid", settings.ssid},
                {"key_mgmt", "NONE"},
                {"auth_alg", "SHARED"},
                {"wep_key0", settings.wepKey0},
                {"wep_key1", settings.wepKey1},
                {"wep_key2", settings.wepKey2},
                {"wep_key3", settings.wepKey3},
                {"wep_tx_keyidx", std::to_string(settings.wepTxKeyIndex)}};
    case WlanConnection::SecurityWpa:
    case WlanConnection::SecurityWpa2:
        return {{"ssid", settings.ssid},
                {"proto", settings.securityType == WlanConnection::SecurityWpa ? "WPA" : "WPA2"},
                {"key_mgmt", "WPA-PSK"},
                {"auth_alg", "OPEN"},
                {"psk", settings.psk}};
    default: return {{"ssid", settings.ssid}};
    }
}

}  // namespace

bool WlanConnection::configureNetwork() {
    if (settings.securityType == SecurityOfDaemon)
        return true;
    std::string reply;
    if (!wpaControlRequest("ADD_NETWORK", reply))
        return false;
    const int network = foundation::numberIn(reply.c_str());
    for (const auto& [name, value] : parametersOf(settings)) {
        if (!value.empty() && !wpaSetNetworkParameter(network, name, value.c_str()))
            return false;
    }
    // Whatever number the new network has: the terminal's daemon holds exactly one.
    return wpaControlRequest("ENABLE_NETWORK 0", reply);
}

bool WlanConnection::wpaSetNetworkParameter(int id, const char* name, const char* value) {
    char command[256];
    std::snprintf(command, sizeof command, "SET_NETWORK %d %s %s", id, name ? name : "",
                  value ? value : "");
    std::string reply;
    return wpaControlRequest(command, reply) && reply.compare(0, 2, "OK") == 0;
}

bool WlanConnection::wpaControlRequest(const char* cmd, std::string& reply) {
    if (!wpaControl || !cmd)
        return false;
    constexpr unsigned KeptBytes = 3;
    char buffer[KeptBytes + 1] = {};
    unsigned received = KeptBytes;
    const bool answered =
        wpa_ctrl_request(wpaControl.get(), cmd, static_cast<unsigned>(std::strlen(cmd)), buffer,
                         &received, nullptr) == 0;
    buffer[answered ? received : 0] = '\0';
    reply = buffer;
    return answered;
}
