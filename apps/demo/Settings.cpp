#include "Settings.h"

#include <arpa/inet.h>

#include "config/IniFile.h"

namespace demo {
namespace {

const std::string Key = "link";

std::string textIn(const IniFile& file, const char* name) { return file.GetValue(Key, name, ""); }

uint32_t addressIn(const IniFile& file, const char* name) {
    in_addr bytes{};
    return inet_pton(AF_INET, textIn(file, name).c_str(), &bytes) == 1 ? bytes.s_addr : 0;
}

}  // namespace

bool Settings::read(const char* path) {
    IniFile file(path);
    if (!file.ReadFile())
        return false;
    kind = textIn(file, "kind");
    gprs.pin = textIn(file, "pin");
    gprs.apn = textIn(file, "apn");
    gprs.user = textIn(file, "user");
    gprs.password = textIn(file, "password");
    wlan.ssid = textIn(file, "ssid");
    wlan.securityType = file.GetValueI(Key, "security", WlanConnection::SecurityOpen);
    wlan.psk = textIn(file, "psk");
    wlan.ipAddress = addressIn(file, "address");
    wlan.subnetMask = addressIn(file, "mask");
    wlan.router = addressIn(file, "router");
    wlan.dns = addressIn(file, "dns");
    bluetooth = {textIn(file, "device"), textIn(file, "lap"), textIn(file, "pin")};
    starts = file.GetValueI("demo", "starts", 0) + 1;
    return file.SetValueI("demo", "starts", starts, true) && file.WriteFile();
}

}  // namespace demo
