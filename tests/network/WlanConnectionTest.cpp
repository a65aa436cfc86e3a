#include "network/WlanConnection.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
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
    WLAN_CONNECTION_SETTINGS settings = warehouse();
    settings.ipAddress = inet_addr("10.1.2.3");
    settings.subnetMask = inet_addr("255.255.0.0");
    settings.router = inet_addr("10.1.0.1");
    settings.dns = inet_addr("255.255.255.255");
    use(settings);
    ASSERT_TRUE(connection->netInitialize());
    for (const bool fails : {false, true}) {
        terminal.journal().clear();
        terminal.programs().failNext("default.script", 3, fails ? 1 : 0);
        EXPECT_EQ(connection->netConnect(), !fails);
        EXPECT_EQ(reports.has("error Failed setting IP address"), fails);
        EXPECT_EQ(take("default.script"),
                  fails ? "start bound"
                        : "start bound, bound interface=ra0 ip=10.1.2.3 subnet=255.255.0.0 "
                          "router=10.1.0.1 dns=255.255.255.255");
        EXPECT_EQ(getenv("ip"), original + 3) << "the very entry";
        for (const char* name : {"interface", "router", "subnet", "dns"})
            EXPECT_EQ(getenv(name), nullptr) << name;
        EXPECT_TRUE(connection->netDisconnect());
    }
    unsetenv("ip");
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
    const string commands[] = {ssid + none + "OPEN" + enable,
                               ssid + none + "SHARED" + set + "wep_key0 \"abcde\"" + set +
                                   "wep_key2 0123456789" + set + "wep_tx_keyidx 2" + enable,
                               ssid + set + "proto WPA" + set + "key_mgmt WPA-PSK" + set +
                                   "auth_alg OPEN" + set + "psk \"12345678\"" + enable};
    terminal.wlan().associateAfter({});
    hurry();
    for (int type = 0; type < 3; ++type) {
        settings.securityType = type;
        use(settings);
        ASSERT_TRUE(connection->netInitialize());
        terminal.journal().clear();
        EXPECT_FALSE(connection->netConnect());
        EXPECT_THAT(take("wpa_supplicant"), testing::EndsWith("ctrl" + commands[type]));
    }
}

TEST_F(WlanConnectionTest, EveryFailureIsReportedOnceAndLeavesNothingRunning) {
    const struct {
        const char* error;
        std::function<void()> prepare;
    } cases[] = {
        {"Failed preparing to enable network interface",
         [&] { terminal.wlan().failNext(wlan::GetInterfaceFlags, EIO, 1); }},
        {"Failed enabling network interface",
         [&] { terminal.wlan().failNext(wlan::SetInterfaceFlags, EIO, 1); }},
        {"Failed initializing WPA supplicant",
         [&] { terminal.programs().failNext("wpa_supplicant", 255); }},
        {"Failed to communicate with WPA supplicant",
         [&] { terminal.faults().fail("connect", "/tmp/wpa_supplicant.ctrl/ra0", ECONNREFUSED); }},
        {"Failed to configure network settings",
         [&] { terminal.supplicant().onCommand("SET_NETWORK 0 psk", {"die"}); }},
        {"Failed connecting to network", [&] { terminal.wlan().associateAfter({}); }},
        {"Failed obtaining DHCP IP lease", [&] { terminal.dhcp().setAnswering(false); }},
    };
    const long descriptors = test::openDescriptors();
    for (const auto& tried : cases) {
        SCOPED_TRACE(tried.error);
        use(warehouse());
        hurry();
        ASSERT_TRUE(connection->netInitialize());
        tried.prepare();
        EXPECT_FALSE(connection->netConnect());
        string errors;
        for (const string& line : reports.take())
            errors += line[0] == 'e' ? line : "";
        EXPECT_EQ(errors, string("error ") + tried.error);
        EXPECT_TRUE(haveEnded());
        terminal.supplicant().clear();
        terminal.wlan().associateAfter(0s);
        EXPECT_TRUE(connection->netShutdown());
        connection.reset();
        EXPECT_TRUE(hasDescriptors(descriptors));
    }
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
}

TEST_F(WlanConnectionTest, APidFileNeverLeadsToASignalToTheWrongProcess) {
    const std::string parent = std::to_string(getppid());
    bringUp();
    const string running = terminal.files().read(DhcpPidPath);
    for (const string& text :
         {string(), string("0"), string("1\n"), string("udhcpc"), string("99999999999999999999"),
          string(5000, '7'), std::to_string(getpid()), "-" + running, parent}) {
        terminal.files().write(DhcpPidPath, text);
        reports.take();
        EXPECT_TRUE(connection->netDisconnect());
        EXPECT_THAT(reports.take(), Contains("status Stopping DHCP")) << text;
        EXPECT_EQ(terminal.programs().running("udhcpc").size(), 1U) << text;
    }
    terminal.files().write(DhcpPidPath, running);
    terminal.programs().signalRunning("udhcpc", SIGSTOP);  // it will not end by itself
    terminal.clock().setSpeed(20);
    const auto begin = terminal.clock().monotonic();
    EXPECT_TRUE(connection->netDisconnect());
    EXPECT_GE(terminal.clock().monotonic() - begin, 5s);
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
    terminal.wlan().setNetwork("Elsewhere", "");
    EXPECT_EQ(info().connected, 0);
    EXPECT_FALSE(connection->isConnectionUp());
    for (const char* configured : {"\"Warehouse", "\"", "warehouse", ""})
        EXPECT_FALSE(connection->matchSSID(configured)) << configured;
    EXPECT_TRUE(connection->matchSSID("Warehouse"));
}

TEST_F(WlanConnectionTest, AWorkerStoppedInAnyStepLeavesNoProcessDescriptorOrVariable) {
    const test::EventThread events;
    GuiLibrary::postKey(28, true);  // its thread has come up, with what it opens for itself
    ASSERT_NE(terminal.journal().await("app: key 28", 0, test::HostLimit), 0U);
    for (const char* step : {"status Waiting for DHCP IP", "status Connecting to network"}) {
        const long descriptors = test::openDescriptors();
        use(warehouse());
        ASSERT_TRUE(connection->initialize());
        terminal.dhcp().setAnswering(false);
        ASSERT_TRUE(connection->connect());
        ASSERT_TRUE(test::soon([&] { return reports.has(step); }));
        terminal.clock().setSpeed(50);
        EXPECT_TRUE(connection->disconnect()) << step;
        terminal.clock().setSpeed(1);
        EXPECT_TRUE(haveEnded()) << step;
        EXPECT_TRUE(connection->shutdown());
        EXPECT_EQ(getenv("interface"), nullptr);
        EXPECT_TRUE(hasDescriptors(descriptors)) << step;
        terminal.wlan().associateAfter({});
    }
}

}  // namespace
