#include "network/GprsConnection.h"

#include "network/NetworkWindow.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using sim::RadioSim;
using sim::Reply;
using std::string;
using test::soon;
using testing::EndsWith;
using testing::HasSubstr;

constexpr char LinePath[] = "/dev/ttyAT1";

const string PoweredUp = "event 1 Powering up GPRS module, ";
const string Initialized = PoweredUp + "event 1 Initializing GPRS module, ";
const string Mux = Initialized + "event 1 Initializing multiplexer, ";
const string Sim = Mux + "event 1 Initializing SIM card, ";
const string Gprs = Sim + "event 1 Initializing GPRS settings, ";
const string Network = Gprs + "event 1 Seeking for network";

/// Exchanges with the module take their own time, so that a busy machine keeps their limits; waits
/// of the system itself pass faster.
constexpr double Exchanging = 1;
constexpr double Waiting = 10;

struct GprsConnectionTest : test::PoweredTest {
    GprsConnectionTest() {
        terminal.clock().setSpeed(Exchanging);
        radio.setAnswerTime(0ms);  // all of the time that an answer has is the machine's
        make("1234");
    }
    ~GprsConnectionTest() override {
        terminal.clock().setSpeed(Waiting);
        link->disconnect();
        link->shutdown();
    }

    void make(const string& pin) {
        GPRS_CONNECTION_SETTINGS settings;
        settings.pin = pin;
        settings.apn = "internet";
        link = std::make_unique<GprsConnection>(settings);
    }

    /// The link's own system events since the last clear().
    string story() { return terminal.journal().history("net"); }
    void clear() { terminal.journal().clear(); }

    sim::RadioModule& radio = terminal.radio();
    std::unique_ptr<GprsConnection> link;
    test::NetworkWindow networkWindow{terminal.journal()};
};

// What the application is told on the way is what the demonstration shows.
TEST_F(GprsConnectionTest, ALinkComesUpIsRepairedSleepsAndIsShutDown) {
    const test::Holdings before;
    ASSERT_TRUE(link->initialize());
    EXPECT_EQ(story(), Network);
    EXPECT_TRUE(radio.isMultiplexing());
    EXPECT_EQ(radio.line().settings(), "115200 8N1 rtscts");
    ASSERT_TRUE(soon([&] { return radio.registration() == 1; }));
    ASSERT_TRUE(link->connect() && await("net: event 4 up"));
    EXPECT_THAT(terminal.journal().history("pppd"),
                HasSubstr("start /dev/ttyp1 nodetach call gprs-data"));
    EXPECT_TRUE(radio.isAttached() && radio.isOnline(2));
    EXPECT_NE(link->getGsmModule()->getVersion(), "") << "the driver works beside the session";

    // The network ends the call: the daemon goes, the link is watched a while, then repaired.
    clear();
    terminal.clock().setSpeed(5);
    radio.dropCall();
    ASSERT_TRUE(await("net: event 4 up"));
    EXPECT_THAT(story(), HasSubstr("event 4 connecting, event 1 GPRS is shut down, event 1 "
                                   "Initializing PPP session, event 1 GPRS is ready, event 4 up"));
    clear();
    EXPECT_FALSE(power().setPowerMode(POWER_SUSPEND)) << "the link comes first";
    ASSERT_TRUE(await("net: event 4 down"));
    EXPECT_TRUE(!terminal.ppp().isRunning() && radio.isMultiplexing());
    terminal.clock().setSpeed(Exchanging);
    EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
    EXPECT_EQ(terminal.power().suspends(), 1);
    clear();
    radio.setSignal(-82);
    EXPECT_TRUE(power().setPowerMode(POWER_ON) && await("net: event 4 up"));
    EXPECT_THAT(story(), HasSubstr("event 4 connecting, event 1 Starting PPP session, "
                                   "event 1 GPRS is ready, event 4 up"));
    EXPECT_TRUE(await("net: event 3 50"));
    GENERIC_NETWORK_INFO info;
    radio.setSignal(-114);
    EXPECT_TRUE(link->getNetworkInfo(info) && info.signalQuality == 0);
    clear();
    EXPECT_TRUE(link->disconnect());
    EXPECT_THAT(story(), EndsWith("event 1 Terminating PPP session, event 1 GPRS is shut down"));
    terminal.clock().setSpeed(Waiting);
    EXPECT_TRUE(link->shutdown() && !radio.isOn());
    EXPECT_THAT(story(), EndsWith("event 1 Shutting down GPRS module, "
                                  "event 1 Shutting down multiplexer"));
    EXPECT_TRUE(before.areBack());
}

TEST_F(GprsConnectionTest, EveryStepOfTheBringUpFailsWithItsOwnText) {
    const struct {
        double speed;
        std::function<void()> happens;
        string story;
        bool isOn, isMultiplexing;
    } cases[] = {{Waiting, [&] { radio.answerPulse(0); },
                  PoweredUp + "event 2 GSM module or power problem", false, false},
                 {Waiting, [&] { terminal.faults().fail("open", LinePath, EIO); },
                  PoweredUp + "event 2 GSM communication error", true, false},
                 {Waiting, [&] { radio.setSilent(true); },
                  Initialized + "event 2 GSM module initialization failed", true, false},
                 {Exchanging, [&] { terminal.faults().fail("open", LinePath, EIO, 1); },
                  Mux + "event 2 GSM CMUX initialization error", true, false},
                 {Exchanging, [&] { terminal.faults().fail("open", "/dev/ttyp0", EIO); },
                  Mux + "event 2 GSM communication error", true, true},
                 {Exchanging, [&] { radio.setSim(RadioSim::PukNeeded); },
                  Sim + "event 2 SIM card not present or broken", true, true},
                 {Exchanging, [&] { radio.onCommand("AT+CGDCONT*", Reply::error()); },
                  Gprs + "event 2 GPRS configuration error", true, true},
                 {Exchanging, [&] { radio.onCommand("AT+COPS=0,2", Reply::error(30)); },
                  Network + ", event 2 Unable to register with GSM network", true, true}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.story);
        clear();
        expected.happens();
        terminal.clock().setSpeed(expected.speed);
        EXPECT_FALSE(link->initialize());
        EXPECT_EQ(story(), expected.story);
        EXPECT_EQ(radio.isOn(), expected.isOn) << "nothing is undone";
        EXPECT_TRUE(soon([&] { return radio.isMultiplexing() == expected.isMultiplexing; }));
        terminal.clock().setSpeed(Waiting);
        EXPECT_TRUE(link->shutdown()) << "until it is shut down";
        EXPECT_FALSE(radio.isOn());

        radio.answerPulse(1);
        radio.setSilent(false);
        radio.setSim(RadioSim::PinNeeded);
        radio.clearHooks();
        terminal.setPresent(LinePath, true);
        terminal.faults().clear();
    }
    terminal.clock().setSpeed(Exchanging);
    make("0000");
    EXPECT_FALSE(link->initialize());
    EXPECT_EQ(radio.simCard().triesLeft, RadioSim::PinTries - 1) << "it is sent once";
}

TEST_F(GprsConnectionTest, AStepOfALinkThatFailsSaysWhich) {
    GENERIC_NETWORK_INFO info;
    terminal.faults().fail("fork", "", EAGAIN);
    EXPECT_FALSE(link->getNetworkInfo(info) || link->netConnect() || link->netResume());
    terminal.files().write("/var/run/ppp0.pid", "0");  // taken for a session
    EXPECT_FALSE(link->netResume());
    EXPECT_TRUE(link->netSuspend());
    EXPECT_EQ(story(), "event 2 Failed requesting network information, "
                       "event 1 Initializing PPP session, event 2 GPRS attach procedure failed, "
                       "event 1 Starting PPP session, event 2 Failed starting GPRS PPP, "
                       "event 2 failed opening GSM module, event 1 Suspending GPRS connection, "
                       "event 1 Terminating PPP session, event 1 GPRS is suspended");
}

}  // namespace
