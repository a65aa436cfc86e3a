#pragma once

#include <string>

#include "gsm/Gsm0710Mux.h"
#include "gsm/GsmModule.h"
#include "network/NetworkConnection.h"

/// How to reach the operator's network. Copied by the connection.
struct GPRS_CONNECTION_SETTINGS {
    std::string pin;       ///< of the SIM
    int option = 0;        ///< kept, not used
    std::string apn;       ///< access point name
    std::string user;      ///< for PPP; empty: no authentication
    std::string password;  ///< for PPP
};

/// The link over the cellular network: interface "ppp0".
///
/// It powers the radio module, sets it up on its line "/dev/ttyAT1", hands that to the multiplexer,
/// drives the module on one of the two virtual ports and runs the PPP daemon on the other. The
/// power manager exists for its whole life.
///
/// initialize() takes as long as the module needs: seconds when all is well, more than a minute
/// with a SIM that does not get ready. A failed one leaves everything as far as it got; shutdown()
/// undoes it before the next.
class GprsConnection : public NetworkConnection {
public:
    /// Touches nothing yet.
    explicit GprsConnection(GPRS_CONNECTION_SETTINGS connectionSettings);

    ~GprsConnection() override { retire(); }

    /// The module's driver, for the application's own questions while the link runs. Owned by the
    /// connection. It is open from initialize() to shutdown(), but for the terminal's sleep.
    GsmModule* getGsmModule() { return &gsmModule; }

    /// True while there is a PPP daemon.
    bool isConnectionUp() override;

    /// Operator, cell, signal and addresses. False, with an error reported, when the module does
    /// not tell; the addresses are filled in then.
    bool getNetworkInfo(GENERIC_NETWORK_INFO& info) override;

    /// Power, module, multiplexer, SIM, GPRS context, operator; that the module is registered is
    /// not awaited.
    bool netInitialize() override;

    /// Attaches to GPRS and starts the PPP daemon: up to 5 and 40 seconds.
    bool netConnect() override;

    /// Ends the PPP daemon, if there is one.
    bool netDisconnect() override;

    /// Ends module driver and multiplexer, and takes the module's power: up to 22 seconds.
    bool netShutdown() override;

    /// Closes the module's driver and ends the PPP daemon. The multiplexer suspends by itself.
    bool netSuspend() override;

    /// Starts the PPP daemon and opens the module's driver.
    bool netResume() override;

private:
    bool setUpModule();
    bool startDaemon();
    bool stopDaemon();

    GsmModule gsmModule;
    Gsm0710Mux mux;
    const GPRS_CONNECTION_SETTINGS settings;
};
