#include "network/BluetoothConnection.h"

#include "bluetooth/BlueGigaBluetoothModule.h"
#include "power/PowerManager.h"

namespace {

constexpr char ModulePath[] = "/dev/ttyAT1";

}  // namespace

BluetoothConnection::BluetoothConnection(BT_CONNECTION_SETTINGS* connectionSettings)
    : NetworkConnection(TypeBluetooth),
      module(std::make_unique<BlueGigaBluetoothModule>(ModulePath)), settings(*connectionSettings) {
}

bool BluetoothConnection::getNetworkInfo(GENERIC_NETWORK_INFO& info) {
    info.connected = isConnectionUp() ? 1 : 0;
    info.networkName = "BT";
    info.channel = 0;
    info.signalQuality = module->getSignalStrength();
    info.ipAddress = "n/a";
    info.macAddress = "n/a";
    return true;
}

bool BluetoothConnection::netInitialize() {
    PowerManager* const power = PowerManager::getPowerManager();
    return power && power->btPowerOn() && module->open() && module->isAlive() &&
           module->enableMUX() && module->setLAP(settings.lap.c_str()) && module->setEnabled(true);
}

bool BluetoothConnection::netShutdown() {
    PowerManager* const power = PowerManager::getPowerManager();
    if (!power || !power->btPowerOff())
        return false;
    module->setEnabled(false);
    return true;
}
