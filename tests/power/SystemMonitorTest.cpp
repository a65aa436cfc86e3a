#include "power/SystemMonitor.h"

#include <algorithm>
#include <array>

#include "io/Media.h"
#include "power/BoardProtocol.h"
#include "power/PowerManager.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using testing::ElementsAre;

struct SystemMonitorTest : test::PoweredTest {
    SystemMonitorTest() {
        holdTime();
        EXPECT_TRUE(SystemMonitor::initialize());
    }
    ~SystemMonitorTest() override {
        SystemMonitor::shutdown();
        Media::mountEnable();
    }

    static SystemMonitor& monitor() { return *SystemMonitor::getMonitor(); }

    /// Ticks by hand, once a second; a suspend in between takes its own time.
    void tick(int seconds) {
        for (int second = 0; second < seconds; ++second) {
            pass(1s);
            monitor().onTimer();
        }
    }

    /// A terminal in `state`, not used for `idle` seconds.
    void beIdle(PowerState state, int idle) {
        power().setPowerMode(POWER_ON);
        power().kickIdle();
        power().setPowerMode(state);
        pass(std::chrono::seconds(idle));
        takeLines();
    }

    /// The journal without the sensors' reports and the keyboard light.
    std::vector<string> takeModes() {
        std::vector<string> lines = takeLines();
        const auto isReport = [](const string& line) {
            return line.find("event 16") != string::npos || line.find("event 32") != string::npos ||
                   line.find("keyboard") != string::npos || line.find("line ") != string::npos;
        };
        lines.erase(std::remove_if(lines.begin(), lines.end(), isReport), lines.end());
        return lines;
    }
};

TEST_F(SystemMonitorTest, EachTickGoesOneStepDownAtTheDefaultDelays) {
    const struct {
        int second;
        PowerState state;
    } steps[] = {{4, POWER_ON},           {5, POWER_DIMMED},     {19, POWER_DIMMED},
                 {20, POWER_DARK},        {29, POWER_DARK},      {30, POWER_DISPLAY_OFF},
                 {59, POWER_DISPLAY_OFF}, {60, POWER_ALARM_WAKE}};
    int now = 0;
    power().kickIdle();
    for (const auto& step : steps) {
        tick(step.second - now);
        now = step.second;
        EXPECT_EQ(power().getCurrentState(), step.state) << now;
    }
    EXPECT_THAT(takeModes(),
                ElementsAre("oled: fade 127", "oled: fade 0", "oled: fade 0", "oled: off",
                            "rtc: alarm in 900 s", "power: suspend", "power: woken by alarm"));
    tick(3);
    std::array<int, SystemMonitor::CounterCount> counters{};
    monitor().getPowerCounters(counters.data());
    EXPECT_THAT(counters, ElementsAre(5, 15, 10, 30, 0, 3 * 901, 0));
    EXPECT_THAT(takeModes(),
                ElementsAre("rtc: alarm in 900 s", "power: suspend", "power: woken by alarm",
                            "rtc: alarm in 900 s", "power: suspend", "power: woken by alarm",
                            "rtc: alarm in 837 s", "power: suspend", "power: woken by alarm",
                            "pwrctrl: supply 1 off", "oled: brightness 0", "app: event 31 0"));
    tick(5);
    EXPECT_THAT(takeModes(), ElementsAre()) << "it stays shut down";

    beIdle(POWER_ON, 3000);
    tick(3);
    EXPECT_EQ(power().getCurrentState(), POWER_DISPLAY_OFF) << "one step per tick, however late";
}

TEST_F(SystemMonitorTest, TheWakeUpIntervalIsWhatIsLeftUntilPowerOffWithinLimits) {
    const struct {
        int powerOff, idle;
        const char* alarm;  // "": no suspend
        PowerState after;
    } cases[] = {{3600, 0, "alarm in 900 s", POWER_ALARM_WAKE},
                 {3600, 2699, "alarm in 900 s", POWER_ALARM_WAKE},
                 {3600, 2701, "alarm in 899 s", POWER_SHUTDOWN},
                 {3600, 3600, "", POWER_SHUTDOWN},
                 {10, 0, "alarm in 30 s", POWER_SHUTDOWN},
                 {0, 100000, "alarm in 900 s", POWER_ALARM_WAKE}};
    for (const auto& tried : cases) {
        monitor().setPowerDelays(0, 0, 0, 0, tried.powerOff);
        beIdle(POWER_ALARM_WAKE, tried.idle);
        monitor().handlePower();
        EXPECT_EQ(take("rtc"), tried.alarm) << tried.powerOff << " " << tried.idle;
        EXPECT_EQ(power().getCurrentState(), tried.after) << tried.idle;
        Media::mountEnable();
    }
}

TEST_F(SystemMonitorTest, BatteryAndTemperatureAreReportedAtTheirIntervalsAcrossEveryWrap) {
    constexpr auto Wrap = std::chrono::milliseconds(1LL << 32);
    for (const auto uptime : {Wrap / 2, Wrap}) {  // 25 and 50 days
        terminal.clock().setMonotonic(uptime - 6s);
        restart();
        SystemMonitor::shutdown();
        ASSERT_TRUE(SystemMonitor::initialize());
        terminal.battery().set(3850);
        terminal.temperature().set(-150);
        for (int second = 1; second <= 20; ++second) {
            power().kickIdle();
            takeLines();
            tick(1);
            string expected = second % 4 == 0 ? "event 16 50" : "";
            if (second % 10 == 0)
                expected += string(expected.empty() ? "" : ", ") + "event 32 -1";
            EXPECT_EQ(take("app"), expected) << "second " << second;
        }
    }
}

TEST_F(SystemMonitorTest, ACableWakesTheTerminalAndWhatCannotBeReadIsNotReported) {
    const SystemMonitor* const first = &monitor();
    EXPECT_TRUE(SystemMonitor::initialize());
    EXPECT_EQ(&monitor(), first) << "there is one";
    for (const int plugged : {1, 0}) {
        beIdle(POWER_DARK, 0);
        tick(1);
        EXPECT_EQ(power().getCurrentState(), POWER_DARK);
        terminal.usbSupply().set(plugged);
        tick(1);
        EXPECT_EQ(power().getCurrentState(), POWER_ON) << plugged;
    }
    terminal.battery().setText("");
    terminal.faults().fail("open", board::TemperaturePath, ENOENT, 0, 1000);
    takeLines();
    tick(10);
    EXPECT_EQ(take("app"), "event 32 -2147483648");
}

TEST_F(SystemMonitorTest, TheKeyboardLightFollowsTheAmbientLightWhileTheDisplayIsLit) {
    const struct {
        int full, ambient;
        const char* fade;
    } cases[] = {{300, 10, "255"}, {101, 11, "50"}, {101, 30, "50"}, {101, 31, "0"}, {-5, 0, "0"}};
    for (const auto& tried : cases) {
        monitor().setKeyboardBrightness(tried.full);
        terminal.light().set(tried.ambient);
        monitor().handleLighting();
        EXPECT_EQ(take("pwrctrl"), string("keyboard fade ") + tried.fade) << tried.ambient;
    }
    power().setPowerMode(POWER_DARK);
    monitor().handleLighting();
    EXPECT_EQ(take("pwrctrl"), "");
}

}  // namespace
