#include "network/NetworkConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "foundation/Worker.h"
#include "network/NetworkWindow.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::inBackground;
using test::isDone;
using test::soon;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char Device[] = "net";
constexpr double Speed = 50;

/// A link whose steps do what a test says, and note it.
class FakeLink : public NetworkConnection {
public:
    explicit FakeLink(sim::Journal& terminalJournal)
        : NetworkConnection(5), journal(terminalJournal) {}

    bool isConnectionUp() override { return step("check", isUp); }
    bool netInitialize() override { return step("initialize", works); }
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

    void report() {
        setStatus("some status");
        reportError("some error");
    }
    const char* message() { return lastMessage; }
    const char* status() { return lastStatus; }
    const char* error() { return lastError; }

    // The default steps, as a subclass that has none of its own inherits them.
    bool defaultSteps() {
        return NetworkConnection::netSuspend() && NetworkConnection::netResume();
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
        journal.note(Device, name);
        std::function<void(const string&)> action;
        {
            const std::lock_guard<std::mutex> held(mutex);
            action = inStep;
        }
        if (action)
            action(name);
        return result;
    }

    sim::Journal& journal;
    std::mutex mutex;
    std::function<void(const string&)> inStep;  // guarded by mutex
};

class NotingListener : public NetworkEventListener {
public:
    explicit NotingListener(sim::Journal& terminalJournal) : journal(terminalJournal) {}

    void networkEvent(NetworkEvent event) override { note(test::NetworkEventNames[event]); }
    void signalQuality(int percent) override { note("signal " + std::to_string(percent)); }
    void errorMessage(const char* text) override { note(text); }
    void statusMessage(const char* text) override { note(text); }

private:
    void note(const string& text) { journal.note(Device, text); }
    sim::Journal& journal;
};

class NetworkConnectionTest : public test::PoweredTest {
protected:
    NetworkConnectionTest() {
        terminal.clock().setSpeed(Speed);
        link.addListener(&listener);
        terminal.journal().clear();
    }
    ~NetworkConnectionTest() override {
        link.duringSteps(nullptr);
        link.disconnect();
    }

    string story() { return terminal.journal().history(Device); }

    /// Waits until something has been noted `times` times.
    testing::AssertionResult comes(const string& text, int times = 1) {
        const auto count = [&] {
            int found = 0;
            for (const auto& entry : terminal.journal().entries())
                found += entry.device == Device && entry.text == text ? 1 : 0;
            return found;
        };
        if (soon([&] { return count() >= times; }))
            return testing::AssertionSuccess();
        return testing::AssertionFailure() << "no " << text << " in " << story();
    }

    void clear() { terminal.journal().clear(); }

    void comeUp() {
        ASSERT_TRUE(link.connect());
        ASSERT_TRUE(comes("event 4 up"));
    }

    /// The simulated milliseconds between neighbours in the journal: a note and the next `after`
    /// it.
    std::vector<long> gaps(const string& before, const string& after) {
        std::vector<long> result;
        std::chrono::nanoseconds from{-1};
        for (const auto& entry : terminal.journal().entries()) {
            if (entry.device == Device && entry.text == after && from >= 0ns)
                result.push_back(static_cast<long>((entry.wall - from) / 1ms));
            if (entry.device == Device)
                from = entry.text == before ? entry.wall : -1ns;
        }
        return result;
    }

    FakeLink link{terminal.journal()};
    NotingListener listener{terminal.journal()};
    test::NetworkWindow networkWindow{terminal.journal()};
};

const string Connecting = "connecting, event 4 connecting, ";
const string Up = "up, event 4 up";
const string Down = "down, event 4 down";
const string Poll = "poll, signal 77, event 3 77, ";

TEST_F(NetworkConnectionTest, ALinkComesUpIsWatchedAndItsSignalReportedEveryFourthTime) {
    EXPECT_EQ(link.getLastEvent(), NETWORK_DOWN);
    ASSERT_TRUE(link.connect());
    ASSERT_TRUE(comes("poll", 3));
    EXPECT_THAT(story(),
                StartsWith(Poll + Connecting + "connect, " + Up + ", check, check, check, check, " +
                           Poll + "check, check, check, check, poll"));
    EXPECT_EQ(link.getLastEvent(), NETWORK_UP);
    for (const long gap : gaps("check", "check"))
        EXPECT_GE(gap, 1000);

    link.registered = 0;
    ASSERT_TRUE(comes("event 3 0")) << "what is not registered has no signal";
    link.hasInfo = false;
    clear();
    ASSERT_TRUE(comes("poll", 2));
    EXPECT_THAT(story(), testing::Not(HasSubstr("signal")));
    EXPECT_THAT(story(), HasSubstr("poll, check, check, check, check, poll"))
        << "a failed poll counts as one";
}

TEST_F(NetworkConnectionTest, AFailedConnectIsTriedAgainAfterFiveSeconds) {
    link.works = false;
    ASSERT_TRUE(link.connect());
    ASSERT_TRUE(comes("connect", 3));
    EXPECT_THAT(story(), StartsWith(Poll + Connecting + "connect, " + Down + ", " + Connecting +
                                    "connect, " + Down + ", " + Connecting + "connect"));
    for (const long gap : gaps("event 4 down", "connecting"))
        EXPECT_GE(gap, 5000);
    link.works = true;
    EXPECT_TRUE(comes("event 4 up"));
}

TEST_F(NetworkConnectionTest, ALostLinkIsCheckedTwentyTimesThenRepairedUntilItIsBack) {
    comeUp();
    clear();
    link.isUp = false;
    link.works = false;
    ASSERT_TRUE(comes("event 4 down", 2));
    const string repair = "disconnect, connect, " + Down + ", " + Connecting;
    string checks = "check, " + Connecting;  // the one that found it lost
    for (int check = 0; check < 20; ++check)
        checks += "check, ";
    EXPECT_THAT(story(), HasSubstr(checks + repair + "disconnect, connect, " + Down));
    for (const long gap : gaps("check", "check"))
        EXPECT_GE(gap, 500);
    for (const long gap : gaps("event 4 down", "connecting"))
        EXPECT_GE(gap, 5000);

    link.disconnects = false;
    clear();
    ASSERT_TRUE(comes("event 4 down", 2));
    EXPECT_THAT(story(), HasSubstr("disconnect, " + Down)) << "without a connect";
    link.disconnects = true;
    link.works = true;
    ASSERT_TRUE(comes("event 4 up"));
    EXPECT_THAT(story(), HasSubstr("disconnect, connect, " + Up));
}

TEST_F(NetworkConnectionTest, ALinkThatComesBackByItselfIsNotRepaired) {
    comeUp();
    link.isUp = false;
    ASSERT_TRUE(comes("event 4 connecting", 2));
    ASSERT_TRUE(comes("check", 4));
    link.isUp = true;
    ASSERT_TRUE(comes("event 4 up", 2));
    EXPECT_THAT(story(), HasSubstr("check, check, " + Up));
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
    for (const long gap : gaps("suspend", "suspend"))
        EXPECT_GE(gap, 5000);
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
    for (const long gap : gaps("event 4 down", "connecting"))
        EXPECT_GE(gap, 1000);
    link.works = true;
    ASSERT_TRUE(comes("event 4 up"));
    ASSERT_TRUE(comes("check"));
}

TEST_F(NetworkConnectionTest, ASuspendAskedForDuringAStepIsCarriedOutAfterIt) {
    for (const string busy : {"connect", "check", "resume"}) {
        SCOPED_TRACE(busy);
        std::atomic<bool> isIn{false};
        std::atomic<bool> goOn{false};
        if (busy == "resume") {
            comeUp();
            link.powerStateChange(POWER_ON, POWER_SUSPEND);
            ASSERT_TRUE(comes("event 4 down"));
            ASSERT_TRUE(link.disconnect() && link.connect());  // a new worker finds it idle
            ASSERT_TRUE(comes("event 4 up", 2));
            link.powerStateChange(POWER_ON, POWER_SUSPEND);
            ASSERT_TRUE(comes("event 4 down", 2));
            ASSERT_TRUE(link.powerStateChange(POWER_ON, POWER_SUSPEND));
        }
        link.duringSteps([&](const string& name) {
            if (name != busy)
                return;
            isIn = true;
            while (!goOn)
                Thread::sleep(100);
        });
        if (busy == "resume")
            link.powerStateChange(POWER_SUSPEND, POWER_ON);
        else
            ASSERT_TRUE(link.connect());
        ASSERT_TRUE(soon([&] { return isIn.load(); }));
        clear();
        EXPECT_FALSE(link.powerStateChange(POWER_ON, POWER_SUSPEND));
        link.isUp = false;  // what a check finds now does not hide the request
        goOn = true;
        ASSERT_TRUE(comes("event 4 down"));
        EXPECT_THAT(story(), EndsWith("suspend, " + Down));
        EXPECT_TRUE(link.powerStateChange(POWER_ON, POWER_SUSPEND));
        EXPECT_TRUE(link.disconnect());
        link.duringSteps(nullptr);
        link.isUp = true;
        clear();
    }
}

TEST_F(NetworkConnectionTest, AConnectionIsPreparedAndShutDownOnlyWhileIdle) {
    EXPECT_FALSE(link.disconnect()) << "there is no worker";
    EXPECT_TRUE(link.initialize());
    EXPECT_EQ(story(), "initialize");
    link.works = false;
    EXPECT_FALSE(link.initialize());
    link.works = true;
    comeUp();
    EXPECT_FALSE(link.connect());
    clear();
    EXPECT_FALSE(link.initialize());
    EXPECT_FALSE(link.shutdown());
    link.disconnects = false;
    EXPECT_FALSE(link.disconnect()) << "the worker is gone, the link is not";
    EXPECT_FALSE(link.shutdown());
    EXPECT_FALSE(link.disconnect());
    link.disconnects = true;
    ASSERT_TRUE(link.connect());
    EXPECT_TRUE(link.disconnect());
    EXPECT_THAT(story(), testing::Not(HasSubstr("initialize")));
    EXPECT_TRUE(link.shutdown());
    EXPECT_THAT(story(), EndsWith("disconnect, shutdown"));
    EXPECT_TRUE(link.defaultSteps());
    EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND)) << "it listens no longer";
}

TEST_F(NetworkConnectionTest, ADisconnectEndsWhateverTheWorkerDoes) {
    terminal.clock().setSpeed(10);
    const auto disconnects = [&] {
        const auto begin = terminal.clock().monotonic();
        EXPECT_TRUE(link.disconnect());
        EXPECT_THAT(story(), EndsWith("disconnect"));
        return terminal.clock().monotonic() - begin;
    };
    const std::function<void()> situations[] = {
        [] {},  // just started
        [&] { ASSERT_TRUE(comes("check")); },
        [&] {  // in the pause after a failed connect
            link.works = false;
            link.isUp = false;
            ASSERT_TRUE(comes("event 4 down"));
        },
        [&] {  // between two checks
            link.isUp = false;
            ASSERT_TRUE(comes("check", 3));
        },
        [&] {  // suspended
            ASSERT_TRUE(comes("event 4 up"));
            link.powerStateChange(POWER_ON, POWER_SUSPEND);
            ASSERT_TRUE(comes("event 4 down"));
        },
    };
    for (const auto& reach : situations) {
        ASSERT_TRUE(link.connect());
        reach();
        EXPECT_LT(disconnects(), 10s);
        clear();
        link.works = true;
        link.isUp = true;
    }

    // A step that hangs is cut off after ten seconds, and the next worker starts anew.
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

TEST_F(NetworkConnectionTest, AListenerHearsAtOnceHowThingsAreAndThenEverythingInOrder) {
    NotingListener late(terminal.journal());
    comeUp();
    EXPECT_TRUE(link.disconnect());
    clear();
    link.addListener(&late);
    EXPECT_EQ(story(), "up") << "a disconnect is no event";
    EXPECT_EQ(link.message(), nullptr);
    clear();
    link.report();
    EXPECT_EQ(story(), "some status, some status, event 1 some status, "
                       "some error, some error, event 2 some error");
    EXPECT_STREQ(link.status(), "some status");
    EXPECT_STREQ(link.error(), "some error");
    EXPECT_STREQ(link.message(), "some error");
    link.removeListener(&listener);
    clear();
    link.report();
    EXPECT_THAT(story(), StartsWith("some status, event 1"));
}

TEST_F(NetworkConnectionTest, ABusyWindowingLibraryDelaysEventsButNoStop) {
    const auto whileBusy = [&](const std::function<void()>& action) {
        GuiLibrary::lock();
        action();
        GuiLibrary::unlock();
    };
    whileBusy([&] {
        ASSERT_TRUE(link.connect());
        ASSERT_TRUE(comes("signal 77"));
        test::Worker pause([](test::Worker&) { Thread::sleep(3500); });  // more than one attempt
        ASSERT_TRUE(pause.start());
        EXPECT_TRUE(pause.stop(60000, false));
        EXPECT_EQ(story(), "poll, signal 77") << "nothing is lost or passed over";
    });
    ASSERT_TRUE(comes("event 4 up"));
    EXPECT_THAT(story(), StartsWith(Poll + Connecting + "connect, " + Up));

    // From another thread, while this one keeps the lock: the worker gives up its event and ends;
    // only the report of the last step waits for the lock.
    link.duringSteps([&](const string& name) {
        if (name == "disconnect")
            link.report();
    });
    std::future<bool> disconnected;
    whileBusy([&] {
        link.isUp = false;
        clear();
        ASSERT_TRUE(comes("connecting"));
        disconnected = inBackground([&] { return link.disconnect(); });
        ASSERT_TRUE(comes("some status"));
        EXPECT_FALSE(isDone(disconnected));
    });
    EXPECT_TRUE(disconnected.get());
    EXPECT_THAT(story(), testing::Not(HasSubstr("event 4")));
    EXPECT_THAT(story(), EndsWith("event 2 some error"));
    link.duringSteps(nullptr);

    // The event thread itself may disconnect while it holds the lock.
    link.isUp = true;
    comeUp();
    link.isUp = false;
    whileBusy([&] {
        clear();
        ASSERT_TRUE(comes("connecting"));
        EXPECT_TRUE(link.disconnect());
    });
}

TEST_F(NetworkConnectionTest, AddressesAreToldAsFarAsTheyAreKnown) {
    char ip[16] = "kept";
    char mac[18] = "kept";
    EXPECT_TRUE(NetworkConnection::getInterfaceAddresses("no-such-interface", ip, mac));
    EXPECT_STREQ(ip, "kept");
    EXPECT_STREQ(mac, "kept");
    EXPECT_FALSE(NetworkConnection::getInterfaceAddresses(nullptr, ip, mac));
    EXPECT_STREQ(ip, "kept");
}

}  // namespace
