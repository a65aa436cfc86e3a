#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "bluetooth/BluetoothModule.h"
#include "bluetooth/LMXBluetoothPort.h"
#include "foundation/Cond.h"
#include "foundation/Mutex.h"
#include "foundation/PowerEventListener.h"
#include "foundation/Thread.h"

/// The driver of the Bluetooth module that speaks binary packets, on "/dev/ttyS0".
///
/// The application makes it with initialize(), finds it in `pModule`, adds it to the power
/// manager's listeners, and deletes it after its connections. Any thread may send commands; each
/// waits for the ones before it, and then for its own confirmation. The driver's thread reads the
/// module's packets: it hands confirmations to the waiting command, and tells the connections of
/// their links and data.
///
/// The port of a link is its connection's slot plus 1. The module's reports about port 7 are
/// ignored, and those about a port without a connection too, but for the end of its link: that no
/// longer keeps the terminal awake. A line that has hung up stays so until shutdown() and
/// initModule(). A request also waits, beyond the times given below, as long as the module's flow
/// control holds it back.
class LMXBluetoothModule : public BluetoothModule, public Thread, public PowerEventListener {
public:
    /// Only notes the device; initModule() opens it.
    explicit LMXBluetoothModule(std::string device) : devicePath(std::move(device)) {}

    /// Stops the thread, as shutdown() does, and closes the line.
    ~LMXBluetoothModule() override;

    /// Makes the module's driver and sets the module up, unless there is a current module already.
    /// False when the module cannot be set up; there is none then. Blocks up to about 1.5
    /// seconds.
    static bool initialize();

    /// Opens the line, asks for the version, names the module after the terminal, starts the
    /// thread and becomes the current module. False when one of these fails.
    bool initModule();

    /// Opens the line and asks up to five times, 250 ms each, for the module's version. False when
    /// there is a line already; also when no version comes, which leaves the line open.
    bool initComm();

    /// False when there is a line already, or the device cannot be opened.
    bool openPort();

    /// False when there is no line. Commands fail from now on; what still uses the line ends first.
    bool closePort();

    /// Stops the thread and closes the line. False, with nothing done, while a slot holds a
    /// connection. Blocks up to a second and a tenth, a second longer when the module has gone
    /// silent within a packet, and ten seconds when its bytes only trickle in. The driver stays the
    /// current module, so that initialize() has nothing to do: initModule() sets it up again.
    bool shutdown() override;

    /// The address as "66:55:44:33:22:11", asked for once; "" when the module does not tell it
    /// within 100 ms.
    std::string getLocalMac() override;

    /// What the module has said of itself when the line was opened.
    std::string getVersion() override;

    /// Enables or disables the chip; also what it returns to after a sleep. True when the module
    /// has agreed within 100 ms.
    bool setEnabled(bool on) override;

    /// The request of setEnabled() alone: what it returns to stays. 100 ms.
    bool sendChipEnable(bool on);

    /// Opens the slot's port and calls the device. True when the module has confirmed it, within
    /// 20 seconds: whether the device answers is told to the connection. Closes the port again
    /// otherwise.
    bool connectSPP(int id, unsigned char* addr, unsigned char remotePort) override;

    /// Offers the slot's service record and opens its port, as far as the module agrees. True.
    bool listenSPP(int id) override;

    /// Closes the slot's port, offers its record no longer and ends its link. True when the module
    /// has confirmed the last, within 1 second.
    bool disconnectSPP(int id) override;

    /// Gives the module a service record of up to 328 bytes for a slot. True when it has taken it
    /// within 100 ms.
    bool addSDPRecord(int id, void* record, unsigned int size) override;

    /// Sends the data in pieces of up to 128 bytes. True when the module has taken every one of
    /// them, each within 100 ms; false at the first that it has not, with earlier ones sent.
    bool sendSPPData(int id, const void* data, unsigned int len) override;

    /// Does nothing, true: the line is opened by initComm().
    bool open() override { return true; }

    /// Disables the chip for POWER_ALARM_WAKE and POWER_SUSPEND, and lets it return to what
    /// setEnabled() has said for any other state. False, with nothing done, for the first two
    /// while a link is up.
    bool powerStateChange(PowerState from, PowerState to) override;

    void run() override;

protected:
    /// One exchange: sends a request and, unless `timeoutMs` is 0, waits that long for a
    /// confirmation of its opcode. With `keepLock` the caller holds `confirmation` after a true,
    /// and lets go of it when it has read what it wants.
    bool sendCmd(unsigned char opcode, const void* d1, unsigned int l1, const void* d2,
                 unsigned int l2, int timeoutMs, bool keepLock);

    /// Tells the module which ports are open. True when it has agreed within 100 ms.
    bool updateOpenPorts();

    /// Offers the slot's service record, or no longer. True when the module has agreed within 100
    /// ms.
    bool activateSDPRecord(int id, bool active);

    /// Answers the module's question for a PIN, without waiting: with that of the connection to the
    /// device, or else with the one for incoming calls unless that is empty.
    void sendPin(const unsigned char* addr);

    /// What the thread does with a packet of any contents.
    void handlePacket(unsigned char type, unsigned char opcode, unsigned char* payload,
                      unsigned int length);

private:
    static constexpr unsigned MaxConfirmation = 100;

    std::shared_ptr<LMXBluetoothPort> currentPort();
    bool sendRequest(unsigned char opcode, const void* d1, unsigned int l1, const void* d2,
                     unsigned int l2);
    bool isGranted(unsigned char opcode, const void* d1, unsigned int l1, const void* d2,
                   unsigned int l2, unsigned int length);
    bool isSuccess(unsigned int length) const;
    void setOpen(int id, bool open);
    bool sendOpenPorts();
    void storeConfirmation(unsigned char opcode, const unsigned char* payload, unsigned int length);
    void handleIndication(unsigned char opcode, unsigned char* payload, unsigned int length);
    void reportLink(unsigned char port, SPP_CONN_STATUS status);
    BluetoothSPPConnection* connectionOn(unsigned char port) const;

    Mutex portLock;  // guards the pointer; never held while the line is read or written
    std::shared_ptr<LMXBluetoothPort> port;

    const std::string devicePath;
    std::string localAddress;  // guarded by confirmation, as is the version
    std::string version;

    Mutex openPortsLock;  // also held while the mask is sent: the module hears the newest one last
    uint32_t openPorts = 0;  // a bit for each slot

    // A bit for each slot, like openPorts; written by the driver's thread.
    std::atomic<uint32_t> connected{0};
    std::atomic<bool> asleep{false};
    std::atomic<bool> enabled{true};

    Mutex commandLock;  // one exchange at a time; never taken by the driver's thread
    Mutex writeLock;    // one packet at a time: the thread answers PIN requests amid an exchange
    // Guards what follows, and is signalled by the thread for each confirmation. A lock and a
    // signal apart would lose the one that comes just before the wait.
    Cond confirmation;
    unsigned char awaitedOpcode = 0;
    bool isConfirmed = false;  // and not to be overwritten before it has been read
    unsigned char confirmationData[MaxConfirmation] = {};  // the status first
    unsigned int confirmationLength = 0;
    unsigned char sdpHandles[SlotCount] = {};
};
