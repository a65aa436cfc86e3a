#include "sim/Terminal.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "bluetooth/LmxProtocol.h"
#include "power/BoardProtocol.h"
#include "scanner/BarcodeProtocol.h"
#include "scanner/RfidProtocol.h"
#include "sim/HostTime.h"
#include "sim/posix/Descriptors.h"

namespace sim {
namespace {

std::atomic<Terminal*> currentTerminal{nullptr};

constexpr uint32_t eventType(unsigned type) { return 1U << type; }
constexpr unsigned InputPosition = 3;  // of a touch screen
constexpr char RadioPath[] = "/dev/ttyAT1";

std::string inputPath(int number) { return "/dev/input/event" + std::to_string(number); }

/// Below these the drivers decide what there is: nothing is created by opening it.
bool isDriverFolder(const std::string& path) {
    return path.compare(0, 5, "/dev/") == 0 || path.compare(0, 5, "/sys/") == 0 ||
           path.compare(0, 6, "/proc/") == 0;
}

}  // namespace

Terminal::Terminal(const std::string& folder)
    : owner(getpid()), root(folder.empty() ? RootFolder() : RootFolder(folder)),
      control(std::make_shared<PowerControl>(log)), oled(std::make_shared<Display>(log)),
      clockChip(std::make_shared<RealTimeClock>(log)),
      keys(std::make_shared<InputDevice>("keypad", log, eventType(board::InputKey))),
      touch(std::make_shared<InputDevice>("touch", log, eventType(InputPosition))),
      sound(std::make_shared<InputDevice>("speaker", log, eventType(board::InputSound))),
      suspend(std::make_shared<SuspendControl>(log, *clockChip, *keys)),
      memoryCard(std::make_shared<MemoryCard>(log, root)),
      engineLine(std::make_shared<SerialLine>("barcode", log)),
      engine(std::make_unique<BarcodeEngine>(log, *engineLine)),
      radioLine(std::make_shared<SerialLine>("radio", log)),
      radioModule(std::make_unique<RadioModule>(log, *radioLine)), pseudoTerminals(root),
      batteryMillivolts(root, board::BatteryVoltagePath),
      temperatureInput(root, board::TemperaturePath), lightInput(root, board::AmbientLightPath),
      usb(root, board::UsbSupplyPath) {
    engineLine->connect(engine.get());
    control->onSupply(board::SupplyScanner, [this](bool on) { engine->setPowered(on); });
    connectRadio();
    connectWlan();
    connectTextModule();
    packetLine->connect(&packetBluetooth);

    root.makeFolder("/etc/ppp");
    root.makeFolder("/var/run");
    root.makeFolder("/tmp");
    root.makeFolder("/data");
    batteryMillivolts.set(4200);
    temperatureInput.set(2200);
    lightInput.set(20);
    usb.set(0);

    nodes = {{board::PowerControlPath, control},
             {board::DisplayPath, oled},
             {board::ClockPath, clockChip},
             {board::SuspendPath, suspend},
             {inputPath(0), keys},
             {inputPath(1), touch},
             {inputPath(2), sound},
             {RadioPath, radioLine},
             {barcode::DevicePath, engineLine},
             {rfid::NxpPath, rfidEngine},
             {rfid::AmsPath, rfidEngine},
             {lmx::DevicePath, packetLine}};
    pseudoTerminals.addTo(nodes);

    Terminal* none = nullptr;
    if (!currentTerminal.compare_exchange_strong(none, this))
        abort();  // two terminals in one process
}

Terminal::~Terminal() {
    currentTerminal = nullptr;
    if (isInherited())
        return;
    externalPrograms.shutDown();
    Descriptors::get().forgetAll();
    engineLine->shutDown();
    radioLine->shutDown();
    textLine->shutDown();
    packetLine->shutDown();
    Clock::get().reset();
}

void Terminal::connectRadio() {
    RadioModule& module = *radioModule;
    radioLine->connect(&module);
    control->onSupply(board::SupplyGprs, [&](bool on) { module.setSupply(on); });
    control->onLine(board::LineGprsControl, [&](bool level) { module.setControl(level); });
    control->onLine(board::LineGprsReset, [&](bool level) { module.setReset(level); });
    control->onLine(board::LineGprsPowerKey, [&](bool level) { module.setPowerKey(level); });
    control->onLine(board::LineGprsDtr, [&](bool level) { module.setDtr(level); });
    control->onReading(board::LineGprsPowerStatus, [&] { return module.readStatus(); });
}

void Terminal::connectWlan() {
    control->onLine(board::LineMpci3V3, [this](bool on) { wlanAdapter.setPower(on); });
    control->onLine(board::LineMpciRadio, [this](bool on) { wlanAdapter.setRadio(on); });
    kernelModules.serve(externalPrograms);
}

void Terminal::connectTextModule() {
    textLine->connect(&textBluetooth);
    const auto whenFitted = [this](void (TextBluetoothModule::*react)(bool)) {
        return [this, react](bool state) {
            if (isTextModuleFitted)
                (textBluetooth.*react)(state);
        };
    };
    control->onSupply(board::SupplyBluetooth, whenFitted(&TextBluetoothModule::setSupply));
    control->onLine(board::LineBluetoothEnable, whenFitted(&TextBluetoothModule::setEnable));
    control->onLine(board::LineBluetoothReset, whenFitted(&TextBluetoothModule::setReset));
}

void Terminal::fitTextModule(bool isFitted) {
    isTextModuleFitted = isFitted;
    const std::lock_guard<std::mutex> held(mutex);
    nodes[RadioPath] = isFitted ? textLine : radioLine;
}

NetworkInterface* Terminal::findInterface(const std::string& name) {
    for (NetworkInterface* const interface :
         std::initializer_list<NetworkInterface*>{&wlanAdapter, &pppLink}) {
        if (interface->name() == name)
            return interface;
    }
    return nullptr;
}

Terminal* Terminal::current() { return currentTerminal; }

void Terminal::pressKey(int code, bool down) {
    keys->key(code, down);
    if (down)
        suspend->keyPressed();
}

void Terminal::setPresent(const std::string& path, bool present) {
    const std::lock_guard<std::mutex> held(mutex);
    if (present)
        missing.erase(path);
    else
        missing.insert(path);
}

Place Terminal::locate(const std::string& path, bool forWriting) {
    const HostTime hostTime;
    const std::lock_guard<std::mutex> held(mutex);
    Place place;
    const auto node = nodes.find(path);
    if (missing.count(path))
        place.error = ENOENT;
    else if (node != nodes.end())
        place.device = node->second;
    else if (!memoryCard->locate(path, forWriting, place))
        place.hostPath = root.hostPath(path);
    if (place.device && isInherited())
        place.error = ENXIO;
    if (isDriverFolder(path) && !place.hostPath.empty() && !root.exists(path))
        place.error = ENOENT;
    return place;
}

std::string Terminal::pathOf(const std::string& hostPath) const {
    return memoryCard->pathOf(root.pathOf(hostPath));
}

bool Terminal::isInherited() const { return getpid() != owner; }

std::vector<std::unique_lock<std::mutex>> Terminal::holdForFork() {
    std::vector<std::unique_lock<std::mutex>> held;
    held.emplace_back(mutex);
    held.push_back(memoryCard->hold());
    held.push_back(faultRules.hold());
    held.push_back(externalPrograms.hold());
    return held;
}

}  // namespace sim
