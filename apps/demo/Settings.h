#pragma once

#include <string>

#include "network/BluetoothConnection.h"
#include "network/GprsConnection.h"
#include "network/WlanConnection.h"

namespace demo {

/// What the application finds in its file on the memory card.
struct Settings {
    std::string kind;  ///< of the link: "gprs", "wlan" or "bluetooth", as the terminal is equipped
    GPRS_CONNECTION_SETTINGS gprs;
    WLAN_CONNECTION_SETTINGS wlan;
    BT_CONNECTION_SETTINGS bluetooth;  ///< the first text is the device, the third its PIN
    int starts = 1;                    ///< how often it has been started with this card

    /// Reads the file and counts this start in it. False when it cannot be read or written; what
    /// is missing is empty.
    bool read(const char* path);
};

}  // namespace demo
