#include "network/BluetoothConnection.h"

#include "bluetooth/BluetoothSPPConnection.h"
#include "bluetooth/BluetoothSocket.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using sim::Reply;
using std::string;
using test::soon;

constexpr char Phone[] = "00:1A:7D:DA:71:13";

/// As in the driver's tests: answers are short of their time-outs by far.
constexpr double Exchanging = 5;
constexpr double Waiting = 50;

struct BluetoothConnectionTest : test::PoweredTest {
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

    static string read(BluetoothSocket& socket) {
        unsigned char buffer[200];
        return {buffer, buffer + socket.readData(buffer, sizeof buffer)};
    }
    static bool write(BluetoothSocket& socket, string text) {
        return socket.writeData(reinterpret_cast<unsigned char*>(text.data()),
                                unsigned(text.size()));
    }

    sim::TextBluetoothModule& module = terminal.textModule();
    std::unique_ptr<BluetoothConnection> link;
};

TEST_F(BluetoothConnectionTest, TheRadioComesUpCarriesASocketAndIsShutDown) {
    const test::Holdings before;
    terminal.clock().setSpeed(1);
    ASSERT_TRUE(link->initialize());
    EXPECT_TRUE(module.isMultiplexing() && module.accessCode() == "9e8b33");
    terminal.clock().setSpeed(Exchanging);
    GENERIC_NETWORK_INFO info;
    EXPECT_TRUE(link->getNetworkInfo(info) && info.connected == 1 && info.channel == 0);
    EXPECT_EQ(info.networkName + info.ipAddress + info.macAddress, "BTn/an/a");
    EXPECT_EQ(info.signalQuality, -28);

    BluetoothSocket socket(link.get());
    EXPECT_FALSE(socket.isConnected() || write(socket, "x") || !socket.close());
    EXPECT_EQ(read(socket), "");
    EXPECT_FALSE(socket.connect(reinterpret_cast<const unsigned char*>(Phone), 8, "")) << "no port";
    terminal.clock().setSpeed(Exchanging);
    EXPECT_TRUE(socket.connect(Phone, 3));
    EXPECT_TRUE(socket.connect("nowhere", 8) && socket.isConnected()) << "it is already";
    terminal.clock().setSpeed(0.3);
    EXPECT_TRUE(soon([&] { return write(socket, "hello") && read(socket) == "hello"; }));
    link->getNetworkInfo(info);
    EXPECT_EQ(info.signalQuality, 40);
    terminal.clock().setSpeed(1);
    EXPECT_GE(simulated([&] { EXPECT_EQ(read(socket), ""); }), 990ms);

    terminal.clock().setSpeed(Exchanging);
    EXPECT_TRUE(socket.close() && !socket.isConnected());
    EXPECT_EQ(terminal.air().find(Phone)->link, 0);
    ASSERT_TRUE(link->connect());
    EXPECT_TRUE(soon([&] { return link->getLastEvent() == NETWORK_UP; }));
    EXPECT_TRUE(link->disconnect() && link->shutdown());
    EXPECT_TRUE(!module.isReady() && module.line().isOpen()) << "the line stays";
    link.reset();
    EXPECT_TRUE(before.areBack());
}

TEST_F(BluetoothConnectionTest, EveryStepOfTheBringUpCanFail) {
    const struct {
        const char* what;
        double speed;
        const char* reached;
        std::function<void()> happens;
    } cases[] = {
        {"no supply", Waiting, "pwrctrl: line 4 high",
         [&] { terminal.faults().fail("ioctl", "/dev/pwrctrl", EIO, 1); }},
        {"no line", 1, "pwrctrl: line 6 low", [&] { terminal.setPresent("/dev/ttyAT1", false); }},
        {"no banner", Exchanging, "bt: ready", [&] { module.setSilent(true); }},
        {"no MUX mode", 2, "bt: SET CONTROL MUX 1",
         [&] { module.onCommand("SET CONTROL*", Reply::final("SYNTAX ERROR").withoutEcho()); }},
        {"no access code", 2, "bt: SET BT LAP 9e8b33",
         [&] { module.onCommand("SET BT LAP*", Reply::final("REFUSED")); }}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.what);
        terminal.clock().setSpeed(expected.speed);
        expected.happens();
        EXPECT_FALSE(link->initialize());
        EXPECT_EQ(takeLines().back(), expected.reached);
        make();  // what is left of it is taken down with it, whatever is held
        terminal.setPresent("/dev/ttyAT1", true);
        terminal.faults().clear();
        module.setSilent(false);
        module.clearHooks();
    }
    terminal.faults().fail("ioctl", "/dev/pwrctrl", EIO);
    EXPECT_FALSE(link->netShutdown());
    PowerManager::deinitPowerManager();
    EXPECT_FALSE(link->netInitialize() || link->netShutdown()) << "without a power manager";
}

}  // namespace
