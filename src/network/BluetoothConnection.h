#pragma once

#include <memory>
#include <string>

#include "bluetooth/BluetoothModule.h"
#include "network/NetworkConnection.h"

/// How the Bluetooth radio is set up. Copied by the connection.
struct BT_CONNECTION_SETTINGS {
    std::string firstText;  ///< the application's own, as is the third
    std::string lap;        ///< the access code that the module is given
    std::string thirdText;  ///< the application's own
};

/// The Bluetooth radio as a network link. It carries no IP traffic: connected means that the
/// text-command module on "/dev/ttyAT1" is powered, answers, works in MUX mode and has its access
/// code. Links to devices are made on it with BluetoothSocket.
///
/// It owns the module, which is the current one from then on. The power manager, if there is one,
/// exists for its whole life.
///
/// initialize() takes as long as the module needs to start, up to 5 seconds, and one more for each
/// of two commands. A failed one leaves everything as far as it got. Once the serial line has been
/// opened it stays open, also after shutdown(), and another initialize() fails on that: make
/// another connection. When it was the line that did not open, the module is held for good:
/// everything that talks to it waits for ever then, another initialize() and getNetworkInfo() with
/// a connected link as well; only destroying it is left.
class BluetoothConnection : public NetworkConnection {
public:
    /// Makes the module's driver, which opens nothing yet.
    explicit BluetoothConnection(BT_CONNECTION_SETTINGS* connectionSettings);

    /// Closes the module's line, which shutdown() leaves open. The sockets have been closed before.
    ~BluetoothConnection() override { retire(); }

    /// The module, for links of the application's own. Owned by the connection.
    BluetoothModule* getModule() { return module.get(); }

    bool isConnectionUp() override { return true; }

    /// The signal quality is that of the weakest link in dBm, plus 100; -28 without a link.
    bool getNetworkInfo(GENERIC_NETWORK_INFO& info) override;

    bool netInitialize() override;
    /// Nothing to do.
    /// @{
    bool netConnect() override { return true; }
    bool netDisconnect() override { return true; }
    /// @}

    /// Powers the module off.
    bool netShutdown() override;

    /// Nothing to do.
    /// @{
    bool netSuspend() override { return true; }
    bool netResume() override { return true; }
    /// @}

private:
    const std::unique_ptr<BluetoothModule> module;
    const BT_CONNECTION_SETTINGS settings;
};
