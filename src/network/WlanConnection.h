#pragma once

#include <cstdint>
#include <string>

#include "io/FileDescriptor.h"
#include "network/NetworkConnection.h"
#include "network/WpaControl.h"

/// How WlanConnection joins its network. Addresses are in network byte order.
struct WLAN_CONNECTION_SETTINGS {
    std::string ssid;         ///< sent to the daemon as it stands: text goes in double quotes
    int securityType = 0;     ///< WlanConnection::Security; with any other only the ssid is set
    std::string wepKey0;      ///< like the psk; an empty one is left out
    std::string wepKey1;      ///< likewise
    std::string wepKey2;      ///< likewise
    std::string wepKey3;      ///< likewise
    int wepTxKeyIndex = 0;    ///< which of the keys sends, 0 to 3
    std::string psk;          ///< like the ssid: a passphrase goes in double quotes, a key does not
    uint32_t ipAddress = 0;   ///< 0: addresses come by DHCP, and the other three are not used
    uint32_t subnetMask = 0;  ///< with ipAddress
    uint32_t router = 0;      ///< with ipAddress
    uint32_t dns = 0;         ///< with ipAddress
};

/// The link over the WLAN adapter on the mini-PCI slot, interface "ra0": powers the slot, loads the
/// driver, runs the supplicant and the DHCP client, and reports each step and each failure with a
/// text.
///
/// The worker of NetworkConnection runs the link operations, except netInitialize() and
/// netShutdown(), and netDisconnect() at the end, which belong to the caller's thread; nothing here
/// is for two threads at once. Daemon and DHCP client outlive a connection that is destroyed while
/// connected: the owner disconnects and shuts down before.
///
/// The supplicant and the DHCP client are told to end by the number in their pid files. A file that
/// names no process, this process or process 1 is passed over.
class WlanConnection : public NetworkConnection {
public:
    /// How the network is protected.
    enum Security : int {
        SecurityOpen = 0,     ///< not at all
        SecurityWep = 1,      ///< shared keys
        SecurityWpa = 2,      ///< a passphrase or key, WPA
        SecurityWpa2 = 3,     ///< the same, WPA2
        SecurityOfDaemon = 4  ///< all is in the daemon's file, "/data/wpa_supplicant.conf"
    };

    /// Touches nothing yet.
    explicit WlanConnection(WLAN_CONNECTION_SETTINGS connectionSettings);
    ~WlanConnection() override { retire(); }

    /// True while the interface is up and associated with the network of the settings.
    bool isConnectionUp() override;

    /// Network, channel in the 2.4 GHz band (0: none of it), signal and addresses. False when the
    /// driver tells no frequency or signal; what comes before is filled in then.
    bool getNetworkInfo(GENERIC_NETWORK_INFO& info) override;

    /// Powers the slot, loads the driver and waits up to 5 seconds for the interface. When that
    /// does not come, the result is false and no error is reported.
    bool netInitialize() override;

    /// Starts the supplicant, configures and joins the network and sets the address: up to 10
    /// seconds for the association, and as long as the DHCP client tries. A failure after the
    /// interface is up ends in netDisconnect().
    bool netConnect() override;

    /// Ends the DHCP client and the supplicant, waiting up to 5 seconds for each, and takes the
    /// interface down. Driver and power stay.
    bool netDisconnect() override;

    /// Unloads the driver and takes the slot's power, unless the driver will not go.
    bool netShutdown() override;

    /// Disconnects, unloads the driver and takes the slot's power.
    bool netSuspend() override;

    /// Powers the slot, loads the driver and connects.
    bool netResume() override;

    /// 0: nothing sets it.
    virtual int getLastError();

    /// Whether the adapter's driver is loaded.
    static bool isModuleLoaded();

    /// Loads it, unless it is there, with the USB driver that it needs.
    bool loadWlanModule();

    /// Unloads both, unless it is not there.
    bool unloadWlanModule();

    /// An interface or wireless-extension request about "ra0", whose record (InterfaceRecord,
    /// WirelessRecord) gets the name filled in. True exactly when the driver has accepted it.
    /// @{
    bool ifaceRequest(unsigned int request, void* ifreq);
    bool ifaceWirelessRequest(unsigned int request, void* iwreq);
    /// @}

    /// The network the adapter is associated with; empty when there is none or on failure.
    std::string ifaceGetEssid();

    /// Has the DHCP client's script set the addresses of the settings, which it finds in the
    /// environment as "interface", "ip", "subnet", "router" and "dns". The environment is the whole
    /// process's while the script runs; afterwards these five are gone from it, whatever they were
    /// before, also when this is cancelled. As with any change of the environment, no other thread
    /// may look at it at that moment.
    bool setStaticIp();

    /// Adds the network of the settings to the daemon and enables network 0, the only one that the
    /// terminal's daemon holds. Empty parameters are left out. With security type 4 there is
    /// nothing to do.
    bool configureNetwork();

    /// Sends a command to the daemon. Of its reply come the first three bytes: enough to tell "OK"
    /// from a failure, and for the number of a network. False without a control connection, or when
    /// there is no reply in time.
    bool wpaControlRequest(const char* cmd, std::string& reply);

    /// Sets a parameter of a network. A command of more than 255 characters is cut there.
    bool wpaSetNetworkParameter(int id, const char* name, const char* value);

    /// Whether a network is that of the settings, whose quotes do not count.
    bool matchSSID(const char* essid);

private:
    bool setInterfaceUp(bool up, const char* readError, const char* writeError);
    bool startSupplicant();
    bool associate();
    bool setAddress();

    const WLAN_CONNECTION_SETTINGS settings;
    io::FileDescriptor sock;  // handle of the interface requests
    int lastError = 0;
    WpaControlOwner wpaControl;
};
