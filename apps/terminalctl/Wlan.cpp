#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "Device.h"
#include "Link.h"
#include "network/WlanConnection.h"

namespace ctl {
namespace {

constexpr size_t PskDigits = 64;
constexpr size_t ShortWepDigits = 10;
constexpr size_t LongWepDigits = 26;

/// By WlanConnection::Security.
const char* const Securities[] = {"open", "wep", "wpa", "wpa2", "daemon"};

int securityIn(const LinkSettings& settings) {
    const std::string text = settings.text("security");
    if (text.empty())
        return settings.text("psk").empty() ? WlanConnection::SecurityOpen
                                            : WlanConnection::SecurityWpa2;
    int number = 0;
    for (const char* const name : Securities) {
        if (text == name || text == std::to_string(number))
            return number;
        ++number;
    }
    throw Failure(WrongUsage, "security is open, wep, wpa, wpa2 or daemon, not " + text);
}

uint32_t addressIn(const LinkSettings& settings, const char* name) {
    const std::string text = settings.text(name);
    in_addr address{};
    if (!text.empty() && inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw Failure(WrongUsage, std::string(name) + " is no address: " + text);
    return address.s_addr;
}

bool isKey(const std::string& text, std::initializer_list<size_t> lengths) {
    return std::find(lengths.begin(), lengths.end(), text.size()) != lengths.end() &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char digit) { return std::isxdigit(digit) != 0; });
}

/// As the supplicant takes it: a key in hexadecimal digits as it stands, any other text in quotes.
std::string quoted(const std::string& text, std::initializer_list<size_t> keyLengths = {}) {
    const bool isQuoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return text.empty() || isQuoted || isKey(text, keyLengths) ? text : '"' + text + '"';
}

WLAN_CONNECTION_SETTINGS settingsFrom(const LinkSettings& settings) {
    const auto wepKey = [&](const char* name) {
        return quoted(settings.text(name), {ShortWepDigits, LongWepDigits});
    };
    const std::string wepIndex = settings.text("wep-index");
    if (!wepIndex.empty() && (wepIndex.size() > 1 || wepIndex < "0" || wepIndex > "3"))
        throw Failure(WrongUsage, "wep-index is 0 to 3, not " + wepIndex);
    WLAN_CONNECTION_SETTINGS wlan;
    wlan.ssid = quoted(settings.text("ssid"));
    wlan.securityType = securityIn(settings);
    wlan.wepKey0 = wepKey("wep-key0");
    wlan.wepKey1 = wepKey("wep-key1");
    wlan.wepKey2 = wepKey("wep-key2");
    wlan.wepKey3 = wepKey("wep-key3");
    wlan.wepTxKeyIndex = wepIndex.empty() ? 0 : wepIndex[0] - '0';
    wlan.psk = quoted(settings.text("psk"), {PskDigits});
    wlan.ipAddress = addressIn(settings, "address");
    wlan.subnetMask = addressIn(settings, "mask");
    wlan.router = addressIn(settings, "router");
    wlan.dns = addressIn(settings, "dns");
    if (wlan.ssid.empty() && wlan.securityType != WlanConnection::SecurityOfDaemon)
        throw Failure(WrongUsage, "no network is given: --ssid");
    return wlan;
}

}  // namespace

void declareWlan(Command command) {
    const auto settings = std::make_shared<LinkSettings>(
        command, std::initializer_list<LinkSettings::Known>{
                     {"ssid", "name of the network"},
                     {"security", "open, wep, wpa, wpa2 or daemon; wpa2 when there is a psk"},
                     {"psk", "passphrase, or key in 64 hexadecimal digits"},
                     {"wep-key0", "key, as text or in 10 or 26 hexadecimal digits"},
                     {"wep-key1", "likewise"},
                     {"wep-key2", "likewise"},
                     {"wep-key3", "likewise"},
                     {"wep-index", "the key to send with, 0 to 3"},
                     {"address", "of the terminal; by DHCP if not given"},
                     {"mask", "of its network"},
                     {"router", "to other networks"},
                     {"dns", "name server"},
                 });
    const auto times = std::make_shared<LinkTimes>();
    declareTimes(command, *times);
    command.act([settings, times](Output& output) {
        settings->load();
        const WLAN_CONNECTION_SETTINGS wlan = settingsFrom(*settings);
        const Device device;
        WlanConnection connection(wlan);
        return runLink(connection, *times, output);
    });
}

}  // namespace ctl
