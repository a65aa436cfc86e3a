#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "foundation/PowerEventListener.h"
#include "io/Media.h"
#include "power/BoardProtocol.h"
#include "power/PowerManager.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr char CardFile[] = "/mnt/mmc/log.txt";
constexpr int EnterKey = 28;

/// Notes each change that it is asked about as "first: 0->1".
class Listener : public PowerEventListener {
public:
    Listener(string listenerName, sim::Journal& terminalJournal)
        : name(std::move(listenerName)), journal(terminalJournal) {}

    bool powerStateChange(PowerState from, PowerState to) override {
        journal.note(name, std::to_string(from) + "->" + std::to_string(to));
        return to != vetoed;
    }

    PowerState vetoed = static_cast<PowerState>(-1);

private:
    const string name;
    sim::Journal& journal;
};

class PowerModesTest : public test::PoweredTest {
protected:
    PowerModesTest() { holdTime(); }

    void enterQuietly(PowerState state) {
        power().setPowerMode(state);
        takeLines();
    }

    /// An open file on the card, which cannot be unmounted meanwhile.
    FILE* openOnCard() {
        EXPECT_EQ(Media::mountMedia(CardFile, true), 0x40000001);
        FILE* const file = fopen(CardFile, "w");
        EXPECT_NE(file, nullptr);
        takeLines();
        return file;
    }

    void closeOnCard(FILE* file) {
        fclose(file);
        EXPECT_TRUE(Media::unmountMedia(0x40000001));
        takeLines();
    }

    static bool canMount() {
        const int handle = Media::mountMedia(CardFile, false);
        return handle > 0 && Media::unmountMedia(handle);
    }

    Listener first{"first", terminal.journal()}, second{"second", terminal.journal()},
        third{"third", terminal.journal()};
};

TEST_F(PowerModesTest, EachStateDrivesTheDevicesInOrder) {
    const struct {
        int maximum;
        PowerState state;
        std::vector<string> requests;
    } steps[] = {
        {255, POWER_DIMMED, {"oled: fade 127"}},
        {255, POWER_DARK, {"oled: fade 0"}},
        {255,
         POWER_DISPLAY_OFF,
         {"pwrctrl: line 0 high", "pwrctrl: line 1 high", "pwrctrl: keyboard fade 0",
          "oled: fade 0", "oled: off"}},
        {255, POWER_ALARM_WAKE, {}},
        {255, POWER_ON, {"oled: on", "oled: fade 255"}},
        {201, POWER_DIMMED, {"oled: fade 100"}},
        {201, POWER_ON, {"oled: fade 201"}},
        {-1, POWER_DIMMED, {"oled: fade 0"}},
        {-1, POWER_ON, {"oled: fade 255"}},
        {600, static_cast<PowerState>(7), {}},
        {600, POWER_DIMMED, {"oled: fade 44"}},
        {600, POWER_ON, {"oled: fade 88"}},
        {0, static_cast<PowerState>(-1), {}},
        {0, POWER_ON, {"oled: fade 0"}},
    };
    for (const auto& step : steps) {
        power().oledSetMaxBrightness(step.maximum);
        EXPECT_TRUE(power().setPowerMode(step.state));
        EXPECT_EQ(power().getCurrentState(), step.state);
        EXPECT_THAT(takeLines(), ElementsAreArray(step.requests)) << step.state;
        EXPECT_FALSE(power().setPowerMode(step.state)) << "there already";
        EXPECT_THAT(takeLines(), ElementsAre());
    }
}

TEST_F(PowerModesTest, ListenersAreAskedNewestFirstOnTheWayDownAndOldestFirstOnTheWayUp) {
    power().addListener(&first);
    power().addListener(&second);
    power().addListener(&third);
    EXPECT_TRUE(power().setPowerMode(POWER_DIMMED));
    EXPECT_THAT(takeLines(),
                ElementsAre("third: 0->1", "second: 0->1", "first: 0->1", "oled: fade 127"));
    EXPECT_TRUE(power().setPowerMode(POWER_ON));
    EXPECT_THAT(takeLines(),
                ElementsAre("first: 1->0", "second: 1->0", "third: 1->0", "oled: fade 255"));

    second.vetoed = POWER_SUSPEND;
    EXPECT_FALSE(power().setPowerMode(POWER_SUSPEND));
    EXPECT_THAT(takeLines(), ElementsAre("third: 0->5", "second: 0->5"));
    EXPECT_EQ(power().getCurrentState(), POWER_ON);

    power().addListener(nullptr);  // ends a walk as if all had agreed
    EXPECT_TRUE(power().setPowerMode(POWER_DARK));
    EXPECT_THAT(takeLines(), ElementsAre("oled: fade 0"));
    power().removeListener(nullptr);
    Listener stranger("stranger", terminal.journal());
    power().removeListener(&stranger);
    power().addListener(&first);
    power().removeListener(&first);
    power().removeListener(&second);
    EXPECT_TRUE(power().setPowerMode(POWER_DIMMED));
    EXPECT_THAT(takeLines(), ElementsAre("third: 2->1", "first: 2->1", "oled: fade 127"));
}

TEST_F(PowerModesTest, ActivityWakesTheDisplayAndRenewsTheIdleTimeUnlessTransitionsAreOff) {
    enterQuietly(POWER_DARK);
    pass(7s);
    EXPECT_EQ(power().getIdleDuration(), 7);
    EXPECT_TRUE(power().kickIdle());
    EXPECT_THAT(takeLines(), ElementsAre("oled: fade 255"));
    EXPECT_EQ(power().getIdleDuration(), 0);
    pass(3s);
    EXPECT_FALSE(PowerManager::kickIdleProc()) << "awake already";
    EXPECT_EQ(power().getIdleDuration(), 0);

    enterQuietly(POWER_DIMMED);
    power().enableTransitions(false);
    pass(5s);
    EXPECT_FALSE(power().kickIdle());
    EXPECT_FALSE(power().setPowerMode(POWER_DARK));
    EXPECT_EQ(power().getIdleDuration(), 5);
    EXPECT_EQ(power().getCurrentState(), POWER_DIMMED);
    power().enableTransitions(true);
    EXPECT_TRUE(PowerManager::kickIdleProc());

    first.vetoed = POWER_ON;
    power().addListener(&first);
    enterQuietly(POWER_DARK);
    pass(5s);
    EXPECT_TRUE(power().kickIdle()) << "it was asleep, and stays so";
    EXPECT_EQ(power().getCurrentState(), POWER_DARK);
    EXPECT_EQ(power().getIdleDuration(), 0);
}

TEST_F(PowerModesTest, AKeyThatWakesTheTerminalDoesNotReachTheApplication) {
    enterQuietly(POWER_DISPLAY_OFF);
    test::EventThread events;
    for (const bool down : {true, false, true, false})
        GuiLibrary::postKey(EnterKey, down);
    EXPECT_NE(terminal.journal().await("app: key 28", 0, test::HostLimit), 0U);
    EXPECT_THAT(takeLines(), ElementsAre("oled: on", "oled: fade 255", "app: key 28"));
}

TEST_F(PowerModesTest, IdleTimeIsCountedAcrossEveryWrapOfTheClock) {
    constexpr auto Wrap = std::chrono::milliseconds(1LL << 32);
    for (const auto uptime : {Wrap / 2, Wrap}) {  // 25 and 50 days
        terminal.clock().setMonotonic(uptime - 2s);
        restart();
        pass(5s);
        EXPECT_EQ(power().getIdleDuration(), 5);
        power().kickIdle();
        pass(3600s);
        EXPECT_EQ(power().getIdleDuration(), 3600);
    }
    pass(-3601s);
    EXPECT_EQ(power().getIdleDuration(), 0) << "never negative";
}

TEST_F(PowerModesTest, ASuspendEndedByTheAlarmCountsAsIdleTimeAndLeavesTheDisplayOff) {
    ASSERT_EQ(Media::mountMedia(CardFile, false), 1);
    enterQuietly(POWER_DISPLAY_OFF);
    pass(10s);
    power().setPowerSaveSleep(60);
    power().addListener(&first);
    EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
    EXPECT_THAT(takeLines(), ElementsAre("first: 3->5", "pwrctrl: keyboard light 0",
                                         "card: unmount", "rtc: alarm in 60 s", "power: suspend",
                                         "power: woken by alarm", "first: 5->4"));
    EXPECT_EQ(power().getCurrentState(), POWER_ALARM_WAKE);
    EXPECT_EQ(power().getIdleDuration(), 70);
    EXPECT_EQ(Media::mountTable[0].readers, 0);
    EXPECT_TRUE(canMount());
}

TEST_F(PowerModesTest, ASuspendEndedByAKeyWakesTheTerminal) {
    const struct {
        int sleep;
        bool alarmFails, alarmSet;
    } cases[] = {{60, false, true}, {60, true, false}, {0, false, false}, {-1, false, false}};
    for (const auto& tried : cases) {
        pass(10s);
        power().setPowerSaveSleep(tried.sleep);
        if (tried.alarmFails)
            terminal.faults().fail("ioctl", board::ClockPath, EIO);
        terminal.power().wakeByKey(EnterKey, 30s);
        EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
        std::vector<string> expected{"pwrctrl: keyboard light 0",
                                     "oled: off",
                                     "power: suspend",
                                     "power: woken by key",
                                     "keypad: key 28 down",
                                     "keypad: key 28 up",
                                     "oled: on",
                                     "oled: fade 255"};
        if (tried.alarmSet)
            expected.insert(expected.begin() + 2, "rtc: alarm in 60 s");
        EXPECT_THAT(takeLines(), ElementsAreArray(expected));
        EXPECT_EQ(power().getCurrentState(), POWER_ON);
        EXPECT_EQ(power().getIdleDuration(), 0);
        power().rtcEnableAlarm(false);
        takeLines();
    }
}

TEST_F(PowerModesTest, ASuspendThatCannotBePreparedOnlySwitchesTheDisplayOff) {
    const std::vector<string> onTheWayBack{"first: 5->3", "pwrctrl: line 0 high",
                                           "pwrctrl: line 1 high", "pwrctrl: keyboard fade 0",
                                           "oled: fade 0"};
    const auto expectDisplayOff = [&](std::vector<string> before) {
        EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
        before.insert(before.end(), onTheWayBack.begin(), onTheWayBack.end());
        EXPECT_THAT(takeLines(), ElementsAreArray(before));
        EXPECT_EQ(power().getCurrentState(), POWER_DISPLAY_OFF);
        EXPECT_EQ(terminal.power().suspends(), 0);
    };
    power().addListener(&first);
    FILE* const file = openOnCard();
    expectDisplayOff({"first: 0->5", "pwrctrl: keyboard light 0", "oled: off"});
    closeOnCard(file);
    EXPECT_TRUE(canMount());

    enterQuietly(POWER_ON);
    terminal.setPresent(board::SuspendPath, false);
    expectDisplayOff({"first: 0->5", "pwrctrl: keyboard light 0", "oled: off", "card: unmount"});
    EXPECT_TRUE(canMount());
}

TEST_F(PowerModesTest, AShutdownSwitchesEverythingOffAndAsksTheApplication) {
    terminal.clock().setSpeed(50);
    terminal.radio().setOn(true);
    ASSERT_EQ(Media::mountMedia(CardFile, true), 0x40000001);
    takeLines();
    EXPECT_TRUE(power().setPowerMode(POWER_SHUTDOWN));
    EXPECT_THAT(takeLines(),
                ElementsAre("pwrctrl: line 0 high", "pwrctrl: line 1 high",
                            "pwrctrl: keyboard light 0", "pwrctrl: supply 1 off",
                            "pwrctrl: read line 3", "pwrctrl: line 7 high", "pwrctrl: line 7 low",
                            "radio: power off", "pwrctrl: read line 3", "card: unmount",
                            "oled: brightness 0", "oled: off", "app: event 31 0"));
    EXPECT_EQ(power().getCurrentState(), POWER_SHUTDOWN);
    EXPECT_EQ(Media::mountMedia(CardFile, false), -1) << "nothing is mounted any more";
    EXPECT_FALSE(power().setPowerMode(POWER_SHUTDOWN));
    EXPECT_TRUE(power().kickIdle());
    EXPECT_EQ(power().getCurrentState(), POWER_ON);
    Media::mountEnable();
}

TEST_F(PowerModesTest, AShutdownWithACardInUseOnlySwitchesTheDisplayOff) {
    FILE* const file = openOnCard();
    power().addListener(&first);
    EXPECT_TRUE(power().setPowerMode(POWER_SHUTDOWN));
    EXPECT_THAT(takeLines(),
                ElementsAre("first: 0->6", "pwrctrl: line 0 high", "pwrctrl: line 1 high",
                            "pwrctrl: keyboard light 0", "pwrctrl: supply 1 off",
                            "pwrctrl: read line 3", "pwrctrl: line 5 low", "first: 6->3",
                            "pwrctrl: line 0 high", "pwrctrl: line 1 high",
                            "pwrctrl: keyboard fade 0", "oled: fade 0", "oled: off"));
    EXPECT_EQ(power().getCurrentState(), POWER_DISPLAY_OFF);
    closeOnCard(file);
    EXPECT_TRUE(canMount());
}

TEST_F(PowerModesTest, ManyThreadsMayChangeTheStateKickAndListen) {
    constexpr int Rounds = 150;
    std::atomic<int> started{0};
    const auto together = [&](auto round) {
        return test::inBackground([&, round] {
            ++started;
            while (started < 5) {}
            for (int number = 0; number < Rounds; ++number)
                round(number);
        });
    };
    const auto change = [&](int number) {
        power().setPowerMode(static_cast<PowerState>(number % 4));
    };
    std::vector<std::future<void>> threads;
    threads.push_back(together(change));
    threads.push_back(together(change));
    threads.push_back(together([&](int) { power().kickIdle(); }));
    threads.push_back(together([&](int number) {
        power().enableTransitions(number % 8 != 0);
        EXPECT_GE(power().getIdleDuration(), 0);
        EXPECT_LE(power().getCurrentState(), POWER_DISPLAY_OFF);
        power().oledSetMaxBrightness(number % 256);
        power().getBatteryCapacity(nullptr);
    }));
    threads.push_back(together([&](int) {
        Listener passing("passing", terminal.journal());
        power().addListener(&passing);
        power().setPowerSaveSleep(30);
        power().removeListener(&passing);
    }));
    for (auto& thread : threads)
        EXPECT_TRUE(test::soon([&] { return test::isDone(thread); })) << "deadlock";
    power().enableTransitions(true);
    power().kickIdle();
    EXPECT_EQ(power().getCurrentState(), POWER_ON);
}

}  // namespace
