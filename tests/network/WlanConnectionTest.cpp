#include "network/WlanConnection.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/Thread.h"
#include "network/WlanProtocol.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
using testing::Contains;
using testing::ElementsAre;
using namespace std::chrono_literals;

constexpr char SupplicantPidPath[] = "/tmp/wpa_supplicant.pid";
constexpr char DhcpPidPath[] = "/tmp/udhcpc.pid";

/// What a connection reports, as one text: "status Connecting to network".
class Reports : public NetworkEventListener {
public:
    void networkEvent(NetworkEvent event) override { note("event " + std::to_string(event)); }
    void signalQuality(int percent) override { note("signal " + std::to_string(percent)); }
    void errorMessage(const char* text) override { note(string("error ") + text); }
    void statusMessage(const char* text) override { note(string("status ") + text); }

    std::vector<string> take() {
        const std::lock_guard<std::mutex> held(mutex);
        return std::move(lines);
    }
    bool has(const string& line) {
        const std::lock_guard<std::mutex> held(mutex);
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    /// Called with each line before it is noted; null for nothing any more.
    void onLine(std::function<void(const string&)> newReaction) {
        const std::lock_guard<std::mutex> held(mutex);
        reaction = std::move(newReaction);
    }

private:
    void note(const string& line) {
        const std::lock_guard<std::mutex> held(mutex);
        if (reaction)
            reaction(line);
        lines.push_back(line);
    }

    std::mutex mutex;
    std::function<void(const string&)> reaction;
    std::vector<string> lines;
};

WLAN_CONNECTION_SETTINGS warehouse() {
    WLAN_CONNECTION_SETTINGS settings;
    settings.ssid = "\"Warehouse\"";
    settings.securityType = WlanConnection::SecurityWpa2;
    settings.psk = "\"forklift-7\"";
    return settings;
}

WLAN_CONNECTION_SETTINGS withStaticAddress() {
    WLAN_CONNECTION_SETTINGS settings = warehouse();
    settings.ipAddress = inet_addr("10.1.2.3");
    settings.subnetMask = inet_addr("255.255.0.0");
    settings.router = inet_addr("10.1.0.1");
    settings.dns = inet_addr("255.255.255.255");
    return settings;
}

class WlanConnectionTest : public test::PoweredTest {
protected:
    WlanConnectionTest() {
        terminal.wlan().appearAfter(0s);
        terminal.wlan().associateAfter(0s);
    }

    void use(const WLAN_CONNECTION_SETTINGS& settings) {
        connection = std::make_unique<WlanConnection>(settings);
        connection->addListener(&reports);
        reports.take();
    }

    /// Initialized and connected with the usual settings.
    void bringUp() {
        use(warehouse());
        ASSERT_TRUE(connection->netInitialize());
        ASSERT_TRUE(connection->netConnect());
        reports.take();
        terminal.journal().clear();
    }

    /// Time passes fast from the moment a text is reported.
    void hurryFrom(const string& line, double speed = 100) {
        reports.onLine([=](const string& reported) {
            if (reported == line)
                terminal.clock().setSpeed(speed);
        });
    }

    /// Time passes as fast as each step allows: what answers at once may take half a second of the
    /// host's time.
    void hurry() {
        constexpr struct {
            const char* line;
            double speed;
        } Speeds[] = {{"status Loading 802.11 WLAN driver", 20},
                      {"status Starting WPA supplicant", 4},
                      {"status Connecting to network", 100},
                      {"status Stopping DHCP", 10},
                      {"status Stopping WLAN module", 10}};
        reports.onLine([=](const string& reported) {
            for (const auto& step : Speeds) {
                if (reported == step.line)
                    terminal.clock().setSpeed(step.speed);
            }
        });
    }

    /// What has happened to the devices and programs.
    std::vector<string> takeLines() {
        std::vector<string> lines = PoweredTest::takeLines();
        const auto isApplications = [](const string& line) { return line[0] == 'a'; };
        lines.erase(std::remove_if(lines.begin(), lines.end(), isApplications), lines.end());
        return lines;
    }

    /// The door to the terminal closes a moment after the program that has used it.
    static bool hasDescriptors(long count) {
        return test::soon([=] { return test::openDescriptors() == count; });
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

    Reports reports;
    std::unique_ptr<WlanConnection> connection;
};

TEST_F(WlanConnectionTest, ALinkComesUpByDhcpAndIsTakenDownInTheStatedOrder) {
    const long descriptors = test::openDescriptors();
    use(warehouse());
    EXPECT_FALSE(connection->isConnectionUp()) << "before there is a socket";
    ASSERT_TRUE(connection->netInitialize());
    EXPECT_THAT(reports.take(), ElementsAre("status Loading 802.11 WLAN driver"));
    EXPECT_THAT(takeLines(), ElementsAre("pwrctrl: line 4 high", "pwrctrl: line 7 high",
                                         "modprobe: start ohci-hcd",
                                         "insmod: start /lib/modules/wireless/rt3070sta.ko"));
    ASSERT_TRUE(connection->netConnect());
    EXPECT_THAT(reports.take(),
                ElementsAre("status Starting 802.11 WLAN module", "status Starting WPA supplicant",
                            "status Configuring network", "status Connecting to network",
                            "status Waiting for DHCP IP", "status Network is connected"));
    EXPECT_THAT(
        takeLines(),
        ElementsAre(
            "ra0: up",
            "wpa_supplicant: start -B -Dwext -ira0 -P/tmp/wpa_supplicant.pid "
            "-C/tmp/wpa_supplicant.ctrl",
            "wpa_supplicant: ADD_NETWORK", "wpa_supplicant: SET_NETWORK 0 ssid \"Warehouse\"",
            "wpa_supplicant: SET_NETWORK 0 proto WPA2",
            "wpa_supplicant: SET_NETWORK 0 key_mgmt WPA-PSK",
            "wpa_supplicant: SET_NETWORK 0 auth_alg OPEN",
            "wpa_supplicant: SET_NETWORK 0 psk \"forklift-7\"", "wpa_supplicant: ENABLE_NETWORK 0",
            "udhcpc: start -nR -t 10 -p /tmp/udhcpc.pid -i ra0", "default.script: start deconfig",
            "default.script: deconfig", "udhcpc: discover", "default.script: start bound",
            "default.script: bound interface=ra0 ip=192.168.1.20 subnet=255.255.255.0 "
            "router=192.168.1.1 dns=192.168.1.2",
            "ra0: address 192.168.1.20"));
    EXPECT_TRUE(connection->isConnectionUp());

    ASSERT_TRUE(connection->netDisconnect());
    EXPECT_THAT(reports.take(), ElementsAre("status Stopping DHCP", "status Stopping WLAN module",
                                            "status Network is shut down"));
    EXPECT_TRUE(haveEnded());
    EXPECT_FALSE(terminal.files().exists(SupplicantPidPath));
    EXPECT_FALSE(terminal.files().exists(DhcpPidPath));
    EXPECT_FALSE(terminal.wlan().isUp());
    EXPECT_EQ(terminal.wlan().address(), "");
    ASSERT_TRUE(connection->netShutdown());
    EXPECT_THAT(takeLines(), ElementsAre("udhcpc: release", "default.script: start deconfig",
                                         "default.script: deconfig", "ra0: no address", "ra0: down",
                                         "rmmod: start rt3070sta", "rmmod: start ohci-hcd",
                                         "pwrctrl: line 7 low", "pwrctrl: line 4 low"));
    EXPECT_TRUE(hasDescriptors(descriptors));
    EXPECT_EQ(connection->getLastError(), 0);
}

TEST_F(WlanConnectionTest, AStaticAddressIsSetByTheScriptAndTheEnvironmentIsAsItWas) {
    char original[] = "ip=ours";
    putenv(original);
    setenv("router", "also ours", 1);
    use(withStaticAddress());
    ASSERT_TRUE(connection->netInitialize());
    terminal.journal().clear();
    for (const bool fails : {false, true}) {
        terminal.programs().failNext("default.script", 3, fails ? 1 : 0);
        EXPECT_EQ(connection->netConnect(), !fails);
        EXPECT_EQ(reports.has("error Failed setting IP address"), fails);
        EXPECT_THAT(reports.take(), Contains("status Setting IP address"));
        EXPECT_EQ(take("default.script"),
                  fails ? "start bound"
                        : "start bound, bound interface=ra0 ip=10.1.2.3 subnet=255.255.0.0 "
                          "router=10.1.0.1 dns=255.255.255.255");
        EXPECT_EQ(getenv("ip"), original + 3) << "the very entry";
        EXPECT_STREQ(getenv("router"), "also ours");
        for (const char* name : {"interface", "subnet", "dns"})
            EXPECT_EQ(getenv(name), nullptr) << name;
        EXPECT_TRUE(connection->netDisconnect());
        terminal.journal().clear();
    }
    EXPECT_TRUE(haveEnded());
    unsetenv("ip");
    unsetenv("router");
}

TEST_F(WlanConnectionTest, EverySecurityTypeSendsItsParametersInOrderAndLeavesEmptyOnesOut) {
    WLAN_CONNECTION_SETTINGS settings;
    settings.ssid = "\"x\"";
    settings.wepKey0 = "\"abcde\"";
    settings.wepKey2 = "0123456789";
    settings.wepTxKeyIndex = 2;
    settings.psk = "\"12345678\"";
    const string add = "ADD_NETWORK, SET_NETWORK 0 ssid \"x\", ";
    const string enable = "ENABLE_NETWORK 0";
    const auto set = [](const char* parameter) {
        return string("SET_NETWORK 0 ") + parameter + ", ";
    };
    const string wpa = set("key_mgmt WPA-PSK") + set("auth_alg OPEN") + set("psk \"12345678\"");
    const struct {
        int type;
        string commands;
    } cases[] = {
        {0, add + set("key_mgmt NONE") + set("auth_alg OPEN") + enable},
        {1, add + set("key_mgmt NONE") + set("auth_alg SHARED") + set("wep_key0 \"abcde\"") +
                set("wep_key2 0123456789") + set("wep_tx_keyidx 2") + enable},
        {2, add + set("proto WPA") + wpa + enable},
        {3, add + set("proto WPA2") + wpa + enable},
        {4, ""},
        {5, add + enable},
        {-1, add + enable},
    };
    terminal.wlan().associateAfter({});
    hurry();
    terminal.files().write("/data/wpa_supplicant.conf", "");
    for (const auto& tried : cases) {
        settings.securityType = tried.type;
        use(settings);
        ASSERT_TRUE(connection->netInitialize());
        terminal.journal().clear();
        EXPECT_FALSE(connection->netConnect());
        string history = take("wpa_supplicant");
        const bool namesFile = history.find(" -c/data/wpa_supplicant.conf") != string::npos;
        EXPECT_EQ(namesFile, tried.type == 4);
        const size_t end = history.find(", ");
        EXPECT_EQ(end == string::npos ? "" : history.substr(end + 2), tried.commands);
    }
}

TEST_F(WlanConnectionTest, TheDaemonsOwnFileServesInPlaceOfCommands) {
    WLAN_CONNECTION_SETTINGS settings = warehouse();
    settings.securityType = WlanConnection::SecurityOfDaemon;
    use(settings);
    ASSERT_TRUE(connection->netInitialize());
    EXPECT_FALSE(connection->netConnect()) << "without the file";
    EXPECT_THAT(reports.take(), Contains("error Failed initializing WPA supplicant"));
    terminal.files().write("/data/wpa_supplicant.conf",
                           "ctrl_interface=/var/run\nnetwork={\n\tssid=\"Warehouse\"\n"
                           "\tkey_mgmt=WPA-PSK\n\tpsk=\"forklift-7\"\n}\n");
    EXPECT_TRUE(connection->netConnect());
    EXPECT_TRUE(connection->netDisconnect());
}

TEST_F(WlanConnectionTest, EveryFailureIsReportedOnceAndLeavesNothingRunning) {
    const auto failing = [this](unsigned request, int which) {
        return [=] { terminal.wlan().failNext(request, EIO, which); };
    };
    const struct {
        const char* error;  // null: none
        bool whileInitializing;
        std::function<void()> prepare;
    } cases[] = {
        {"Failed initializing 802.11 WLAN driver", true,
         [&] { terminal.programs().failNext("modprobe", 1); }},
        {"Failed initializing 802.11 WLAN driver", true,
         [&] { terminal.programs().crashNext("insmod", SIGKILL); }},
        {"Failed initializing 802.11 WLAN driver", true,
         [&] { terminal.faults().fail("system", "", EAGAIN); }},
        {"Failed creating WLAN socket", true,
         [&] { terminal.faults().fail("socket", "", ENFILE); }},
        {nullptr, true, [&] { failing(wlan::GetInterfaceFlags, 1000)(); }},
        {"Failed preparing to enable network interface", false,
         failing(wlan::GetInterfaceFlags, 1)},
        {"Failed enabling network interface", false, failing(wlan::SetInterfaceFlags, 1)},
        {"Failed initializing WPA supplicant", false,
         [&] { terminal.programs().failNext("wpa_supplicant", 255); }},
        {"Failed initializing WPA supplicant", false,
         [&] { terminal.programs().crashNext("wpa_supplicant", SIGTERM); }},
        {"Failed to communicate with WPA supplicant", false,
         [&] { terminal.faults().fail("connect", "/tmp/wpa_supplicant.ctrl/ra0", ECONNREFUSED); }},
        {"Failed to configure network settings", false,
         [&] { terminal.supplicant().onCommand("ADD_NETWORK", {}); }},
        {"Failed to configure network settings", false,
         [&] { terminal.supplicant().onCommand("SET_NETWORK 0 psk", {"answer FAIL\n"}); }},
        {"Failed to configure network settings", false,
         [&] { terminal.supplicant().onCommand("SET_NETWORK 0 psk", {"die"}); }},
        {"Failed to configure network settings", false,
         [&] { terminal.supplicant().onCommand("ENABLE_NETWORK", {}); }},
        {"Failed connecting to network", false, [&] { terminal.wlan().associateAfter({}); }},
        {"Failed obtaining DHCP IP lease", false, [&] { terminal.dhcp().setAnswering(false); }},
        {"Failed obtaining DHCP IP lease", false,
         [&] { terminal.programs().setMissing("udhcpc", true); }},
    };
    const long descriptors = test::openDescriptors();
    const auto mend = [this] {
        terminal.clock().setSpeed(10);
        terminal.faults().clear();
        terminal.supplicant().clear();
        terminal.dhcp().setAnswering(true);
        terminal.wlan().associateAfter(0s);
        terminal.programs().setMissing("udhcpc", false);
        for (const unsigned request : {wlan::GetInterfaceFlags, wlan::SetInterfaceFlags})
            terminal.wlan().failNext(request, 0, 0);
    };
    for (const auto& tried : cases) {
        SCOPED_TRACE(tried.error ? tried.error : "no interface");
        use(warehouse());
        hurry();
        if (!tried.whileInitializing) {
            ASSERT_TRUE(connection->netInitialize());
            EXPECT_FALSE(connection->isConnectionUp());
        }
        tried.prepare();
        EXPECT_FALSE(tried.whileInitializing ? connection->netInitialize()
                                             : connection->netConnect());
        std::vector<string> errors = reports.take();
        errors.erase(std::remove_if(errors.begin(), errors.end(),
                                    [](const string& line) { return line[0] != 'e'; }),
                     errors.end());
        if (tried.error)
            EXPECT_THAT(errors, ElementsAre(string("error ") + tried.error));
        else
            EXPECT_THAT(errors, ElementsAre());
        EXPECT_TRUE(haveEnded());
        mend();
        EXPECT_TRUE(connection->netInitialize()) << "once it is mended";
        EXPECT_TRUE(tried.whileInitializing ||
                    (connection->netConnect() && connection->netDisconnect()));
        EXPECT_TRUE(connection->netShutdown());
        connection.reset();
        EXPECT_TRUE(hasDescriptors(descriptors));
    }
}

TEST_F(WlanConnectionTest, TakingTheLinkDownFailsWithTheInterfaceAndTheDriver) {
    bringUp();
    terminal.wlan().failNext(wlan::GetInterfaceFlags, EIO);
    EXPECT_FALSE(connection->netDisconnect());
    EXPECT_THAT(reports.take(), Contains("error Failed preparing to disable networking"));
    EXPECT_TRUE(haveEnded()) << "they went before";
    terminal.wlan().failNext(wlan::SetInterfaceFlags, EIO);
    EXPECT_FALSE(connection->netSuspend());
    EXPECT_THAT(reports.take(),
                ElementsAre("status Stopping WLAN module", "error Failed disabling networking",
                            "error Failed disconnecting from network for suspend"));
    terminal.programs().failNext("rmmod", 1);
    EXPECT_FALSE(connection->netSuspend());
    EXPECT_THAT(reports.take(), Contains("error Failed stopping WLAN module"));
    terminal.programs().failNext("rmmod", 1);
    EXPECT_FALSE(connection->netShutdown());
    EXPECT_EQ(terminal.powerControl().line(4), 1) << "powered as long as the driver stays";
    EXPECT_TRUE(connection->netShutdown());
    EXPECT_FALSE(connection->isConnectionUp());
    EXPECT_EQ(connection->ifaceGetEssid(), "");
}

TEST_F(WlanConnectionTest, SuspendTakesPowerAndResumeBringsTheLinkBackOnceTheInterfaceIsThere) {
    bringUp();
    ASSERT_TRUE(connection->netSuspend());
    const auto lines = takeLines();
    EXPECT_EQ(lines[lines.size() - 2], "pwrctrl: line 4 low");
    EXPECT_EQ(lines.back(), "pwrctrl: line 7 low") << "the other way round than at shutdown";
    terminal.wlan().appearAfter(5s);
    reports.take();
    EXPECT_FALSE(connection->netResume());
    EXPECT_THAT(reports.take(),
                ElementsAre("status Starting 802.11 WLAN module",
                            "error Failed preparing to enable network interface",
                            "error Failed re-connecting to WLAN network on resume"));
    pass(5s);
    EXPECT_TRUE(connection->netResume());
    EXPECT_TRUE(connection->isConnectionUp());
    EXPECT_TRUE(connection->netSuspend());
    terminal.programs().failNext("insmod", 1);
    EXPECT_FALSE(connection->netResume());
    EXPECT_THAT(reports.take(), Contains("error Failed re-loading WLAN module on resume"));
}

TEST_F(WlanConnectionTest, APidFileNeverLeadsToASignalToTheWrongProcess) {
    const std::string parent = std::to_string(getppid());
    bringUp();
    const string running = terminal.files().read(DhcpPidPath);
    for (const string& text :
         {string(), string("0"), string("-1"), string("1\n"), string("-"), string("udhcpc"),
          string("\0\0\0", 3), string("99999999999999999999"), string(5000, '7'),
          std::to_string(getpid()), "-" + running, string("2147483647"), parent}) {
        terminal.files().write(DhcpPidPath, text);
        reports.take();
        EXPECT_TRUE(connection->netDisconnect());
        EXPECT_THAT(reports.take(), Contains("status Stopping DHCP")) << text;
        EXPECT_EQ(terminal.programs().running("udhcpc").size(), 1U) << text;
    }
    terminal.files().write(DhcpPidPath, running);
    EXPECT_TRUE(connection->netDisconnect());
    EXPECT_TRUE(haveEnded());
}

TEST_F(WlanConnectionTest, AClientThatWillNotEndIsWaitedForFiveSeconds) {
    bringUp();
    terminal.programs().signalRunning("udhcpc", SIGSTOP);
    terminal.clock().setSpeed(20);
    const auto begin = terminal.clock().monotonic();
    EXPECT_TRUE(connection->netDisconnect());
    EXPECT_GE(terminal.clock().monotonic() - begin, 5s);
    EXPECT_LT(terminal.clock().monotonic() - begin, 60s);
    terminal.programs().signalRunning("udhcpc", SIGCONT);
}

TEST_F(WlanConnectionTest, TheConfiguredNameMatchesWithOrWithoutItsQuotes) {
    const struct {
        const char *configured, *associated;
        bool matches;
    } cases[] = {
        {"Warehouse", "Warehouse", true},
        {"\"Warehouse\"", "Warehouse", true},
        {"\"Warehouse\"", "warehouse", false},
        {"\"Warehouse", "Warehouse", false},
        {"\"Warehouse", "\"Warehouse", true},
        {"\"", "\"", true},
        {"\"", "", false},
        {"\"\"", "", true},
        {"", "", true},
        {"\"\"a\"\"", "\"a\"", true},
        {"a", "ab", false},
        {"a", nullptr, false},
    };
    for (const auto& tried : cases) {
        WLAN_CONNECTION_SETTINGS settings;
        settings.ssid = tried.configured;
        use(settings);
        EXPECT_EQ(connection->matchSSID(tried.associated), tried.matches) << tried.configured;
    }
}

TEST_F(WlanConnectionTest, TheNetworkIsToldWithChannelSignalAndAddresses) {
    const struct {
        int32_t mantissa;
        int16_t exponent;
        int channel;
    } frequencies[] = {
        {2412, 6, 1},     {241200000, 1, 1}, {2484, 6, 14}, {5180, 6, 0},      {2410, 6, 1},
        {2414, 6, 1},     {2415, 6, 2},      {2427, 6, 4},  {2469, 6, 12},     {2470, 6, 13},
        {2477, 6, 13},    {2478, 6, 14},     {2489, 6, 14}, {2490, 6, 0},      {2409, 6, 0},
        {24095, 5, 1},    {24094, 5, 0},     {2412, 0, 0},  {6, 0, 0},         {0, 32767, 0},
        {2412, 32767, 0}, {2412, -32768, 0}, {-2412, 6, 0}, {INT32_MIN, 6, 0},
    };
    const struct {
        int level, quality;
    } signals[] = {{-56, 99}, {-57, 79}, {-66, 79}, {-67, 59}, {-70, 59}, {-71, 39}, {-80, 39},
                   {-81, 19}, {-89, 19}, {-90, 0},  {127, 99}, {-128, 0}, {0, 99}};
    bringUp();
    GENERIC_NETWORK_INFO told = info();
    EXPECT_NE(told.connected, 0);
    EXPECT_EQ(told.networkName, "Warehouse");
    EXPECT_EQ(told.ipAddress, "192.168.1.20");
    EXPECT_EQ(told.macAddress, "00:0C:43:30:70:A0");
    for (const auto& tried : frequencies) {
        terminal.wlan().setFrequency(tried.mantissa, tried.exponent);
        EXPECT_EQ(info().channel, tried.channel) << tried.mantissa << "e" << tried.exponent;
    }
    for (const auto& tried : signals) {
        terminal.wlan().setSignal(tried.level);
        EXPECT_EQ(info().signalQuality, tried.quality) << tried.level;
    }
    for (const unsigned request : {wlan::GetFrequency, wlan::GetStatistics}) {
        terminal.wlan().failNext(request, EIO);
        EXPECT_FALSE(connection->getNetworkInfo(told));
    }
    terminal.wlan().failNext(wlan::GetInterfaceAddress, EIO);
    EXPECT_EQ(info().ipAddress, "");
    terminal.wlan().setNetwork("Elsewhere", "");
    EXPECT_EQ(info().connected, 0);
    EXPECT_FALSE(connection->isConnectionUp());
}

TEST_F(WlanConnectionTest, AnOddNameFromTheDriverStaysWithinItsBuffer) {
    bringUp();
    const struct {
        string bytes;
        uint16_t length;
        string name;
    } cases[] = {
        {"Warehouse", 9, "Warehouse"},
        {"Warehouse", 5, "Wareh"},
        {string("Warehouse\0x", 11), 11, "Warehouse"},
        {string(64, 'x'), 64, string(64, 'x')},
        {string(500, 'x'), 65535, string(64, 'x')},
        {"", 64, ""},
        {"Warehouse", 0, ""},
    };
    for (const auto& tried : cases) {
        terminal.wlan().claimEssid(tried.bytes, tried.length);
        EXPECT_EQ(connection->ifaceGetEssid(), tried.name);
    }
    terminal.wlan().failNext(wlan::GetEssid, EIO);
    EXPECT_EQ(connection->ifaceGetEssid(), "");
}

TEST_F(WlanConnectionTest, TheDriverIsLoadedWhenALineOfTheListBeginsWithItsName) {
    const struct {
        string list;
        bool loaded;
    } cases[] = {
        {"rt3070sta 541932 0 - Live 0xbf000000\n", true},
        {"ohci_hcd 1 0\nrt3070sta ", true},
        {"rt3070sta", false},
        {"rt3070sta\n", false},
        {"rt3070sta\t1\n", false},
        {"rt3070sta2 1\n", false},
        {" rt3070sta 1\n", false},
        {"x rt3070sta 1\n", false},
        {string(4096, 'x') + "rt3070sta 1\n", false},
        {string(100000, 'x') + "\nrt3070sta 1\n", true},
        {string("\0\nrt3070sta 1\n", 14), true},
        {"rt3070sta\r 1\n\n\nrt3070st", false},
        {"", false},
    };
    for (const auto& tried : cases) {
        terminal.files().write("/proc/modules", tried.list);
        EXPECT_EQ(WlanConnection::isModuleLoaded(), tried.loaded) << tried.list.substr(0, 60);
    }
    terminal.files().remove("/proc/modules");
    EXPECT_FALSE(WlanConnection::isModuleLoaded());
}

TEST_F(WlanConnectionTest, ADriverThatIsThereIsNotLoadedAgainNorOneThatIsNotUnloaded) {
    use(warehouse());
    EXPECT_TRUE(connection->unloadWlanModule());
    EXPECT_TRUE(connection->loadWlanModule());
    takeLines();
    EXPECT_TRUE(connection->loadWlanModule());
    EXPECT_THAT(takeLines(), ElementsAre());
    terminal.programs().failNext("rmmod", 1);
    EXPECT_FALSE(connection->unloadWlanModule());
    EXPECT_THAT(takeLines(), ElementsAre("rmmod: start rt3070sta"));
    EXPECT_TRUE(connection->unloadWlanModule());
}

TEST_F(WlanConnectionTest, ALongCommandToTheDaemonIsCutAndNothingIsSentWithoutAConnection) {
    use(warehouse());
    string reply = "as before";
    EXPECT_FALSE(connection->wpaControlRequest("PING", reply));
    EXPECT_EQ(reply, "as before");
    EXPECT_FALSE(connection->configureNetwork());
    bringUp();
    EXPECT_TRUE(connection->wpaControlRequest("PING", reply));
    EXPECT_EQ(reply, "PON") << "three bytes of it";
    EXPECT_FALSE(connection->wpaControlRequest(nullptr, reply));
    const string command = "SET_NETWORK 7 ssid " + string(400, 'x');
    terminal.journal().clear();
    EXPECT_FALSE(connection->wpaSetNetworkParameter(7, "ssid", command.c_str() + 19));
    EXPECT_EQ(take("wpa_supplicant"), command.substr(0, 255));
    terminal.supplicant().onCommand("PING", {"events 3 1", "answer "});
    EXPECT_TRUE(connection->wpaControlRequest("PING", reply));
    EXPECT_EQ(reply, "") << "an empty reply is one";
    EXPECT_TRUE(connection->netDisconnect());
}

TEST_F(WlanConnectionTest, TheWorkerKeepsALinkThatDropsAndASupplicantThatDies) {
    const test::EventThread events;
    use(warehouse());
    ASSERT_TRUE(connection->initialize());
    ASSERT_TRUE(connection->connect());
    ASSERT_TRUE(test::soon([&] { return reports.has("event 2"); }));
    ASSERT_TRUE(test::soon([&] { return reports.has("signal 99"); }));
    reports.take();

    terminal.clock().setSpeed(20);
    terminal.wlan().setNetwork("", "");
    ASSERT_TRUE(test::soon([&] { return reports.has("event 1"); }));
    reports.take();
    terminal.wlan().setNetwork("Warehouse", "forklift-7");
    ASSERT_TRUE(test::soon([&] { return reports.has("event 2"); }));
    EXPECT_FALSE(reports.has("status Starting WPA supplicant")) << "it came back by itself";

    reports.take();
    terminal.programs().signalRunning("wpa_supplicant", SIGKILL);
    terminal.wlan().leave();
    hurryFrom("status Starting WPA supplicant", 1);
    ASSERT_TRUE(test::soon([&] { return reports.has("event 2"); }));
    EXPECT_TRUE(reports.has("status Starting WPA supplicant")) << "repaired";

    EXPECT_TRUE(connection->disconnect());
    EXPECT_TRUE(connection->shutdown());
    EXPECT_TRUE(haveEnded());
}

TEST_F(WlanConnectionTest, AWorkerStoppedInAnyStepLeavesNoProcessDescriptorOrVariable) {
    const test::EventThread events;
    std::atomic<bool> runs{false};
    window.onKey = [&] { runs = true; };
    GuiLibrary::postKey(28, true);
    ASSERT_TRUE(test::soon([&] { return runs.load(); }));
    const struct {
        const char* step;
        WLAN_CONNECTION_SETTINGS settings;
        std::function<void()> prepare;
    } cases[] = {
        {"status Waiting for DHCP IP", warehouse(), [&] { terminal.dhcp().setAnswering(false); }},
        {"status Connecting to network", warehouse(), [&] { terminal.wlan().associateAfter({}); }},
        {"status Configuring network", warehouse(),
         [&] { terminal.supplicant().onCommand("ADD_NETWORK", {"events 100000 1"}); }},
    };
    for (const auto& tried : cases) {
        const long descriptors = test::openDescriptors();
        use(tried.settings);
        ASSERT_TRUE(connection->initialize());
        tried.prepare();
        ASSERT_TRUE(connection->connect());
        ASSERT_TRUE(test::soon([&] { return reports.has(tried.step); }));
        terminal.clock().setSpeed(50);
        EXPECT_TRUE(connection->disconnect()) << tried.step;
        terminal.clock().setSpeed(1);
        EXPECT_TRUE(haveEnded()) << tried.step;
        EXPECT_TRUE(connection->shutdown());
        EXPECT_EQ(getenv("interface"), nullptr);
        EXPECT_TRUE(hasDescriptors(descriptors)) << tried.step;
        terminal.dhcp().setAnswering(true);
        terminal.wlan().associateAfter(0s);
        reports.take();
    }
}

}  // namespace
