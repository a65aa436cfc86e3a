#pragma once

#include "network/BluetoothConnection.h"

namespace demo {

/// Finds the devices around the terminal and talks to the one of the settings: as through a socket,
/// then as through a serial port.
void talk(BluetoothConnection& radio, const BT_CONNECTION_SETTINGS& settings);

/// Takes a call over the terminal's other Bluetooth module, the one that speaks packets, and calls
/// back. The terminal does not go to sleep meanwhile.
void takeCall(const BT_CONNECTION_SETTINGS& settings);

}  // namespace demo
