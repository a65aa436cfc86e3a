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
    explicit GprsConnection(GPRS_CONNECTION_SETTINGS connectionSettings);

    ~GprsConnection() override { retire(); }

    /// The module's driver, for the application's own questions while the link runs. Owned by the
    /// connection. It is open from initialize() to shutdown(), but for the terminal's sleep.
    GsmModule* getGsmModule() { return &gsmModule; }

    bool isConnectionUp() override;
    bool getNetworkInfo(GENERIC_NETWORK_INFO& info) override;
    bool netInitialize() override;
    bool netConnect() override;
    bool netDisconnect() override;
    bool netShutdown() override;
    bool netSuspend() override;
    bool netResume() override;

private:
    bool fail(const char* text);
    bool setUpModule();
    bool startDaemon();
    bool stopDaemon();

    GsmModule gsmModule;
    Gsm0710Mux mux;
    const GPRS_CONNECTION_SETTINGS settings;
};
