#include "network/NetworkConnection.h"

#include <algorithm>
#include <mutex>

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
        info.connected = registered;
        info.signalQuality = 77;
        return step("poll", hasInfo);
    }

    std::atomic<bool> isUp{true}, works{true}, disconnects{true}, hasInfo{true};
    std::atomic<int> registered{1};

    /// Called in every step from now on, with its name.
    void duringSteps(std::function<void(const string&)> action) {
        const std::lock_guard<std::mutex> held(mutex);
        inStep = std::move(action);
    }

private:
    bool step(const string& name, const std::atomic<bool>& result) {
        journal.note("net", name);
        std::unique_lock<std::mutex> held(mutex);
        const auto action = inStep;
        held.unlock();
        if (action)
            action(name);
        return result;
    }

    sim::Journal& journal;
    std::mutex mutex;
    std::function<void(const string&)> inStep;  // guarded by mutex
};

class NetworkConnectionTest : public test::PoweredTest {
protected:
    NetworkConnectionTest() {
        terminal.clock().setSpeed(Speed);
        link.addListener(&network);
        terminal.journal().clear();
    }
    ~NetworkConnectionTest() override {
        link.duringSteps(nullptr);
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

    void comeUp() {
        ASSERT_TRUE(link.connect());
        ASSERT_TRUE(comes("event 4 up"));
    }

    /// The least simulated milliseconds between neighbours in the journal: a note and the next.
    long leastGap(const string& before, const string& after) {
        std::chrono::nanoseconds least = 1h;
        std::chrono::nanoseconds from{-1};
        for (const auto& entry : terminal.journal().entries()) {
            if (entry.device != "net")
                continue;
            if (entry.text == after && from >= 0ns)
                least = std::min(least, entry.wall - from);
            from = entry.text == before ? entry.wall : -1ns;
        }
        return static_cast<long>(least / 1ms);
    }

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
    ASSERT_TRUE(link.connect());
    ASSERT_TRUE(comes("connect", 3));
    EXPECT_THAT(story(), StartsWith(Poll + Connecting + "connect, " + Down + ", " + Connecting +
                                    "connect, " + Down + ", " + Connecting + "connect"));
    EXPECT_GE(leastGap("event 4 down", "connecting"), 5000);
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
    EXPECT_GE(leastGap("check", "check"), 500);
    EXPECT_GE(leastGap("event 4 down", "connecting"), 5000);

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
    EXPECT_GE(leastGap("suspend", "suspend"), 5000);
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
    EXPECT_GE(leastGap("event 4 down", "connecting"), 1000);
    link.works = true;
    ASSERT_TRUE(comes("check"));
}

TEST_F(NetworkConnectionTest, ADisconnectEndsWhateverTheWorkerDoes) {
    terminal.clock().setSpeed(2);
    const auto disconnects = [&] {
        const auto begin = terminal.clock().monotonic();
        EXPECT_TRUE(link.disconnect());
        EXPECT_THAT(story(), EndsWith("disconnect"));
        return terminal.clock().monotonic() - begin;
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
        ASSERT_TRUE(link.connect());
        ASSERT_TRUE(tried.times == 0 || comes(tried.reached, tried.times));
        if (tried.suspends) {
            link.powerStateChange(POWER_ON, POWER_SUSPEND);
            ASSERT_TRUE(comes("event 4 down"));
        }
        EXPECT_LT(disconnects(), 10s) << tried.reached;
        clear();
    }

    // A step that hangs is cut off after ten seconds, and the next worker starts anew.
    terminal.clock().setSpeed(Speed);
    link.duringSteps([](const string& name) {
        while (name == "connect")
            Thread::sleep(1000);
    });
    ASSERT_TRUE(link.connect());
    ASSERT_TRUE(comes("connect"));
    EXPECT_GE(disconnects(), 10s);
    link.duringSteps(nullptr);
    comeUp();
}

TEST_F(NetworkConnectionTest, ABusyWindowingLibraryDelaysEventsButNoStop) {
    comeUp();
    for (const bool fromEventThread : {false, true}) {
        std::future<bool> disconnected;
        GuiLibrary::lock();
        link.isUp = false;
        clear();
        EXPECT_TRUE(comes("connecting"));
        if (fromEventThread)
            EXPECT_TRUE(link.disconnect()) << "it may while it holds the lock";
        else
            disconnected = inBackground([&] { return link.disconnect(); });
        EXPECT_TRUE(comes("disconnect")) << "the worker gives up its event and ends";
        GuiLibrary::unlock();
        EXPECT_TRUE(fromEventThread || disconnected.get());
        EXPECT_THAT(story(), testing::Not(HasSubstr("event 4")));
        link.isUp = true;
        comeUp();
    }
}

}  // namespace
