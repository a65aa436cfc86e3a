#pragma once

#include <atomic>
#include <string>

#include "foundation/EventBroadcaster.h"
#include "foundation/Mutex.h"
#include "foundation/PowerEventListener.h"
#include "foundation/Thread.h"
#include "network/NetworkEventListener.h"

/// What NetworkConnection::getNetworkInfo() tells about any kind of link.
struct GENERIC_NETWORK_INFO {
    int connected = 0;        ///< non-zero while registered or associated
    std::string networkName;  ///< of the operator or network
    int channel = 0;          ///< cell or channel number of the link
    int signalQuality = 0;    ///< percent
    std::string ipAddress;    ///< dotted
    std::string macAddress;   ///< "00:11:22:AA:BB:CC"
};

/// A network link: brought up, watched, repaired, and suspended and resumed around the terminal's
/// sleep by a worker of its own. Subclasses supply the steps of their kind of link.
///
/// An application makes one, adds its listeners, then calls initialize() and connect(), later
/// disconnect() and shutdown(), all from one thread, and destroys it after that: the destructor
/// disconnects nothing. One that comes too early ends the worker and leaves the link as it is.
/// While connected the link is checked once a second and its signal quality reported about every 4
/// seconds; nothing gives up before disconnect().
///
/// What happens is told three ways: to the listeners, oldest first; to the whole application as
/// events::StatusText, ErrorText, SignalQuality and NetworkStateChange; and getLastEvent() keeps
/// the last change. The system events are sent under the windowing library's lock, for which no
/// lock of the library is held; a worker asked to stop does not wait for it longer than a second,
/// and drops its event.
class NetworkConnection : public PowerEventListener,
                          public EventBroadcaster<NetworkEventListener>,
                          public virtual Thread {
public:
    /// Where the worker stands.
    enum State : int {
        STATE_IDLE = 0,               ///< not connected; a running worker connects
        STATE_LINK_LOST = 1,          ///< was connected: checked, then repaired
        STATE_SUSPENDED = 2,          ///< link taken down for the terminal's sleep
        STATE_SUSPEND_REQUESTED = 3,  ///< the terminal is about to sleep
        STATE_RESUME_REQUESTED = 4,   ///< the terminal has woken up
        STATE_CONNECTED = 5           ///< up and watched
    };

    /// Vetoes a suspend until the worker has suspended the link, and has it resumed after the
    /// wake-up. Only leaves a request with the worker.
    bool powerStateChange(PowerState from, PowerState to) override;

    ~NetworkConnection() override;

    /// The steps of a link, on the worker's thread unless said otherwise. Each reports its progress
    /// with setStatus() and its failure with reportError(). True for success.
    /// @{

    /// Whether the link is usable.
    virtual bool isConnectionUp() = 0;

    /// Fills in what is known of the link. False when the signal cannot be told.
    virtual bool getNetworkInfo(GENERIC_NETWORK_INFO& info) = 0;

    /// Prepares the hardware, once. On the thread that calls initialize().
    virtual bool netInitialize() = 0;

    /// Brings the link up.
    virtual bool netConnect() = 0;

    /// Takes the link down. Also on the thread that calls disconnect(), after the worker's end.
    virtual bool netDisconnect() = 0;

    /// Releases the hardware. On the thread that calls shutdown().
    virtual bool netShutdown() = 0;

    /// Brings a lost link back. Here: disconnects and, if that worked, connects.
    virtual bool netRepair();

    /// Takes the link down for the terminal's sleep. Nothing to do here.
    virtual bool netSuspend();

    /// Brings it up again. Nothing to do here.
    virtual bool netResume();
    /// @}

    void run() override;

    /// Runs netInitialize(). False, too, unless the connection is idle.
    bool initialize();

    /// Runs netShutdown(). False, too, unless the connection is idle: one that has been connected
    /// is disconnected first.
    bool shutdown();

    /// Starts the worker and returns; the worker connects, trying again every 5 seconds. False when
    /// it runs already or cannot be started.
    bool connect();

    /// Stops the worker, by force after 10 seconds, and takes the link down. That is no event:
    /// getLastEvent() stays what it was. False when there is no worker to stop or the link does not
    /// go down; the state then stays as it was. Once the cause of that has gone, connect() and
    /// disconnect() lead back: until then shutdown() is refused.
    bool disconnect();

    /// Adds a listener, and tells it at once, on this thread, what the last event was.
    void addListener(NetworkEventListener* listener);

    /// The last change; NETWORK_DOWN before the first.
    NetworkEvent getLastEvent() { return lastEvent; }

    /// The addresses of a network interface as texts: "192.168.0.1" and "00:11:22:AA:BB:CC", in
    /// buffers of at least 16 and 18 bytes. A text whose address cannot be told stays as it is.
    /// False only when the system cannot be asked.
    static bool getInterfaceAddresses(const char* interfaceName, char* ipText, char* macText);

protected:
    /// The kinds of link that this library has: values of `connectionType`.
    enum Type : int { TypeGprs = 1, TypeWlan = 5, TypeBluetooth = 8 };

    /// `typeOfConnection` becomes `connectionType`.
    explicit NetworkConnection(int typeOfConnection) : connectionType(typeOfConnection) {}

    /// For the destructor of each kind of link: ends a worker that still runs its steps, and tells
    /// it of no power state any more.
    void retire();

    /// Reports. The text is kept by its pointer: a literal.
    /// @{

    /// Tells progress: events::StatusText.
    void setStatus(const char* text);

    /// Tells a failure: events::ErrorText.
    void reportError(const char* text);

    /// Tells a failure as the reason of the false that it returns.
    bool fail(const char* text);

    /// Tells a change of the link: events::NetworkStateChange.
    void eventNotify(NetworkEvent event);
    /// @}

    /// Fills in the addresses of a network interface, unless the system cannot be asked.
    static void addAddresses(const char* interfaceName, GENERIC_NETWORK_INFO& info);

    /// Asks for the signal quality and reports it, in the first and then every fourth call:
    /// events::SignalQuality.
    void pollNetworkInfo();

private:
    State currentState();
    bool advance(State from, State to);
    void rest(int ms);
    void reachConnected(State from);
    void post(int code, void* data);
    void ignorePower();

    void connectOnce();
    void checkLostLink();
    void repairOnce();
    void suspendOnce();
    void resumeOnce();
    void watchLink();

    State state = STATE_IDLE;  // guarded by stateMutex
    Mutex stateMutex;          // never held while a step runs
    int pollCounter = 3;       // worker only, as is repairCounter
    int repairCounter = 0;     // failed checks since the link was lost
    std::atomic<NetworkEvent> lastEvent{NETWORK_DOWN};

protected:
    const int connectionType;  ///< a Type, or an application's own

    /// The text last reported, of each kind and of either; null before the first.
    /// @{
    std::atomic<const char*> lastError{nullptr};
    std::atomic<const char*> lastStatus{nullptr};
    std::atomic<const char*> lastMessage{nullptr};
    /// @}

    /// For subclasses; this class leaves them empty.
    /// @{
    std::string firstText;
    std::string secondText;
    std::string thirdText;
    /// @}

private:
    int registrations = 0;  // with the power manager; each connect() makes one
};
