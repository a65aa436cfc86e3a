
#include <cstdio>

#include "foundation/PowerEventListener.h"
#include "io/Media.h"
#include "power/BoardProtocol.h"
#include "power/PowerManager.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using testing::ElementsAre;

constexpr char CardFile[] = "/mnt/mmc/log.txt";

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

struct PowerModesTest : test::PoweredTest {
    PowerModesTest() { holdTime(); }

    void enterQuietly(PowerState state) {
        power().setPowerMode(state);
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
    } steps[] = {{255, POWER_DIMMED, {"oled: fade 127"}},
                 {255, POWER_DARK, {"oled: fade 0"}},
                 {255,
                  POWER_DISPLAY_OFF,
                  {"pwrctrl: line 0 high", "pwrctrl: line 1 high", "pwrctrl: keyboard fade 0",
                   "oled: fade 0", "oled: off"}},
                 {255, POWER_ON, {"oled: on", "oled: fade 255"}},
                 {-1, POWER_DIMMED, {"oled: fade 0"}},
                 {600, static_cast<PowerState>(7), {}},
                 {600, POWER_DIMMED, {"oled: fade 44"}},
                 {600, POWER_ON, {"oled: fade 88"}}};
    for (const auto& step : steps) {
        power().oledSetMaxBrightness(step.maximum);
        EXPECT_TRUE(power().setPowerMode(step.state));
        EXPECT_EQ(power().getCurrentState(), step.state);
        EXPECT_THAT(takeLines(), testing::ElementsAreArray(step.requests)) << step.state;
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
    power().addListener(&first);
    power().removeListener(&first);
    power().removeListener(&second);
    EXPECT_TRUE(power().setPowerMode(POWER_DIMMED));
    EXPECT_THAT(takeLines(), ElementsAre("third: 2->1", "first: 2->1", "oled: fade 127"));
}

TEST_F(PowerModesTest, ASuspendEndedByTheAlarmCountsAsIdleTimeAndOneEndedByAKeyDoesNot) {
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
    takeLines();
    terminal.power().wakeByKey(28, 20s);
    EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
    EXPECT_THAT(takeLines(),
                ElementsAre("first: 4->5", "pwrctrl: keyboard light 0", "card: unmount",
                            "rtc: alarm in 60 s", "power: suspend", "power: woken by key",
                            "keypad: key 28 down", "keypad: key 28 up", "first: 5->0", "oled: on",
                            "oled: fade 255"));
    EXPECT_EQ(power().getIdleDuration(), 0);
}

TEST_F(PowerModesTest, WithACardInUseASuspendOrShutdownOnlySwitchesTheDisplayOff) {
    EXPECT_EQ(Media::mountMedia(CardFile, true), 0x40000001);
    FILE* const file = fopen(CardFile, "w");
    power().addListener(&first);
    takeLines();
    EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
    EXPECT_THAT(takeLines(),
                ElementsAre("first: 0->5", "pwrctrl: keyboard light 0", "oled: off", "first: 5->3",
                            "pwrctrl: line 0 high", "pwrctrl: line 1 high",
                            "pwrctrl: keyboard fade 0", "oled: fade 0"));
    EXPECT_EQ(power().getCurrentState(), POWER_DISPLAY_OFF);
    EXPECT_EQ(terminal.power().suspends(), 0);
    enterQuietly(POWER_ON);
    EXPECT_TRUE(power().setPowerMode(POWER_SHUTDOWN));
    EXPECT_THAT(takeLines(),
                ElementsAre("first: 0->6", "pwrctrl: line 0 high", "pwrctrl: line 1 high",
                            "pwrctrl: keyboard light 0", "pwrctrl: supply 1 off",
                            "pwrctrl: read line 3", "pwrctrl: line 5 low", "first: 6->3",
                            "pwrctrl: line 0 high", "pwrctrl: line 1 high",
                            "pwrctrl: keyboard fade 0", "oled: fade 0", "oled: off"));
    EXPECT_EQ(power().getCurrentState(), POWER_DISPLAY_OFF);
    fclose(file);
    EXPECT_TRUE(Media::unmountMedia(0x40000001) && canMount());
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

TEST_F(PowerModesTest, ManyThreadsMayChangeTheStateKickAndListen) {
    std::vector<std::future<void>> threads;
    threads.reserve(4);
    for (int number = 0; number < 4; ++number) {
        threads.push_back(test::inBackground([&, number] {
            for (int round = 0; round < 150; ++round) {
                Listener passing("passing", terminal.journal());
                power().addListener(&passing);
                terminal.power().wakeByKey(28, 1s);
                power().setPowerMode(static_cast<PowerState>((round + number) % 6));
                power().enableTransitions(round % 8 != 0);
                EXPECT_GE(power().getIdleDuration(), 0);
                power().removeListener(&passing);
                power().kickIdle();
            }
        }));
    }
    for (auto& thread : threads)
        EXPECT_TRUE(test::soon([&] { return test::isDone(thread); })) << "deadlock";
    power().enableTransitions(true);
    power().kickIdle();
    EXPECT_EQ(power().getCurrentState(), POWER_ON);
}

}  // namespace
