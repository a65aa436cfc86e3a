#include "network/BluetoothConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/BluetoothSocket.h"
#include "network/NetworkWindow.h"
#include "sim/console/Console.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using sim::Reply;
using std::string;
using test::soon;

constexpr char Phone[] = "00:1A:7D:DA:71:13";

/// As in the driver's tests: answers are short of their time-outs by far.
constexpr double Exchanging = 5;
constexpr double Calling = 10;
constexpr double Waiting = 50;

class BluetoothConnectionTest : public test::PoweredTest {
protected:
    BluetoothConnectionTest() {
        terminal.fitTextModule();
        terminal.air().present(Phone, "Phone");
        make();
    }
    ~BluetoothConnectionTest() override { terminal.clock().setSpeed(Waiting); }

    void make() {
        BT_CONNECTION_SETTINGS settings;
        settings.lap = "9e8b33";
        link = std::make_unique<BluetoothConnection>(&settings);
    }

    void initialize() {
        terminal.clock().setSpeed(Exchanging);
        ASSERT_TRUE(link->initialize());
    }

    static string read(BluetoothSocket& socket) {
        unsigned char buffer[200];
        const int count = socket.readData(buffer, sizeof buffer);
        return {buffer, buffer + count};
    }
    static bool write(BluetoothSocket& socket, string text) {
        return socket.writeData(reinterpret_cast<unsigned char*>(text.data()),
                                static_cast<unsigned>(text.size()));
    }

    sim::TextBluetoothModule& module() { return terminal.textModule(); }

    std::unique_ptr<BluetoothConnection> link;
    test::NetworkWindow networkWindow{terminal.journal()};
};

TEST_F(BluetoothConnectionTest, TheRadioComesUpCarriesASocketAndIsShutDown) {
    const long descriptors = test::openDescriptors();
    const long threads = test::runningThreads();
    initialize();
    EXPECT_TRUE(module().isMultiplexing());
    EXPECT_EQ(module().accessCode(), "9e8b33");
    GENERIC_NETWORK_INFO info;
    EXPECT_TRUE(link->getNetworkInfo(info));
    EXPECT_EQ(info.connected, 1);
    EXPECT_EQ(info.networkName + info.ipAddress + info.macAddress, "BTn/an/a");
    EXPECT_EQ(info.channel, 0);
    EXPECT_EQ(info.signalQuality, -28);
    ASSERT_TRUE(link->connect());
    EXPECT_TRUE(soon([&] { return link->getLastEvent() == NETWORK_UP; }));

    BluetoothSocket socket(link.get());
    EXPECT_FALSE(socket.isConnected() || write(socket, "x"));
    EXPECT_EQ(read(socket), "");
    EXPECT_TRUE(socket.close());
    EXPECT_FALSE(BluetoothSocket(nullptr).connect(Phone, 1));
    EXPECT_FALSE(socket.connect(reinterpret_cast<const unsigned char*>(Phone), 8, "")) << "no port";
    terminal.clock().setSpeed(Calling);
    EXPECT_TRUE(socket.connect(Phone, 3));
    EXPECT_EQ(module().pin(), "");
    EXPECT_TRUE(socket.connect("nowhere", 8)) << "it is connected";
    EXPECT_TRUE(socket.isConnected());
    EXPECT_TRUE(socket.setTimeouts(1, 1) && socket.setKeepalive(1, 2, 3));
    terminal.clock().setSpeed(1);
    EXPECT_TRUE(write(socket, "hello"));
    string echo;
    EXPECT_TRUE(soon([&] {
        echo += read(socket);
        return echo.size() >= 5;
    }));
    EXPECT_EQ(echo, "hello");
    EXPECT_EQ(socket.getPendingInput(), 0);
    const auto begin = terminal.clock().monotonic();
    EXPECT_EQ(read(socket), "");
    EXPECT_GE(terminal.clock().monotonic() - begin, 990ms);
    link->getNetworkInfo(info);
    EXPECT_EQ(info.signalQuality, 40);

    terminal.clock().setSpeed(Calling);
    EXPECT_TRUE(socket.close());
    EXPECT_FALSE(socket.isConnected());
    EXPECT_EQ(terminal.air().find(Phone)->link, 0);
    EXPECT_TRUE(link->disconnect());
    EXPECT_TRUE(link->shutdown());
    EXPECT_FALSE(module().isReady());
    EXPECT_TRUE(module().line().isOpen()) << "the line stays";
    link.reset();
    EXPECT_TRUE(soon([&] { return !module().line().isOpen(); }));
    EXPECT_TRUE(soon([&] { return test::openDescriptors() == descriptors; }));
    EXPECT_TRUE(soon([&] { return test::runningThreads() == threads; }));
}

TEST_F(BluetoothConnectionTest, EveryStepOfTheBringUpCanFail) {
    const struct {
        const char* what;
        double speed;
        std::function<void()> happens;
    } cases[] = {
        {"no supply", Waiting, [&] { terminal.faults().fail("ioctl", "/dev/pwrctrl", EIO, 1); }},
        {"no line", Waiting, [&] { terminal.setPresent("/dev/ttyAT1", false); }},
        {"no banner", Waiting, [&] { module().setSilent(true); }},
        {"no MUX mode", Exchanging,
         [&] { module().onCommand("SET CONTROL*", Reply::final("SYNTAX ERROR").withoutEcho()); }},
        {"no access code", Exchanging,
         [&] { module().onCommand("SET BT LAP*", Reply::final("REFUSED")); }},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.what);
        terminal.clock().setSpeed(expected.speed);
        expected.happens();
        EXPECT_FALSE(link->initialize());
        make();  // what is left of it is taken down with it, whatever is held
        terminal.setPresent("/dev/ttyAT1", true);
        terminal.faults().clear();
        module().setSilent(false);
        module().clearHooks();
    }
    terminal.faults().fail("ioctl", "/dev/pwrctrl", EIO);
    EXPECT_FALSE(link->netShutdown());
    PowerManager::deinitPowerManager();
    EXPECT_FALSE(link->netInitialize() || link->netShutdown()) << "without a power manager";
    start();
    initialize();
}

TEST_F(BluetoothConnectionTest, AScriptPlaysTheDevicesAround) {
    sim::Console console(terminal);
    std::istringstream script("bt fit text\n"
                              "bt present 5C:F3:70:8B:12:34 Label printer\n"
                              "bt pin 5C:F3:70:8B:12:34 1234\n"
                              "bt signal 5c:f3:70:8b:12:34 -80\n"
                              "bt service 5C:F3:70:8B:12:34 sink\n"
                              "bt mood 5C:F3:70:8B:12:34 refusing\n"
                              "bt away 00:1A:7D:DA:71:13\n"
                              "bt say RING\nbt silent\nbt normal\nbt hangup\nbt refuse LIST\n");
    EXPECT_EQ(console.run(script), "");
    const auto printer = terminal.air().find("5c:f3:70:8b:12:34");
    ASSERT_TRUE(printer);
    EXPECT_EQ(printer->name + printer->pin, "Label printer1234");
    EXPECT_EQ(printer->dBm, -80);
    EXPECT_EQ(printer->mood, printer->Refusing);
    EXPECT_FALSE(terminal.air().find(Phone));
    initialize();
    EXPECT_EQ(console.execute("bt ring 5C:F3:70:8B:12:34"), "");
    EXPECT_EQ(console.execute("bt send 5C:F3:70:8B:12:34 hello"), "");
    EXPECT_EQ(console.execute("bt drop 5C:F3:70:8B:12:34"), "");
    for (const char* line :
         {"bt", "bt ring", "bt drop 5C:F3:70:8B:12:34", "bt send 5C x", "bt pin 1 2",
          "bt mood 5C:F3:70:8B:12:34 sad", "bt ring 1", "bt fit x"})
        EXPECT_NE(console.execute(line), "") << line;
}

}  // namespace
