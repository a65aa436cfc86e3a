#include "network/WlanConnection.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <map>

#include "foundation/Thread.h"
#include "network/NetworkWindow.h"
#include "network/WlanProtocol.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

constexpr char DhcpPidPath[] = "/tmp/udhcpc.pid";

WLAN_CONNECTION_SETTINGS warehouse() {
    WLAN_CONNECTION_SETTINGS settings;
    settings.ssid = "\"Warehouse\"";
    settings.securityType = WlanConnection::SecurityWpa2;
    settings.psk = "\"forklift-7\"";
    return settings;
}

struct WlanConnectionTest : test::PoweredTest {
    WlanConnectionTest() {
        terminal.wlan().appearAfter(0s);
        terminal.wlan().associateAfter(0s);
    }

    void use(const WLAN_CONNECTION_SETTINGS& settings) {
        connection = std::make_unique<WlanConnection>(settings);
    }

    /// Initialized and connected with the usual settings.
    void bringUp() {
        use(warehouse());
        ASSERT_TRUE(connection->netInitialize() && connection->netConnect());
        terminal.journal().clear();
    }

    /// Time passes as fast as each step allows: what answers at once may take half a second of the
    /// host's time.
    void hurry() {
        constexpr struct {
            const char* reached;
            double speed;
        } Speeds[] = {{"event 1 Loading 802.11 WLAN driver", 20},
                      {"event 1 Starting WPA supplicant", 4},
                      {"event 1 Connecting to network", 100},
                      {"event 1 Stopping DHCP", 10},
                      {"event 1 Stopping WLAN module", 10}};
        terminal.journal().watch([=](const sim::Journal::Entry& entry) {
            for (const auto& step : Speeds) {
                if (entry.text == step.reached)
                    terminal.clock().setSpeed(step.speed);
            }
        });
    }

    /// The terminal hears of a program's end a moment later, too.
    bool haveEnded() {
        return test::soon([this] {
            return terminal.programs().running("wpa_supplicant").empty() &&
                   terminal.programs().running("udhcpc").empty();
        });
    }

    GENERIC_NETWORK_INFO info() {
        GENERIC_NETWORK_INFO told;
        EXPECT_TRUE(connection->getNetworkInfo(told));
        return told;
    }

    test::NetworkWindow network{terminal.journal()};
    std::unique_ptr<WlanConnection> connection;
};

TEST_F(WlanConnectionTest, ALinkComesUpByDhcpAndIsTakenDownInTheStatedOrder) {
    const test::Holdings before;
    use(warehouse());
    EXPECT_FALSE(connection->isConnectionUp()) << "before there is a socket";
    ASSERT_TRUE(connection->netInitialize());
    EXPECT_THAT(takeLines(),
                ElementsAre("pwrctrl: line 4 high", "pwrctrl: line 7 high",
                            "net: event 1 Loading 802.11 WLAN driver", "modprobe: start ohci-hcd",
                            "insmod: start /lib/modules/wireless/rt3070sta.ko"));
    ASSERT_TRUE(connection->netConnect());
    EXPECT_THAT(
        takeLines(),
        ElementsAre(
            "net: event 1 Starting 802.11 WLAN module", "ra0: up",
            "net: event 1 Starting WPA supplicant",
            "wpa_supplicant: start -B -Dwext -ira0 -P/tmp/wpa_supplicant.pid "
            "-C/tmp/wpa_supplicant.ctrl",
            "net: event 1 Configuring network", "wpa_supplicant: ADD_NETWORK",
            "wpa_supplicant: SET_NETWORK 0 ssid \"Warehouse\"",
            "wpa_supplicant: SET_NETWORK 0 proto WPA2",
            "wpa_supplicant: SET_NETWORK 0 key_mgmt WPA-PSK",
            "wpa_supplicant: SET_NETWORK 0 auth_alg OPEN",
            "wpa_supplicant: SET_NETWORK 0 psk \"forklift-7\"", "wpa_supplicant: ENABLE_NETWORK 0",
            "net: event 1 Connecting to network", "net: event 1 Waiting for DHCP IP",
            "udhcpc: start -nR -t 10 -p /tmp/udhcpc.pid -i ra0", "default.script: start deconfig",
            "default.script: deconfig", "udhcpc: discover", "default.script: start bound",
            "default.script: bound interface=ra0 ip=192.168.1.20 subnet=255.255.255.0 "
            "router=192.168.1.1 dns=192.168.1.2",
            "ra0: address 192.168.1.20", "net: event 1 Network is connected"));
    EXPECT_TRUE(connection->isConnectionUp());

    ASSERT_TRUE(connection->netDisconnect());
    EXPECT_TRUE(haveEnded());
    EXPECT_FALSE(terminal.files().exists("/tmp/wpa_supplicant.pid"));
    EXPECT_FALSE(terminal.files().exists(DhcpPidPath) || terminal.wlan().isUp());
    EXPECT_EQ(terminal.wlan().address(), "");
    terminal.programs().failNext("rmmod", 1);
    EXPECT_FALSE(connection->netShutdown()) << "with power, as long as the driver will not go";
    ASSERT_TRUE(connection->netShutdown());
    EXPECT_THAT(takeLines(),
                ElementsAre("net: event 1 Stopping DHCP", "udhcpc: release",
                            "default.script: start deconfig", "default.script: deconfig",
                            "ra0: no address", "net: event 1 Stopping WLAN module", "ra0: down",
                            "net: event 1 Network is shut down", "rmmod: start rt3070sta",
                            "rmmod: start rt3070sta", "rmmod: start ohci-hcd",
                            "pwrctrl: line 7 low", "pwrctrl: line 4 low"));
    EXPECT_TRUE(before.areBack());
    EXPECT_EQ(connection->getLastError(), 0);
}

TEST_F(WlanConnectionTest, AStaticAddressIsSetByTheScriptAndItsVariablesGo) {
    setenv("ip", "ours", 1);
    WLAN_CONNECTION_SETTINGS settings = warehouse();
    settings.ipAddress = inet_addr("10.1.2.3");
    settings.subnetMask = inet_addr("255.255.0.0");
    settings.router = inet_addr("10.1.0.1");
    settings.dns = inet_addr("255.255.255.255");
    use(settings);
    ASSERT_TRUE(connection->netInitialize());
    for (const bool fails : {false, true}) {
        terminal.programs().failNext("default.script", 3, fails ? 1 : 0);
        EXPECT_EQ(connection->netConnect(), !fails);
        const string story = terminal.journal().history("net");
        EXPECT_EQ(story.find("event 2 Failed setting IP address") != string::npos, fails);
        EXPECT_EQ(take("default.script"),
                  fails ? "start bound"
                        : "start bound, bound interface=ra0 ip=10.1.2.3 subnet=255.255.0.0 "
                          "router=10.1.0.1 dns=255.255.255.255");
        for (const char* name : {"interface", "ip", "router", "subnet", "dns"})
            EXPECT_EQ(getenv(name), nullptr) << name;
        EXPECT_TRUE(connection->netDisconnect());
    }
}

TEST_F(WlanConnectionTest, ASecurityTypeSendsItsParametersInOrderAndLeavesEmptyOnesOut) {
    WLAN_CONNECTION_SETTINGS settings;
    settings.ssid = "\"x\"";
    settings.wepKey0 = "\"abcde\"";
    settings.wepKey2 = "0123456789";
    settings.wepTxKeyIndex = 2;
    settings.psk = "\"12345678\"";
    const string set = ", SET_NETWORK 0 ", ssid = ", ADD_NETWORK" + set + "ssid \"x\"";
    const string enable = ", ENABLE_NETWORK 0", none = set + "key_mgmt NONE" + set + "auth_alg ";
    const std::map<int, string, std::greater<>> commands = {
        {WlanConnection::SecurityOfDaemon, " -c/data/wpa_supplicant.conf"},
        {2, ssid + set + "proto WPA" + set + "key_mgmt WPA-PSK" + set + "auth_alg OPEN" + set +
                "psk \"12345678\"" + enable},
        {1, ssid + none + "SHARED" + set + "wep_key0 \"abcde\"" + set + "wep_key2 0123456789" +
                set + "wep_tx_keyidx 2" + enable},
        {0, ssid + none + "OPEN" + enable}};
    terminal.wlan().setNetwork("x", "in the file");
    terminal.files().write("/data/wpa_supplicant.conf",
                           "network={\nssid=\"x\"\nkey_mgmt=WPA-PSK\npsk=\"in the file\"\n}\n");
    for (const auto& [type, sent] : commands) {
        settings.securityType = type;
        use(settings);
        ASSERT_TRUE(connection->netInitialize());
        terminal.journal().clear();
        EXPECT_EQ(connection->netConnect(), type == WlanConnection::SecurityOfDaemon);
        EXPECT_THAT(take("wpa_supplicant"), testing::EndsWith("ctrl" + sent));
        connection->netDisconnect();
        hurry();  // the others do not come up
    }
}

TEST_F(WlanConnectionTest, EveryFailureIsReportedOnceAndLeavesNothingRunning) {
    using Link = WlanConnection;
    const auto failsNext = [&](const char* program) {
        return [this, program] { terminal.programs().failNext(program, 1); };
    };
    const struct {
        bool (Link::*step)();
        int stepsBefore;  // initialized, connected
        const char* error;
        std::function<void()> prepare;
    } cases[] = {
        {&Link::netInitialize, 0, "Failed initializing 802.11 WLAN driver.", failsNext("modprobe")},
        {&Link::netInitialize, 0, "Failed initializing 802.11 WLAN driver.", failsNext("insmod")},
        {&Link::netInitialize, 0, "Failed creating WLAN socket.",
         [&] { terminal.faults().fail("socket", "", EMFILE); }},
        {&Link::netInitialize, 0, "",
         [&] { terminal.wlan().failNext(wlan::GetInterfaceFlags, ENODEV, 20); }},
        {&Link::netConnect, 1, "Failed preparing to enable network interface.",
         [&] { terminal.wlan().failNext(wlan::GetInterfaceFlags, EIO, 1); }},
        {&Link::netConnect, 1, "Failed enabling network interface.",
         [&] { terminal.wlan().failNext(wlan::SetInterfaceFlags, EIO, 1); }},
        {&Link::netConnect, 1, "Failed initializing WPA supplicant.", failsNext("wpa_supplicant")},
        {&Link::netConnect, 1, "Failed to communicate with WPA supplicant.",
         [&] { terminal.faults().fail("connect", "/tmp/wpa_supplicant.ctrl/ra0", ECONNREFUSED); }},
        {&Link::netConnect, 1, "Failed to configure network settings.",
         [&] { terminal.supplicant().onCommand("SET_NETWORK 0 psk", {"die"}); }},
        {&Link::netConnect, 1, "Failed connecting to network.",
         [&] { terminal.wlan().associateAfter({}); }},
        {&Link::netSuspend, 2,
         "Failed disabling networking.Failed disconnecting from network for suspend.",
         [&] { terminal.wlan().failNext(wlan::SetInterfaceFlags, EIO, 1); }},
        {&Link::netSuspend, 2, "Failed stopping WLAN module.", failsNext("rmmod")},
        {&Link::netResume, 0, "Failed re-loading WLAN module on resume.", failsNext("insmod")},
        {&Link::netConnect, 1, "Failed obtaining DHCP IP lease.",
         [&] { terminal.dhcp().setAnswering(false); }}};
    const test::Holdings before;
    for (const auto& tried : cases) {
        SCOPED_TRACE(tried.error);
        use(warehouse());
        hurry();
        ASSERT_TRUE(tried.stepsBefore < 1 || connection->netInitialize());
        ASSERT_TRUE(tried.stepsBefore < 2 || connection->netConnect());
        takeLines();
        tried.prepare();
        EXPECT_FALSE((connection.get()->*tried.step)());
        EXPECT_THAT(terminal.journal().history("pwrctrl"), testing::Not(HasSubstr("low")));
        string told;
        for (const string& line : takeLines())
            told += line.rfind("net: event 2 ", 0) == 0 ? line.substr(13) + "." : "";
        EXPECT_EQ(told, tried.error);
        EXPECT_TRUE(haveEnded());
        terminal.supplicant().clear();
        terminal.wlan().associateAfter(0s);
        EXPECT_TRUE(connection->netShutdown());
        connection.reset();
        EXPECT_TRUE(before.areBack());
    }
}

TEST_F(WlanConnectionTest, SuspendTakesPowerAndResumeBringsTheLinkBackOnceTheInterfaceIsThere) {
    bringUp();
    ASSERT_TRUE(connection->netSuspend());
    const auto lines = takeLines();
    EXPECT_EQ(lines[lines.size() - 2], "pwrctrl: line 4 low");
    EXPECT_EQ(lines.back(), "pwrctrl: line 7 low") << "the other way round than at shutdown";
    terminal.wlan().appearAfter(5s);
    EXPECT_FALSE(connection->netResume());
    EXPECT_EQ(take("net"), "event 1 Starting 802.11 WLAN module, "
                           "event 2 Failed preparing to enable network interface, "
                           "event 2 Failed re-connecting to WLAN network on resume");
    pass(5s);
    EXPECT_TRUE(connection->netResume() && connection->isConnectionUp());
}

TEST_F(WlanConnectionTest, TheDriverIsLoadedWhenALineBeginsWithItsNameAndABlank) {
    for (const string others : {"", "ohci_hcd 1\nrt3070\nrt3070sta2 1\n", "rt3070rt3070sta 1\n",
                                "rtrt3070sta 1\n rt3070sta 1\n", "x rt3070sta 1\nrt3070st\na \n"}) {
        for (const string last : {"", "rt3070sta", "rt3070sta 1 0 - Live"}) {
            terminal.files().write("/proc/modules", others + last);
            EXPECT_EQ(WlanConnection::isModuleLoaded(), last.size() > 9) << others + last;
        }
    }
}

TEST_F(WlanConnectionTest, APidFileNeverLeadsToASignalToTheWrongProcess) {
    const std::string parent = std::to_string(getppid());
    bringUp();
    const string running = terminal.files().read(DhcpPidPath);
    for (const string& text :
         {string(), string("0"), string("1\n"), string("udhcpc"), string("99999999999999999999"),
          string(5000, '7'), std::to_string(getpid()), "-" + running, parent}) {
        terminal.files().write(DhcpPidPath, text);
        EXPECT_TRUE(connection->netDisconnect());
        EXPECT_THAT(take("net"), HasSubstr("event 1 Stopping DHCP")) << text;
        EXPECT_EQ(terminal.programs().running("udhcpc").size(), 1U) << text;
    }
    terminal.files().write(DhcpPidPath, running);
    terminal.programs().signalRunning("udhcpc", SIGSTOP);  // it will not end by itself
    terminal.clock().setSpeed(20);
    EXPECT_GE(simulated([&] { EXPECT_TRUE(connection->netDisconnect()); }), 5s);
    terminal.programs().signalRunning("udhcpc", SIGCONT);
}

TEST_F(WlanConnectionTest, TheNetworkIsToldWithChannelSignalAndAddresses) {
    const struct {
        int32_t mantissa;
        int16_t exponent;
        int channel;
    } frequencies[] = {{2412, 6, 1}, {241200000, 1, 1}, {2484, 6, 14},     {5180, 6, 0},
                       {2415, 6, 2}, {0, 32767, 0},     {2412, -32768, 0}, {INT32_MIN, 6, 0}};
    bringUp();
    EXPECT_EQ(info().networkName + " " + info().ipAddress, "Warehouse 192.168.1.20");
    for (const auto& tried : frequencies) {
        terminal.wlan().setFrequency(tried.mantissa, tried.exponent);
        EXPECT_EQ(info().channel, tried.channel) << tried.mantissa << "e" << tried.exponent;
    }
    for (const auto& [level, quality] : std::map<int, int>{
             {-56, 99}, {-57, 79}, {-67, 59}, {-71, 39}, {-81, 19}, {-90, 0}, {-128, 0}}) {
        terminal.wlan().setSignal(level);
        EXPECT_EQ(info().signalQuality, quality) << level;
    }
    terminal.wlan().claimEssid(string(500, 'x'), 65535);  // stays within its buffer
    EXPECT_EQ(connection->ifaceGetEssid(), string(64, 'x'));
    for (const unsigned request : {wlan::GetFrequency, wlan::GetStatistics}) {
        GENERIC_NETWORK_INFO told;
        terminal.wlan().failNext(request, EIO);
        EXPECT_FALSE(connection->getNetworkInfo(told)) << request;
    }
    terminal.wlan().setNetwork("Elsewhere", "");
    EXPECT_EQ(info().connected, 0);
    EXPECT_FALSE(connection->isConnectionUp());
    for (const char* configured : {"\"Warehouse", "\"", "warehouse", ""})
        EXPECT_FALSE(connection->matchSSID(configured)) << configured;
    EXPECT_TRUE(connection->matchSSID("Warehouse"));
}

TEST_F(WlanConnectionTest, AWorkerStoppedAmidItsWaitsLeavesNoProcessDescriptorOrVariable) {
    const test::EventThread events;
    const test::NotingWindow newest(terminal.journal());
    GuiLibrary::postKey(28, true);  // its thread has come up, with what it opens for itself
    ASSERT_TRUE(await("app: key 28"));
    for (const char* step : {"event 1 Waiting for DHCP IP", "event 1 Connecting to network"}) {
        const test::Holdings before;
        use(warehouse());
        ASSERT_TRUE(connection->initialize());
        terminal.dhcp().setAnswering(false);
        ASSERT_TRUE(connection->connect() && await(step));
        terminal.journal().clear();
        terminal.clock().setSpeed(50);
        EXPECT_TRUE(connection->disconnect()) << step;
        terminal.clock().setSpeed(1);
        EXPECT_TRUE(haveEnded()) << step;
        EXPECT_TRUE(connection->shutdown());
        EXPECT_EQ(getenv("interface"), nullptr);
        EXPECT_TRUE(before.areBack()) << step;
        terminal.wlan().associateAfter({});
    }
}

}  // namespace
