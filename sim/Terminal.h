#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "sim/Clock.h"
#include "sim/Faults.h"
#include "sim/Journal.h"
#include "sim/Programs.h"
#include "sim/RootFolder.h"
#include "sim/devices/Attribute.h"
#include "sim/devices/BarcodeEngine.h"
#include "sim/devices/BluetoothAir.h"
#include "sim/devices/DhcpServer.h"
#include "sim/devices/Display.h"
#include "sim/devices/Identity.h"
#include "sim/devices/InputDevice.h"
#include "sim/devices/KernelModules.h"
#include "sim/devices/MemoryCard.h"
#include "sim/devices/PacketBluetoothModule.h"
#include "sim/devices/PowerControl.h"
#include "sim/devices/PppLink.h"
#include "sim/devices/PseudoTerminals.h"
#include "sim/devices/RadioModule.h"
#include "sim/devices/RealTimeClock.h"
#include "sim/devices/RfidEngine.h"
#include "sim/devices/Supplicant.h"
#include "sim/devices/SuspendControl.h"
#include "sim/devices/TextBluetoothModule.h"
#include "sim/devices/WlanAdapter.h"

namespace sim {

/// Where a path of the terminal leads.
struct Place {
    std::shared_ptr<Device> device;  ///< a device node, or
    std::string hostPath;            ///< a file, or
    int error = 0;                   ///< neither: what a call on the path fails with
};

/// A terminal made of software: its devices, files and clock, and the door to them for tests and
/// for the console. While one exists, the process runs on it; there is at most one at a time.
///
/// The one who makes it destroys it, after the application's threads have ended. In between, any
/// thread may use it. It begins awake, with full battery, 22 degrees, daylight, no USB supply, the
/// card inserted but not mounted, and its clocks on the host's time.
class Terminal {
public:
    Terminal() : Terminal(std::string()) {}

    /// Keeps its files in an existing, empty folder, which stays; "" makes a temporary one.
    explicit Terminal(const std::string& folder);
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    /// The terminal the process runs on, or null.
    static Terminal* current();

    Clock& clock() { return Clock::get(); }
    Journal& journal() { return log; }
    Faults& faults() { return faultRules; }
    RootFolder& files() { return root; }

    PowerControl& powerControl() { return *control; }
    RadioModule& radio() { return *radioModule; }
    Display& display() { return *oled; }
    RealTimeClock& rtc() { return *clockChip; }
    InputDevice& keypad() { return *keys; }
    InputDevice& speaker() { return *sound; }
    SuspendControl& power() { return *suspend; }
    MemoryCard& card() { return *memoryCard; }
    Programs& programs() { return externalPrograms; }
    KernelModules& modules() { return kernelModules; }
    WlanAdapter& wlan() { return wlanAdapter; }
    Supplicant& supplicant() { return wlanSupplicant; }
    DhcpServer& dhcp() { return dhcpServer; }
    PppLink& ppp() { return pppLink; }
    BluetoothAir& air() { return bluetoothAir; }
    TextBluetoothModule& textModule() { return textBluetooth; }
    PacketBluetoothModule& packetModule() { return packetBluetooth; }
    Identity& identity() { return identityFiles; }
    BarcodeEngine& barcode() { return *engine; }
    SerialLine& barcodeLine() { return *engineLine; }
    RfidEngine& rfid() { return *rfidEngine; }

    Attribute& battery() { return batteryMillivolts; }     ///< millivolts
    Attribute& temperature() { return temperatureInput; }  ///< hundredths of a degree
    Attribute& light() { return lightInput; }              ///< the sensor's own unit
    Attribute& usbSupply() { return usb; }                 ///< 1 while plugged in

    /// The network interface of a name, or null.
    NetworkInterface* findInterface(const std::string& name);

    /// A key of the keypad goes down or up; that also wakes a suspended terminal.
    void pressKey(int code, bool down);

    /// Puts the text-command Bluetooth module in the radio module's place, on "/dev/ttyAT1" and on
    /// its supply and lines: a terminal has either. To be done while neither is in use.
    void fitTextModule(bool isFitted = true);

    /// Takes a node or file away, or puts it back.
    void setPresent(const std::string& path, bool present);

    /// Where an absolute path of the terminal leads.
    Place locate(const std::string& path, bool forWriting);

    /// The terminal's own name for a path of the host; the same if it is none of the terminal's.
    std::string pathOf(const std::string& hostPath) const;

    /// True in a child of the process that made the terminal: it has the files, but no devices.
    bool isInherited() const;

    /// Every lock that a child needs to find its way.
    std::vector<std::unique_lock<std::mutex>> holdForFork();

private:
    void connectRadio();
    void connectWlan();
    void connectTextModule();

    const pid_t owner;
    Journal log;
    Faults faultRules;
    RootFolder root;

    std::shared_ptr<PowerControl> control;
    std::shared_ptr<Display> oled;
    std::shared_ptr<RealTimeClock> clockChip;
    std::shared_ptr<InputDevice> keys, touch, sound;
    std::shared_ptr<SuspendControl> suspend;
    std::shared_ptr<MemoryCard> memoryCard;
    std::shared_ptr<SerialLine> engineLine;
    std::unique_ptr<BarcodeEngine> engine;
    std::shared_ptr<RfidEngine> rfidEngine = std::make_shared<RfidEngine>(log);
    std::shared_ptr<SerialLine> radioLine;
    std::unique_ptr<RadioModule> radioModule;
    PseudoTerminals pseudoTerminals;
    Attribute batteryMillivolts, temperatureInput, lightInput, usb;
    Identity identityFiles{root};
    Programs externalPrograms{log, root};
    KernelModules kernelModules{root};
    WlanAdapter wlanAdapter{log, kernelModules};
    Supplicant wlanSupplicant{log, wlanAdapter, externalPrograms};
    DhcpServer dhcpServer{log, wlanAdapter, externalPrograms};
    PppLink pppLink{log, externalPrograms};
    BluetoothAir bluetoothAir{log};
    std::shared_ptr<SerialLine> textLine = std::make_shared<SerialLine>("text module", log);
    TextBluetoothModule textBluetooth{log, *textLine, bluetoothAir};
    std::atomic<bool> isTextModuleFitted{false};
    std::shared_ptr<SerialLine> packetLine = std::make_shared<SerialLine>("packet", log);
    PacketBluetoothModule packetBluetooth{log, *packetLine, bluetoothAir};

    std::mutex mutex;  // guards what follows
    std::unordered_map<std::string, std::shared_ptr<Device>> nodes;
    std::set<std::string> missing;
};

}  // namespace sim
