#include "network/WlanConnection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>

#include "io/FileStream.h"
#include "io/PidFile.h"
#include "network/WlanProtocol.h"
#include "power/PowerManager.h"

namespace {

constexpr char ControlFolder[] = "/tmp/wpa_supplicant.ctrl";
constexpr char SupplicantPidPath[] = "/tmp/wpa_supplicant.pid";
constexpr char SupplicantFile[] = "/data/wpa_supplicant.conf";
constexpr char DhcpPidPath[] = "/tmp/udhcpc.pid";

constexpr int InterfaceSteps = 20;
constexpr int InterfaceStepMs = 250;
constexpr int AssociationChecks = 10;
constexpr int AssociationPauseMs = 1000;
constexpr int EndSteps = 20;
constexpr int EndStepMs = 250;

std::string supplicantCommand(bool hasOwnFile) {
    std::string command = std::string("wpa_supplicant -B -Dwext -i") + wlan::InterfaceName + " -P" +
                          SupplicantPidPath + " -C" + ControlFolder;
    return hasOwnFile ? command + " -c" + SupplicantFile : command;
}

std::string dhcpCommand() {
    return std::string("udhcpc -nR -t 10 -p ") + DhcpPidPath + " -i " + wlan::InterfaceName;
}

/// Tells a process to end and waits for that, within bounds.
void endProcess(pid_t process) {
    if (!io::isOtherProcess(process) || ::kill(process, SIGTERM) != 0)
        return;
    for (int step = 0; step < EndSteps && ::kill(process, 0) == 0; ++step)
        Thread::sleep(EndStepMs);
}

}  // namespace

WlanConnection::WlanConnection(WLAN_CONNECTION_SETTINGS connectionSettings)
    : NetworkConnection(TypeWlan), settings(std::move(connectionSettings)) {}

int WlanConnection::getLastError() { return lastError; }

bool WlanConnection::netInitialize() {
    PowerManager& power = *PowerManager::getPowerManager();
    power.mpciEnable3V3(true);
    power.mpciEnableRadio(true);

    setStatus("Loading 802.11 WLAN driver");
    if (!loadWlanModule())
        return fail("Failed initializing 802.11 WLAN driver");

    sock.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!sock.isOpen())
        return fail("Failed creating WLAN socket");

    for (int step = 0; step < InterfaceSteps; ++step) {
        Thread::sleep(InterfaceStepMs);
        wlan::InterfaceRecord record{};
        if (ifaceRequest(wlan::GetInterfaceFlags, &record))
            return true;
    }
    return false;
}

bool WlanConnection::netConnect() {
    setStatus("Starting 802.11 WLAN module");
    if (!setInterfaceUp(true, "Failed preparing to enable network interface",
                        "Failed enabling network interface"))
        return false;
    if (!startSupplicant() || !associate() || !setAddress()) {
        netDisconnect();
        return false;
    }
    setStatus("Network is connected");
    return true;
}

bool WlanConnection::startSupplicant() {
    setStatus("Starting WPA supplicant");
    const bool hasOwnFile = settings.securityType == SecurityOfDaemon;
    if (std::system(supplicantCommand(hasOwnFile).c_str()) != 0)
        return fail("Failed initializing WPA supplicant");

    wpaControl.reset(wpa_ctrl_open(ControlFolder, wlan::InterfaceName));
    if (!wpaControl)
        return fail("Failed to communicate with WPA supplicant");

    setStatus("Configuring network");
    return configureNetwork() || fail("Failed to configure network settings");
}

bool WlanConnection::associate() {
    setStatus("Connecting to network");
    for (int check = 0; check < AssociationChecks && !isConnectionUp() && !stopRequested(); ++check)
        Thread::sleep(AssociationPauseMs);
    // Asked once more, whatever the answer was: an association may be gone as soon as it was there.
    return isConnectionUp() || fail("Failed connecting to network");
}

bool WlanConnection::setAddress() {
    if (settings.ipAddress != 0) {
        setStatus("Setting IP address");
        return setStaticIp() || fail("Failed setting IP address");
    }
    setStatus("Waiting for DHCP IP");
    return std::system(dhcpCommand().c_str()) == 0 || fail("Failed obtaining DHCP IP lease");
}

bool WlanConnection::netDisconnect() {
    if (const io::FileStream file = io::openStream(DhcpPidPath, "r")) {
        const pid_t client = io::readProcessId(file.get());
        setStatus("Stopping DHCP");
        endProcess(client);
    }
    wpaControl.reset();
    if (const io::FileStream file = io::openStream(SupplicantPidPath, "r"))
        endProcess(io::readProcessId(file.get()));

    setStatus("Stopping WLAN module");
    if (!setInterfaceUp(false, "Failed preparing to disable networking",
                        "Failed disabling networking"))
        return false;
    setStatus("Network is shut down");
    return true;
}

bool WlanConnection::netShutdown() {
    sock.reset();
    if (!unloadWlanModule())
        return false;
    // The other way round than before a suspend: the order that each has always had.
    PowerManager& power = *PowerManager::getPowerManager();
    power.mpciEnableRadio(false);
    power.mpciEnable3V3(false);
    return true;
}

bool WlanConnection::netSuspend() {
    if (!netDisconnect())
        return fail("Failed disconnecting from network for suspend");
    if (!unloadWlanModule())
        return fail("Failed stopping WLAN module");
    PowerManager& power = *PowerManager::getPowerManager();
    power.mpciEnable3V3(false);
    power.mpciEnableRadio(false);
    return true;
}

bool WlanConnection::netResume() {
    PowerManager& power = *PowerManager::getPowerManager();
    power.mpciEnable3V3(true);
    power.mpciEnableRadio(true);
    if (!loadWlanModule())
        return fail("Failed re-loading WLAN module on resume");
    return netConnect() || fail("Failed re-connecting to WLAN network on resume");
}
