#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "foundation/Mutex.h"

class BluetoothSPPConnection;

/// How a serial link over Bluetooth stands.
enum SPP_CONN_STATUS : int {
    SPP_CONN_FAILED = -1,    ///< the call or the link failed
    SPP_CONN_IDLE = 0,       ///< not connected
    SPP_CONN_CONNECTED = 1,  ///< up: data may be written
    SPP_CONN_LISTENING = 2   ///< waiting for a remote device
};

/// The driver of a Bluetooth module on a serial line, as far as the kinds of module share it: the
/// operations, the registry of the serial links (SPP connections), and the factory for those.
///
/// There is one radio in a terminal: the factory binds every connection to the current module,
/// `pModule`, whichever object it is called on. The application owns the module and the
/// connections; it deletes the connections first.
///
/// A connection stands in one of seven slots, and the slot's index is the id by which the
/// operations know it. Outgoing connections take the lowest free slot from 2 on; an incoming one
/// on local port p takes slot p - 1.
///
/// Any thread may use the registry and the factory. What else may be called from where, and how
/// long it blocks, each driver says.
class BluetoothModule {
public:
    /// A remote device that a scan has found.
    struct Device {
        std::string name;     ///< as the module gives it; empty when it has given none
        std::string address;  ///< likewise
        int number = 0;       ///< what stands behind the address in the module's answer
    };

    static constexpr int SlotCount = 7;          ///< connections, of both kinds
    static constexpr int FirstOutgoingSlot = 2;  ///< the lowest one that an outgoing one takes
    static constexpr size_t PinSize = 17;        ///< up to 16 characters and a NUL

    BluetoothModule() = default;
    BluetoothModule(const BluetoothModule&) = delete;
    BluetoothModule& operator=(const BluetoothModule&) = delete;

    /// Leaves the connections alone: they have been deleted before. The current module is none,
    /// then, if it was this one.
    virtual ~BluetoothModule();

    /// The driver's operations; those with an answer here are not offered by every driver. A bool
    /// tells whether the module has done it; it is false also where the driver does not offer it.
    /// How long each blocks, the drivers say.
    /// @{

    /// Ends the work with the module and closes its line.
    virtual bool shutdown() = 0;

    /// The module's own address as text; empty when it does not tell.
    virtual std::string getLocalMac() = 0;

    /// What the module says of its firmware.
    virtual std::string getVersion() = 0;

    /// Switches the radio, where the module knows that.
    virtual bool setEnabled(bool enabled) = 0;

    /// Calls port `port` of the device at `addr` (6 bytes) for the connection `id`.
    virtual bool connectSPP(int id, unsigned char* addr, unsigned char port) = 0;

    /// Lets devices call the connection `id` on its local port.
    virtual bool listenSPP(int id) = 0;

    /// Ends the link of the connection `id`.
    virtual bool disconnectSPP(int id) = 0;

    /// Offers a service record for the connection `id`.
    virtual bool addSDPRecord(int id, void* record, unsigned int size) = 0;

    /// Sends data on the link of the connection `id`.
    virtual bool sendSPPData(int id, const void* data, unsigned int len) = 0;

    /// Opens the module's line, where that is not done otherwise.
    virtual bool open() = 0;

    /// How the last answer has ended, in the driver's own numbers; 0 where there are none.
    virtual int getAnswerType() { return 0; }

    /// Whether the module has started.
    virtual bool isAlive() { return false; }

    /// Gives the module its access code.
    virtual bool setLAP(const char* /*lap*/) { return false; }

    /// Whether there is a link.
    virtual bool ping() { return false; }

    /// Has commands and links share the line.
    virtual bool enableMUX() { return false; }

    /// Leaves the line to commands.
    virtual bool disableMUX() { return false; }

    /// Has the module repeat no commands.
    virtual bool disableEcho() { return false; }

    /// Gives the module the PIN for whatever device asks for one.
    virtual bool setAuth(char* /*pin*/) { return false; }

    /// Looks for devices around; none where that is not offered.
    virtual std::vector<Device> scanDevices() { return {}; }

    /// How well the links are received, in the driver's own measure; -1 where that is not offered.
    virtual int getSignalStrength() { return -1; }

    /// Reads and delivers link data.
    virtual void pollIncomingData(int /*timeoutMs*/) {}
    /// @}

    /// The factory. The caller disposes of a connection with deleteSPPConnection().
    /// @{

    /// A registered connection that can call a device; see its setters for the ranges. Null when an
    /// argument is refused, all five outgoing slots are taken or there is no module.
    BluetoothSPPConnection* createSPPConnection(const unsigned char* addr, int port,
                                                const char* pin);

    /// A registered connection that can wait for calls on port 1 to 7. Null when the port is
    /// another or already waited on, or there is no module.
    BluetoothSPPConnection* createIncomingSPPConnection(int localPort);

    /// Disconnects, deregisters and destroys; null is ignored.
    void deleteSPPConnection(BluetoothSPPConnection* connection);
    /// @}

    // The registry, for the connections.

    /// The slot taken for an outgoing connection; -1 when all are taken.
    int registerSPPConnection(BluetoothSPPConnection* connection);

    /// Takes the slot of the connection's local port. False when there is none or it is taken.
    bool registerIncomingSPPConnection(BluetoothSPPConnection* connection);

    /// Frees a slot; waits for a delivery under way. Ids that are none are ignored.
    void deregisterSPPConnection(int id);

    /// The PIN for remote devices that ask for one and that no connection is meant for. Empty at
    /// first: none is offered. False, with nothing changed, for one of more than 16 characters.
    bool setIncomingPin(const char* pin);

    // What drivers tell a connection.

    /// 0 for null.
    int getLocalPort(BluetoothSPPConnection* connection);

    /// Null is ignored.
    void setLocalPort(BluetoothSPPConnection* connection, int port);

    /// Null is ignored.
    void setConnectionState(BluetoothSPPConnection* connection, SPP_CONN_STATUS status);

    /// The number of bytes that found room. Not for null.
    int sendIncomingData(BluetoothSPPConnection* connection, void* data, unsigned int len);

    static std::atomic<BluetoothModule*> pModule;  ///< the current module; null: none

protected:
    /// A driver holds the lock while it works on a connection out of a slot that is not the
    /// caller's own: a connection that deregisters waits, and is not destroyed under a delivery.
    /// The lock is the innermost but for those inside the connections; nothing waits while holding
    /// it.
    Mutex registryLock;
    BluetoothSPPConnection* connections[SlotCount] = {};  ///< guarded by registryLock; not owned
    char incomingPin[PinSize] = {};                       ///< likewise

private:
    friend class BluetoothSPPConnection;
    void forget(const BluetoothSPPConnection* leaving);
};
