#include "network/NetworkConnection.h"

#include <net/if.h>
#include <netinet/in.h>
#include <resolv.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "gui/GuiLibrary.h"
#include "io/FileDescriptor.h"
#include "io/NoCancellation.h"
#include "power/PowerManager.h"
#include "power/SystemEvents.h"

namespace {

constexpr int StopMs = 10000;
constexpr int ConnectPauseMs = 5000;
constexpr int CheckPauseMs = 500;
constexpr int RepairPauseMs = 5000;
constexpr int SuspendPauseMs = 5000;
constexpr int ResumePauseMs = 1000;
constexpr int WatchPauseMs = 1000;

constexpr size_t IpTextSize = 16;
constexpr size_t MacTextSize = 18;

constexpr int ChecksBeforeRepair = 20;
constexpr int PassesPerPoll = 4;

/// A text that travels through a system event. Nobody writes to it.
void* data(const char* text) { return const_cast<char*>(text); }

}  // namespace

bool NetworkConnection::netRepair() { return netDisconnect() && netConnect(); }

bool NetworkConnection::netSuspend() { return true; }

bool NetworkConnection::netResume() { return true; }

bool NetworkConnection::initialize() { return currentState() == STATE_IDLE && netInitialize(); }

bool NetworkConnection::shutdown() { return currentState() == STATE_IDLE && netShutdown(); }

NetworkConnection::~NetworkConnection() { ignorePower(); }

void NetworkConnection::retire() {
    const io::NoCancellation scope;
    ignorePower();
    stop(StopMs, true);
}

void NetworkConnection::ignorePower() {
    for (; registrations > 0; --registrations) {
        if (PowerManager* const manager = PowerManager::getPowerManager())
            manager->removeListener(this);
    }
}

bool NetworkConnection::connect() {
    const bool started = start();
    PowerManager::getPowerManager()->addListener(this);
    ++registrations;
    return started;
}

bool NetworkConnection::disconnect() {
    PowerManager::getPowerManager()->removeListener(this);
    registrations = std::max(registrations - 1, 0);
    // Interrupted as it is asked to stop, so that a sleep ends and finds the request.
    if (!stop(StopMs, true) || !netDisconnect())
        return false;
    const MutexGuard held(stateMutex);
    state = STATE_IDLE;
    return true;
}

void NetworkConnection::addListener(NetworkEventListener* listener) {
    EventBroadcaster<NetworkEventListener>::addListener(listener);
    if (listener)
        listener->networkEvent(lastEvent);
}

// ---- Reports

void NetworkConnection::setStatus(const char* text) {
    lastStatus = text;
    lastMessage = text;
    notifyOldestFirst([text](NetworkEventListener& listener) {
        listener.statusMessage(text);
        return true;
    });
    post(events::StatusText, data(text));
}

void NetworkConnection::reportError(const char* text) {
    lastError = text;
    lastMessage = text;
    notifyOldestFirst([text](NetworkEventListener& listener) {
        listener.errorMessage(text);
        return true;
    });
    post(events::ErrorText, data(text));
}

bool NetworkConnection::fail(const char* text) {
    reportError(text);
    return false;
}

void NetworkConnection::eventNotify(NetworkEvent event) {
    lastEvent = event;
    notifyOldestFirst([event](NetworkEventListener& listener) {
        listener.networkEvent(event);
        return true;
    });
    post(events::NetworkStateChange, events::number(event));
}

void NetworkConnection::pollNetworkInfo() {
    if (++pollCounter < PassesPerPoll)
        return;
    GENERIC_NETWORK_INFO info;
    if (getNetworkInfo(info)) {
        const int quality = info.connected != 0 ? info.signalQuality : 0;
        notifyOldestFirst([quality](NetworkEventListener& listener) {
            listener.signalQuality(quality);
            return true;
        });
        post(events::SignalQuality, events::number(quality));
    }
    pollCounter = 0;
}

/// Sends a system event, unless this connection's worker is asked to stop while the windowing
/// library is busy.
void NetworkConnection::post(int code, void* eventData) {
    const events::WorkerWindowingGuard windowing(*this);
    if (windowing.isHeld())
        GuiLibrary::broadcastSystemEvent(code, eventData);
}

// ---- The state machine. The worker goes on from a state only while it still stands: a suspend
// that is requested during a step is carried out after it.

NetworkConnection::State NetworkConnection::currentState() {
    const MutexGuard held(stateMutex);
    return state;
}

bool NetworkConnection::advance(State from, State to) {
    const MutexGuard held(stateMutex);
    if (state != from)
        return false;
    state = to;
    return true;
}

bool NetworkConnection::powerStateChange(PowerState, PowerState to) {
    const MutexGuard held(stateMutex);
    if (to == POWER_SUSPEND && state != STATE_SUSPENDED) {
        state = STATE_SUSPEND_REQUESTED;
        return false;
    }
    if (to == POWER_ON && state == STATE_SUSPENDED)
        state = STATE_RESUME_REQUESTED;
    return true;
}

/// Sleeps, unless the worker is asked to stop; that also cuts the sleep short.
void NetworkConnection::rest(int ms) {
    if (!stopRequested())
        Thread::sleep(ms);
}

void NetworkConnection::run() {
    while (!stopRequested()) {
        switch (currentState()) {
        case STATE_IDLE: connectOnce(); break;
        case STATE_LINK_LOST:
            if (repairCounter < ChecksBeforeRepair)
                checkLostLink();
            else
                repairOnce();
            break;
        case STATE_SUSPENDED: rest(SuspendPauseMs); break;
        case STATE_SUSPEND_REQUESTED: suspendOnce(); break;
        case STATE_RESUME_REQUESTED: resumeOnce(); break;
        case STATE_CONNECTED: watchLink(); break;
        }
    }
}

void NetworkConnection::reachConnected(State from) {
    advance(from, STATE_CONNECTED);
    eventNotify(NETWORK_UP);
}

void NetworkConnection::connectOnce() {
    pollNetworkInfo();
    eventNotify(NETWORK_CONNECTING);
    if (netConnect()) {
        advance(STATE_IDLE, STATE_CONNECTED);
        // For the new link's name servers. Only here, not after a repair or a resume.
        ::res_init();
        eventNotify(NETWORK_UP);
    } else {
        eventNotify(NETWORK_DOWN);
        rest(ConnectPauseMs);
    }
}

void NetworkConnection::checkLostLink() {
    if (isConnectionUp()) {
        reachConnected(STATE_LINK_LOST);
    } else {
        rest(CheckPauseMs);
        ++repairCounter;
    }
}

void NetworkConnection::repairOnce() {
    if (netRepair()) {
        reachConnected(STATE_LINK_LOST);
        return;
    }
    eventNotify(NETWORK_DOWN);
    rest(RepairPauseMs);
    if (!stopRequested())
        eventNotify(NETWORK_CONNECTING);
}

void NetworkConnection::suspendOnce() {
    if (netSuspend()) {
        advance(STATE_SUSPEND_REQUESTED, STATE_SUSPENDED);
        eventNotify(NETWORK_DOWN);
    } else {
        rest(SuspendPauseMs);
    }
}

void NetworkConnection::resumeOnce() {
    eventNotify(NETWORK_CONNECTING);
    if (netResume()) {
        reachConnected(STATE_RESUME_REQUESTED);
    } else {
        eventNotify(NETWORK_DOWN);
        rest(ResumePauseMs);
    }
}

void NetworkConnection::watchLink() {
    if (isConnectionUp()) {
        pollNetworkInfo();
        rest(WatchPauseMs);
        return;
    }
    {
        const MutexGuard held(stateMutex);
        if (state != STATE_CONNECTED)
            return;
        repairCounter = 0;
        state = STATE_LINK_LOST;
    }
    eventNotify(NETWORK_CONNECTING);
}

bool NetworkConnection::getInterfaceAddresses(const char* interfaceName, char* ipText,
                                              char* macText) {
    const io::FileDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 1 || !interfaceName)
        return false;
    ifreq request{};
    std::memcpy(request.ifr_name, interfaceName, strnlen(interfaceName, IFNAMSIZ));
    if (::ioctl(socket.get(), SIOCGIFADDR, &request) == 0) {
        sockaddr_in address{};
        std::memcpy(&address, &request.ifr_addr, sizeof address);
        unsigned char bytes[4];
        std::memcpy(bytes, &address.sin_addr, sizeof bytes);
        std::snprintf(ipText, IpTextSize, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
    }
    if (::ioctl(socket.get(), SIOCGIFHWADDR, &request) == 0) {
        unsigned char bytes[6];
        std::memcpy(bytes, request.ifr_hwaddr.sa_data, sizeof bytes);
        std::snprintf(macText, MacTextSize, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1],
                      bytes[2], bytes[3], bytes[4], bytes[5]);
    }
    return true;
}

void NetworkConnection::addAddresses(const char* interfaceName, GENERIC_NETWORK_INFO& info) {
    char ipText[IpTextSize] = {};
    char macText[MacTextSize] = {};
    if (getInterfaceAddresses(interfaceName, ipText, macText)) {
        info.ipAddress = ipText;
        info.macAddress = macText;
    }
}
