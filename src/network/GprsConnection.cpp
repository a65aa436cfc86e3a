#include "network/GprsConnection.h"

#include <utility>

#include "gsm/AtAnswer.h"
#include "gsm/GprsPpp.h"
#include "power/PowerManager.h"

namespace {

constexpr char ModulePath[] = "/dev/ttyAT1";
constexpr char CommandMasterPath[] = "/dev/ptyp0";  // channel 1
constexpr char CommandPath[] = "/dev/ttyp0";
constexpr char DataMasterPath[] = "/dev/ptyp1";  // channel 2
constexpr char DataPath[] = "/dev/ttyp1";

constexpr char InterfaceName[] = "ppp0";

/// -113 dBm is the least the module can tell, -51 dBm and more is the best.
int percentOf(int dBm) {
    constexpr int Least = -113;
    constexpr int Best = -51;
    if (dBm < Least)
        return 0;
    return dBm < Best ? (dBm - Least) * 100 / (Best - Least) : 100;
}

}  // namespace

GprsConnection::GprsConnection(GPRS_CONNECTION_SETTINGS connectionSettings)
    : NetworkConnection(TypeGprs), gsmModule(CommandPath), settings(std::move(connectionSettings)) {
}

bool GprsConnection::isConnectionUp() { return GprsPpp::isRunning(); }

bool GprsConnection::netInitialize() {
    if (!setUpModule())
        return false;

    setStatus("Initializing multiplexer");
    const char* virtualPaths[] = {CommandMasterPath, DataMasterPath, nullptr};
    if (!mux.startMux(ModulePath, virtualPaths))
        return fail("GSM CMUX initialization error");
    if (!gsmModule.open())
        return fail("GSM communication error");
    gsmModule.powerSaveMode(GsmModule::POWER_MODE_FULL_SAVING);
    gsmModule.setFrequency(GsmModule::BAND_900_1800);

    setStatus("Initializing SIM card");
    if (!gsmModule.initSIM(settings.pin.c_str()))
        return fail("SIM card not present or broken");

    setStatus("Initializing GPRS settings");
    if (!gsmModule.initGprs(settings.apn.c_str()))
        return fail("GPRS configuration error");

    setStatus("Seeking for network");
    if (!gsmModule.searchNetwork(0))
        return fail("Unable to register with GSM network");
    return true;
}

/// Powers the module and sets it up on its own line, which is free for the multiplexer then.
bool GprsConnection::setUpModule() {
    setStatus("Powering up GPRS module");
    if (!PowerManager::getPowerManager()->gprsPowerOn())
        return fail("GSM module or power problem");
    GsmModule module(ModulePath);
    if (!module.open())
        return fail("GSM communication error");
    setStatus("Initializing GPRS module");
    if (!module.initComm())
        return fail("GSM module initialization failed");
    return module.close();
}

bool GprsConnection::netConnect() {
    setStatus("Initializing PPP session");
    if (!gsmModule.attachGprs())
        return fail("GPRS attach procedure failed");
    if (!startDaemon())
        return false;
    setStatus("GPRS is ready");
    return true;
}

bool GprsConnection::netDisconnect() {
    if (!stopDaemon())
        return false;
    setStatus("GPRS is shut down");
    return true;
}

bool GprsConnection::netSuspend() {
    setStatus("Suspending GPRS connection");
    if (!gsmModule.close())
        return fail("failed closing GSM module");
    if (!stopDaemon())
        return false;
    setStatus("GPRS is suspended");
    return true;
}

bool GprsConnection::netResume() {
    if (!GprsPpp::isRunning()) {
        setStatus("Starting PPP session");
        if (!startDaemon())
            return false;
    }
    if (!gsmModule.open())
        return fail("failed opening GSM module");
    setStatus("GPRS is ready");
    return true;
}

bool GprsConnection::netShutdown() {
    setStatus("Shutting down GPRS module");
    gsmModule.close();
    setStatus("Shutting down multiplexer");
    mux.stopMux();
    return PowerManager::getPowerManager()->gprsPowerOff();
}

bool GprsConnection::startDaemon() {
    GPRSPPP_PARAMETERS parameters{};
    parameters.useAuth = !settings.user.empty();
    parameters.user = settings.user.c_str();
    parameters.password = settings.password.c_str();
    return GprsPpp::start(DataPath, &parameters) || fail("Failed starting GPRS PPP");
}

bool GprsConnection::stopDaemon() {
    if (!GprsPpp::isRunning())
        return true;
    setStatus("Terminating PPP session");
    return GprsPpp::stop() || fail("Failed terminating GPRS PPP");
}

bool GprsConnection::getNetworkInfo(GENERIC_NETWORK_INFO& info) {
    addAddresses(InterfaceName, info);
    GSM_NETWORK_INFO module;
    if (!gsmModule.readNetworkInfo(module))
        return fail("Failed requesting network information");
    const bool connected = at::isRegistered(module.registrationStatus);
    info.connected = connected ? 1 : 0;
    info.networkName = connected ? module.operatorName : std::string();
    info.channel = connected ? module.channel : 0;
    info.signalQuality = connected ? percentOf(module.power) : 0;
    return true;
}
