#include "network/NetworkConnection.h"

#include <algorithm>

#include "network/NetworkWindow.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::inBackground;
using test::soon;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr double Speed = 50;

/// A link whose steps do what a test says, and note it.
class FakeLink : public NetworkConnection {
public:
    explicit FakeLink(sim::Journal& terminalJournal)
        : NetworkConnection(5), journal(terminalJournal) {}

    bool isConnectionUp() override { return step("check", isUp); }
    bool netInitialize() override {
        setStatus("begun");
        reportError("broken");
        return step("initialize", works);
    }
    bool netShutdown() override { return step("shutdown", works); }
    bool netConnect() override { return step("connect", works); }
    bool netDisconnect() override { return step("disconnect", disconnects); }
    bool netSuspend() override { return step("suspend", works); }
    bool netResume() override { return step("resume", works); }

    bool getNetworkInfo(GENERIC_NETWORK_INFO& info) override {
        info.connected = 1;
        info.signalQuality = 77;
        return step("poll", true);
    }

    std::atomic<bool> isUp{true}, works{true}, disconnects{true};
    std::atomic<const char*> hangsIn{""};  // a step
    std::atomic<bool> talks{false};        // in a connect

private:
    bool step(const string& name, const std::atomic<bool>& result) {
        journal.note("net", name);
        while (name == hangsIn.load())
            Thread::sleep(1000);
        for (int told = 0; name == "connect" && talks && told < 100; ++told)
            setStatus("much");
        return result;
    }

    sim::Journal& journal;
};

struct NetworkConnectionTest : test::PoweredTest {
    NetworkConnectionTest() {
        terminal.clock().setSpeed(Speed);
        link.addListener(&network);
        link.addListener(nullptr);  // ends each walk, and nothing else
        terminal.journal().clear();
    }
    ~NetworkConnectionTest() override {
        link.hangsIn = "";
        link.disconnect();
    }

    string story() { return terminal.journal().history("net"); }

    /// Waits until something has been noted `times` times.
    testing::AssertionResult comes(const string& text, int times = 1) {
        const bool came = soon([&] {
            const auto lines = terminal.journal().lines();
            return std::count(lines.begin(), lines.end(), "net: " + text) >= times;
        });
        return came ? testing::AssertionSuccess()
                    : testing::AssertionFailure() << "no " << text << " in " << story();
    }

    void clear() { terminal.journal().clear(); }

    void comeUp() { ASSERT_TRUE(link.connect() && comes("event 4 up")); }

    FakeLink link{terminal.journal()};
    test::NetworkWindow network{terminal.journal()};
};

const string Connecting = "connecting, event 4 connecting, ";
const string Up = "up, event 4 up";
const string Down = "down, event 4 down";
const string Poll = "poll, signal 77, event 3 77, ";

TEST_F(NetworkConnectionTest, AFailedConnectIsRetriedAndALostLinkRepairedUnlessItComesBack) {
    EXPECT_TRUE(link.initialize());
    EXPECT_EQ(take("net"), "status begun, event 1 begun, error broken, event 2 broken, initialize");
    link.works = false;
    ASSERT_TRUE(link.connect() && comes("connect", 3));
    EXPECT_THAT(story(), StartsWith(Poll + Connecting + "connect, " + Down + ", " + Connecting +
                                    "connect, " + Down + ", " + Connecting + "connect"));
    EXPECT_GE(between("net: event 4 down", "net: connecting"), 5s);
    link.works = true;
    ASSERT_TRUE(comes("event 4 up"));

    clear();
    link.isUp = false;
    link.works = false;
    ASSERT_TRUE(comes("event 4 down", 2));
    string checks = "check, " + Connecting;  // the one that found it lost
    for (int check = 0; check < 20; ++check)
        checks += "check, ";
    EXPECT_THAT(story(), HasSubstr(checks + "disconnect, connect, " + Down + ", " + Connecting +
                                   "disconnect, connect, " + Down));
    EXPECT_GE(between("net: connecting", "net: disconnect"), 9500ms);
    EXPECT_GE(between("net: event 4 down", "net: connecting"), 5s);

    link.disconnects = false;
    clear();
    ASSERT_TRUE(comes("event 4 down", 2));
    EXPECT_THAT(story(), HasSubstr("disconnect, " + Down)) << "without a connect";
    link.disconnects = true;
    link.works = true;
    ASSERT_TRUE(comes("check", 4));
    terminal.clock().setSpeed(2);  // of the twenty checks
    EXPECT_THAT(story(), HasSubstr("disconnect, connect, " + Up));
    clear();
    link.isUp = true;
    ASSERT_TRUE(comes("event 4 up"));
    EXPECT_THAT(story(), HasSubstr("check, " + Up));
    EXPECT_THAT(story(), testing::Not(HasSubstr("disconnect")));
}

TEST_F(NetworkConnectionTest, ASuspendIsVetoedUntilTheLinkIsSuspendedAndTheLinkResumedAfterIt) {
    comeUp();
    EXPECT_TRUE(link.powerStateChange(POWER_DARK, POWER_ON)) << "nothing to resume";
    EXPECT_TRUE(link.powerStateChange(POWER_ON, POWER_DISPLAY_OFF));
    link.works = false;
    clear();
    EXPECT_FALSE(power().setPowerMode(POWER_SUSPEND));
    ASSERT_TRUE(comes("suspend", 2));
    EXPECT_GE(between("net: suspend", "net: suspend"), 5s);
    EXPECT_FALSE(power().setPowerMode(POWER_SUSPEND));
    link.works = true;
    ASSERT_TRUE(comes("event 4 down"));
    EXPECT_THAT(story(), EndsWith("suspend, " + Down));

    EXPECT_TRUE(link.powerStateChange(POWER_DISPLAY_OFF, POWER_SUSPEND));
    EXPECT_TRUE(link.powerStateChange(POWER_SUSPEND, POWER_ALARM_WAKE)) << "not awake yet";
    clear();
    link.works = false;
    EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND)) << "returns after the wake-up";
    EXPECT_TRUE(power().setPowerMode(POWER_ON));
    ASSERT_TRUE(comes("resume", 2));
    EXPECT_THAT(story(), HasSubstr(Connecting + "resume, " + Down + ", " + Connecting + "resume"));
    EXPECT_GE(between("net: event 4 down", "net: connecting"), 1s);
    link.works = true;
    ASSERT_TRUE(comes("check"));
}

TEST_F(NetworkConnectionTest, ASuspendAskedForAmidAStepFollowsIt) {
    link.isUp = false;
    link.hangsIn = "connect";
    ASSERT_TRUE(link.connect());
    for (const string step : {"connect", "resume", "check"}) {
        link.hangsIn = step.c_str();
        link.powerStateChange(POWER_SUSPEND, POWER_ON);
        ASSERT_TRUE(comes(step));
        EXPECT_FALSE(link.powerStateChange(POWER_ON, POWER_SUSPEND));
        clear();
        link.hangsIn = "";
        ASSERT_TRUE(comes("event 4 down"));
        EXPECT_THAT(story(), StartsWith(step == "check" ? "suspend, " : Up + ", suspend, "));
    }
}

TEST_F(NetworkConnectionTest, ADisconnectEndsWhateverTheWorkerDoes) {
    terminal.clock().setSpeed(2);
    const auto disconnects = [&] {
        const auto taken = simulated([&] { EXPECT_TRUE(link.disconnect()); });
        EXPECT_THAT(story(), EndsWith("disconnect"));
        return taken;
    };
    const struct {
        bool works, isUp;
        const char* reached;  // "" when it has just started
        int times;
        bool suspends;
    } situations[] = {{true, true, "", 0, false},
                      {true, true, "check", 1, false},
                      {false, false, "event 4 down", 1, false},  // pauses after a failed connect
                      {true, false, "check", 3, false},          // between two checks
                      {true, true, "event 4 up", 1, true}};
    for (const auto& tried : situations) {
        link.works = tried.works;
        link.isUp = tried.isUp;
        ASSERT_TRUE(link.connect() && (tried.times == 0 || comes(tried.reached, tried.times)));
        if (tried.suspends) {
            link.powerStateChange(POWER_ON, POWER_SUSPEND);
            ASSERT_TRUE(comes("event 4 down"));
        }
        EXPECT_LT(disconnects(), 10s) << tried.reached;
        clear();
    }

    // A step that hangs is cut off after ten seconds, and the next worker starts anew.
    terminal.clock().setSpeed(Speed);
    link.hangsIn = "connect";
    ASSERT_TRUE(link.connect() && comes("connect"));
    EXPECT_GE(disconnects(), 10s);
    link.hangsIn = "";
    comeUp();
}

TEST_F(NetworkConnectionTest, ABusyWindowingLibraryDelaysEventsButNoStop) {
    comeUp();
    terminal.clock().setSpeed(2);
    const auto disconnect = [this] {
        EXPECT_LT(simulated([this] { EXPECT_TRUE(link.disconnect()); }), 10s);
    };
    for (const bool fromEventThread : {false, true}) {
        std::future<void> disconnected;
        GuiLibrary::lock();
        link.isUp = false;
        clear();
        EXPECT_TRUE(comes("connecting"));
        if (fromEventThread)
            disconnect();  // it may while it holds the lock
        else
            disconnected = inBackground(disconnect);
        EXPECT_TRUE(comes("disconnect")) << "the worker gives up its event and ends";
        GuiLibrary::unlock();
        if (!fromEventThread)
            disconnected.get();
        EXPECT_THAT(story(), testing::Not(HasSubstr("event 4")));
        link.isUp = true;
        comeUp();
    }
    // One that has more to tell than it is given time for is cancelled: it waited for ever then.
    ASSERT_TRUE(link.disconnect());
    terminal.clock().setSpeed(Speed);
    link.talks = true;
    clear();
    GuiLibrary::lock();
    ASSERT_TRUE(link.connect() && soon([&] { return !story().empty(); }));
    EXPECT_GE(simulated([this] { EXPECT_TRUE(link.disconnect()); }), 10s);
    GuiLibrary::unlock();
    link.talks = false;
}

}  // namespace
