#include "Link.h"

#include "Bluetooth.h"
#include "Show.h"

namespace demo {
namespace {

constexpr int LongestStartMs = 120'000;
constexpr int LookMs = 250;

std::unique_ptr<NetworkConnection> makeConnection(Settings& settings) {
    if (settings.kind == "gprs")
        return std::make_unique<GprsConnection>(settings.gprs);
    if (settings.kind == "wlan")
        return std::make_unique<WlanConnection>(settings.wlan);
    if (settings.kind == "bluetooth")
        return std::make_unique<BluetoothConnection>(&settings.bluetooth);
    return nullptr;
}

}  // namespace

Link::Link(Settings linkSettings)
    : settings(std::move(linkSettings)), connection(makeConnection(settings)) {
    start();
}

Link::~Link() {
    stop(LongestStartMs, false);
    if (connection) {
        connection->disconnect();
        connection->shutdown();
    }
}

void Link::run() {
    if (!connection || !connection->initialize() || !connection->connect()) {
        note("no link");
        return;
    }
    if (!awaitUp())
        return;
    GENERIC_NETWORK_INFO info;
    if (connection->getNetworkInfo(info))
        note("%s: channel %d, signal %d %%, address %s", info.networkName.c_str(), info.channel,
             info.signalQuality, info.ipAddress.c_str());
    if (auto* const radio = dynamic_cast<BluetoothConnection*>(connection.get()))
        talk(*radio, settings.bluetooth);
}

bool Link::awaitUp() {
    while (connection->getLastEvent() != NETWORK_UP) {
        if (stopRequested())
            return false;
        sleep(LookMs);
    }
    return true;
}

}  // namespace demo
