// The whole system started and shut down again and again in one process, the way applications
// should and the ways they might.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "bluetooth/LMXBluetoothModule.h"
#include "network/GprsConnection.h"
#include "network/WlanConnection.h"
#include "power/SystemMonitor.h"
#include "scanner/ScannerInput.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using test::soon;

/// Everything that an application holds, and what it does to it.
class Application {
public:
    ~Application() {
        ScannerInput::shutdown();
        SystemMonitor::shutdown();
        endPackets();
        links.clear();
        PowerManager::deinitPowerManager();
    }

    void startPower() {
        PowerManager::initPowerManager();
        PowerManager::getPowerManager()->initialize();
    }
    void startMonitor() { SystemMonitor::initialize(); }
    void endMonitor() { SystemMonitor::shutdown(); }
    void startScanning() {
        ScannerInput::initialize();
        if (ScannerInput* const scanner = ScannerInput::getScannerInput()) {
            scanner->initScan(0);
            scanner->startScan();
        }
    }
    void endScanning() { ScannerInput::shutdown(); }
    void makeLinks() {
        GPRS_CONNECTION_SETTINGS gprs;
        gprs.pin = "1234";
        links.push_back(std::make_unique<GprsConnection>(gprs));
        links.push_back(std::make_unique<WlanConnection>(WLAN_CONNECTION_SETTINGS()));
    }
    void initializeLinks() {
        for (const auto& link : links)
            link->initialize();
    }
    void connectLinks() {
        for (const auto& link : links)
            link->connect();
    }
    void disconnectLinks() {
        for (const auto& link : links)
            link->disconnect();
    }
    void shutDownLinks() {
        for (const auto& link : links)
            link->shutdown();
    }
    void destroyLinks() { links.clear(); }
    void startPackets() {
        if (LMXBluetoothModule::initialize())
            packets.reset(BluetoothModule::pModule);
    }
    void endPackets() {
        if (packets)
            packets->shutdown();
        packets.reset();
    }
    void sleep() { PowerManager::getPowerManager()->setPowerMode(POWER_SUSPEND); }
    void wake() { PowerManager::getPowerManager()->setPowerMode(POWER_ON); }

private:
    std::vector<std::unique_ptr<NetworkConnection>> links;
    std::unique_ptr<BluetoothModule> packets;
};

using Step = void (Application::*)();

class StartAndShutdownTest : public test::TerminalTest {
protected:
    StartAndShutdownTest() {
        terminal.clock().setSpeed(200);
        terminal.identity().setScanners("12");
        // Of these each start of the power manager leaves a descriptor open, by contract.
        terminal.setPresent("/dev/input/event0", false);
        terminal.setPresent("/dev/input/event1", false);
    }

    /// Lets an application take the steps and end, and what it had end with it.
    void live(const std::vector<Step>& steps) {
        for (int i = 0; i < 10; ++i)
            terminal.power().wakeByKey(28, std::chrono::seconds(1));
        const test::EventThread events;
        Application application;
        application.startPower();
        for (const Step step : steps)
            (application.*step)();
        // Daemons held the modem's port, the clock and files on the card after their end here.
        EXPECT_EQ(test::inheritedDescriptors(), inherited);
    }

    const int inherited = test::inheritedDescriptors();
};

TEST_F(StartAndShutdownTest, TwoHundredTimesInWhateverOrderNothingStaysBehind) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
    GTEST_SKIP() << "a link that is initialized while it connects races with its own worker";
#endif
#endif
    const std::vector<Step> inOrder = {&Application::startMonitor,    &Application::startScanning,
                                       &Application::startPackets,    &Application::makeLinks,
                                       &Application::initializeLinks, &Application::connectLinks,
                                       &Application::sleep,           &Application::wake,
                                       &Application::disconnectLinks, &Application::shutDownLinks,
                                       &Application::destroyLinks,    &Application::endPackets,
                                       &Application::endScanning,     &Application::endMonitor};
    constexpr int WarmUp = 20;  // what is kept once made is there by then
    std::mt19937 chance(1);
    long descriptors = std::numeric_limits<long>::max(), threads = descriptors;
    for (int round = 0; round < 200; ++round) {
        std::vector<Step> steps = inOrder;
        if (round % 4 != 0)
            std::shuffle(steps.begin(), steps.end(), chance);
        if (round % 4 == 2)  // some twice
            steps.insert(steps.end(), steps.begin(), steps.begin() + 7);
        if (round % 4 == 3)  // others never
            steps.resize(7);
        live(steps);
        terminal.journal().clear();
        // A link that was not shut down leaves its programs running, or about to.
        const auto endPrograms = [&] {
            for (const char* program : {"pppd", "wpa_supplicant", "udhcpc"})
                terminal.programs().signalRunning(program, SIGKILL);
        };
        endPrograms();
        if (round < WarmUp)
            continue;
        // What a round leaves for a moment is no measure for the next ones: the least counts.
        ASSERT_TRUE(soon([&] {
            endPrograms();
            return test::openDescriptors() <= descriptors && test::runningThreads() <= threads;
        })) << "round "
            << round << ": " << test::openDescriptors() << " descriptors, "
            << test::runningThreads() << " threads; once " << descriptors << " and " << threads;
        descriptors = std::min(descriptors, test::openDescriptors());
        threads = std::min(threads, test::runningThreads());
    }
}

// A connection that had been connected twice and disconnected once stayed with the power manager
// when it was destroyed; one destroyed too early took its steps away from a worker in the midst of
// them.
TEST_F(StartAndShutdownTest, ALinkThatIsDestroyedTooEarlyIsNotToldOfSleepAnyMore) {
    live({&Application::makeLinks, &Application::connectLinks, &Application::connectLinks,
          &Application::disconnectLinks, &Application::destroyLinks, &Application::sleep});
    live({&Application::makeLinks, &Application::initializeLinks, &Application::connectLinks,
          &Application::destroyLinks, &Application::sleep});
    EXPECT_EQ(terminal.power().suspends(), 2);
}

}  // namespace
