// Everything at once on a simulated terminal whose devices fail at random:
//
//     EverythingSoak [MINUTES [SEED [SPARE_KB]]]
//
// The terminal lives through one start-up and shut-down after the other, each with a link of
// another kind, while a person uses whatever there is and the world does its worst: devices fall
// silent, hang up, refuse and go away, calls of the system fail. What any of that gives is not
// looked at. What counts is that every call comes back, that a life ends, and that the process then
// holds what it held before. What the seed decides is the order of deeds on either side, so that a
// failure can be tried again; the threads' own timing is not in it.

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "bench/Process.h"
#include "bench/World.h"
#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/BluetoothSocket.h"
#include "bluetooth/LMXBluetoothModule.h"
#include "config/IniFile.h"
#include "config/LogFile.h"
#include "config/SysInfo.h"
#include "foundation/Thread.h"
#include "gui/GuiLibrary.h"
#include "gui/GuiWindow.h"
#include "network/BluetoothConnection.h"
#include "network/GprsConnection.h"
#include "network/WlanConnection.h"
#include "power/PowerManager.h"
#include "power/SystemMonitor.h"
#include "scanner/ScannerInput.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;
using bench::Chance;

constexpr double Speed = 10;
constexpr auto LongestDeed = 300s;  // of the host's time, on a busy machine and under a sanitizer
constexpr auto LifeTime = 20s;
constexpr int WarmUpLives = 9;
constexpr long SpareKb = 8192;
constexpr int WakeKey = 28;
constexpr char Printer[] = "00:1A:7D:DA:71:13";

/// Ends the program with what it was at when a deed does not come back.
class Watchdog {
public:
    Watchdog() : thread([this] { watch(); }) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> held(mutex);
            isOver = true;
        }
        changed.notify_all();
        thread.join();
    }

    void begin(const char* what) {
        const std::lock_guard<std::mutex> held(mutex);
        deed = what;
        ++number;
        changed.notify_all();
    }

    long count() const { return number; }

private:
    void watch() {
        const sim::HostTime hostTime;
        std::unique_lock<std::mutex> held(mutex);
        while (!isOver) {
            const long watched = number;
            if (!changed.wait_for(held, LongestDeed, [&] { return isOver || number != watched; })) {
                printf("does not come back: %s\n", deed);
                fflush(stdout);
                abort();
            }
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    const char* deed = "start";  // guarded by mutex
    bool isOver = false;         // likewise
    std::atomic<long> number{0};
    std::thread thread;
};

/// Counts what the library tells it.
struct Window : GuiWindow {
    Window() : GuiWindow(0) {}
    bool onKeyDown(int) override { return false; }
    bool onKeyUp(int) override { return false; }
    void onClose() override {}
    bool onModalFinished(GuiWindow*) override { return false; }
    void onTimer(int) override {}
    void onSystemEvent(int, void*) override { ++told; }

    long told = 0;
};

enum class LinkKind { Gprs, Wlan, Bluetooth };
constexpr int LinkKinds = 3;

std::unique_ptr<NetworkConnection> makeLink(LinkKind kind) {
    GPRS_CONNECTION_SETTINGS gprs;
    gprs.pin = "1234";
    gprs.apn = "internet";
    WLAN_CONNECTION_SETTINGS wlan;
    wlan.ssid = "\"Warehouse\"";
    wlan.securityType = WlanConnection::SecurityWpa2;
    wlan.psk = "\"forklift-7\"";
    BT_CONNECTION_SETTINGS bluetooth{"", "9e8b33", "0000"};
    switch (kind) {
    case LinkKind::Gprs: return std::make_unique<GprsConnection>(gprs);
    case LinkKind::Wlan: return std::make_unique<WlanConnection>(wlan);
    case LinkKind::Bluetooth: return std::make_unique<BluetoothConnection>(&bluetooth);
    }
    return nullptr;
}

/// One start-up, some use, and a shut-down.
class Life {
public:
    Life(sim::Terminal& simulated, LinkKind kind, Chance& deeds, Watchdog& dog)
        : terminal(simulated), chance(deeds), watchdog(dog), link(makeLink(kind)) {
        watchdog.begin("start-up");
        PowerManager::initPowerManager();
        SystemMonitor::initialize();
        ScannerInput::initialize();
        // The text module's driver would be the only one: there is one at a time.
        if (!BluetoothModule::pModule && LMXBluetoothModule::initialize()) {
            packet.reset(static_cast<LMXBluetoothModule*>(BluetoothModule::pModule.load()));
            PowerManager::getPowerManager()->addListener(packet.get());
        }
        events = std::thread([] { GuiLibrary::run(); });
    }

    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    ~Life() {
        watchdog.begin("end of the link");
        link->disconnect();
        link->shutdown();
        link.reset();
        watchdog.begin("end of the packet module");
        if (packet) {
            PowerManager::getPowerManager()->removeListener(packet.get());
            packet->shutdown();
            packet.reset();
        }
        watchdog.begin("end of the readers and the monitor");
        ScannerInput::shutdown();
        SystemMonitor::shutdown();
        GuiLibrary::quit();
        events.join();
        watchdog.begin("end of the power manager");
        PowerManager::deinitPowerManager();
    }

    void live(std::chrono::steady_clock::duration time) {
        struct Deed {
            const char* name;
            void (Life::*act)();
        };
        static constexpr Deed Deeds[] = {{"start of the link", &Life::startLink},
                                         {"stop of the link", &Life::stopLink},
                                         {"network information", &Life::askLink},
                                         {"scan", &Life::scan},
                                         {"sleep", &Life::sleep},
                                         {"lights and sounds", &Life::playWithLights},
                                         {"settings and log", &Life::keepRecords},
                                         {"packet call", &Life::callOverPackets},
                                         {"text call", &Life::callOverText},
                                         {"rest", &Life::rest}};
        const auto end = bench::hostNow() + time;
        while (bench::hostNow() < end) {
            const Deed& deed = Deeds[chance.below(static_cast<int>(std::size(Deeds)))];
            watchdog.begin(deed.name);
            (this->*deed.act)();
        }
    }

private:
    BluetoothConnection* bluetooth() const {
        return dynamic_cast<BluetoothConnection*>(link.get());
    }

    void startLink() {
        isReady = isReady || link->initialize();
        if (isReady) {
            link->connect();
        } else if (bluetooth()) {
            // A module whose line did not open is held for good: only destroying it is left.
            link.reset();
            link = makeLink(LinkKind::Bluetooth);
        }
    }

    void stopLink() {
        link->disconnect();
        if (chance.below(2) == 0)
            isReady = !link->shutdown();
    }

    void askLink() {
        GENERIC_NETWORK_INFO info;
        link->getNetworkInfo(info);
    }

    void scan() {
        ScannerInput* const scanner = ScannerInput::getScannerInput();
        if (!scanner)
            return;
        scanner->initScan(chance.below(2));
        scanner->startScan();
        Thread::sleep(chance.below(2000));
        scanner->stopScan();
    }

    void sleep() {
        terminal.power().wakeByKey(WakeKey, 20s);
        PowerManager& manager = *PowerManager::getPowerManager();
        manager.setPowerMode(static_cast<PowerState>(chance.below(POWER_SUSPEND + 1)));
        manager.setPowerMode(POWER_ON);
    }

    void playWithLights() {
        PowerManager& manager = *PowerManager::getPowerManager();
        manager.ledEnable(chance.below(2) != 0, chance.below(2) != 0);
        manager.oledFadeBrightness(static_cast<unsigned char>(chance.below(256)));
        manager.buzzerPlay(1000, chance.below(100));
        manager.rtcSetAlarm(chance.below(100));
        int voltage = 0;
        manager.getBatteryCapacity(&voltage);
        manager.kickIdle();
    }

    void keepRecords() {
        IniFile ini("/mnt/mmc/soak.ini");
        ini.ReadFile();
        ini.SetValueI("Soak", "Deeds", static_cast<int>(watchdog.count()), true);
        ini.WriteFile();
        LogFile("/mnt/mmc/soak.log")
            .logPrintf(LogFile::LEVEL_INFO, "soak", "deed %ld on %s", watchdog.count(),
                       SysInfo::getSerialNumber());
    }

    void callOverPackets() {
        if (!packet)
            return;
        std::string address = Printer;
        BluetoothSPPConnection* const call = packet->createSPPConnection(
            reinterpret_cast<unsigned char*>(address.data()), 1, "0000");
        char data[200] = {};
        if (call && call->connect()) {
            call->writeData(data, sizeof data);
            if (call->isInputPending(500))
                call->readData(data, sizeof data);
        }
        packet->deleteSPPConnection(call);
    }

    void callOverText() {
        BluetoothConnection* const radio = bluetooth();
        if (!radio || !isReady)
            return;
        radio->getModule()->scanDevices();
        std::string address = Printer;
        unsigned char data[64] = {};
        BluetoothSocket socket(radio);
        if (socket.connect(reinterpret_cast<unsigned char*>(address.data()), 0, "0000") &&
            socket.writeData(data, sizeof data))
            socket.readData(data, sizeof data);
        socket.close();
    }

    void rest() { Thread::sleep(chance.below(5000)); }

    sim::Terminal& terminal;
    Chance& chance;
    Watchdog& watchdog;
    Window window;
    std::unique_ptr<NetworkConnection> link;
    bool isReady = false;  // the link has been initialized, and not shut down since
    std::unique_ptr<LMXBluetoothModule> packet;
    std::thread events;
};

int soak(std::chrono::minutes time, unsigned seed, long spareKb) {
    printf("seed %u\n", seed);
    fflush(stdout);
    Chance chance(seed);
    sim::Terminal terminal;
    terminal.clock().setSpeed(Speed);
    terminal.identity().setScanners("12");
    terminal.air().present(Printer, "Label printer");
    // Of these each start of the power manager leaves a descriptor open, by contract.
    terminal.setPresent("/dev/input/event0", false);
    terminal.setPresent("/dev/input/event1", false);
    bench::World world(terminal, seed + 1);
    Watchdog watchdog;
    std::optional<bench::Held> before;
    bench::Held after{};
    const auto end = bench::hostNow() + time;
    int lives = 0;
    for (; bench::hostNow() < end || lives <= WarmUpLives; ++lives) {
        const auto kind = static_cast<LinkKind>(lives % LinkKinds);
        terminal.fitTextModule(kind == LinkKind::Bluetooth);
        {
            Life life(terminal, kind, chance, watchdog);
            world.turnBad();
            life.live(LifeTime);
            world.turnGood();
        }
        watchdog.begin("quiet after a life");
        // A program whose pid file could not be read once is not found again, by contract.
        for (const char* program : {"pppd", "wpa_supplicant", "udhcpc"})
            terminal.programs().signalRunning(program, SIGKILL);
        terminal.journal().clear();
        Thread::sleep(5000);
        after = bench::Held::now();
        printf("life %d, %ld deeds, %ld faults\n", lives, watchdog.count(), world.faults());
        fflush(stdout);
        if (lives == WarmUpLives)
            before = after;
        if (before && !after.isNotMoreThan(*before, spareKb)) {
            printf("life %d holds more: %s\n", lives, after.since(*before).c_str());
            return 1;
        }
    }
    printf("%d lives, %ld deeds, %ld faults; %s\n", lives, watchdog.count(), world.faults(),
           after.since(*before).c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int minutes = argc > 1 ? atoi(argv[1]) : 60;
    const unsigned seed =
        argc > 2 ? static_cast<unsigned>(strtoul(argv[2], nullptr, 10)) : std::random_device()();
    return soak(std::chrono::minutes(minutes), seed, argc > 3 ? atol(argv[3]) : SpareKb);
}
