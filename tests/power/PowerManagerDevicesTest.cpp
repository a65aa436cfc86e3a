#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>

#include "power/BoardProtocol.h"
#include "power/PowerManager.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using testing::ElementsAre;

constexpr char Speaker[] = "/dev/input/event2";

/// Before there is a power manager.
class PowerManagerStartTest : public test::TerminalTest {
protected:
    ~PowerManagerStartTest() override { PowerManager::deinitPowerManager(); }
};

class PowerManagerDevicesTest : public test::PoweredTest {
protected:
    static constexpr double Fast = 100;  // the modem takes its seconds
};

TEST_F(PowerManagerStartTest, StartingOpensTheDevicesAndSwitchesTheDisplayOnOnceOnly) {
    EXPECT_EQ(PowerManager::getPowerManager(), nullptr);
    EXPECT_FALSE(PowerManager::deinitPowerManager());
    EXPECT_FALSE(PowerManager::kickIdleProc());

    const long before = test::openDescriptors();
    ASSERT_TRUE(PowerManager::initPowerManager());
    PowerManager* const first = PowerManager::getPowerManager();
    EXPECT_THAT(takeLines(), ElementsAre("pwrctrl: line 8 low", "oled: on", "oled: unfreeze",
                                         "oled: on", "oled: fade 255"));
    EXPECT_EQ(first->getCurrentState(), POWER_ON);
    EXPECT_EQ(first->getIdleDuration(), 0);
    EXPECT_EQ(test::openDescriptors(), before + 5) << "two silent input devices stay open";

    EXPECT_FALSE(PowerManager::initPowerManager());
    EXPECT_EQ(PowerManager::getPowerManager(), first);
    EXPECT_EQ(test::openDescriptors(), before + 5);

    first->oledFreeze(false);
    takeLines();
    EXPECT_TRUE(PowerManager::deinitPowerManager());
    EXPECT_THAT(takeLines(), ElementsAre("oled: freeze"));
    EXPECT_EQ(PowerManager::getPowerManager(), nullptr);
    EXPECT_EQ(test::openDescriptors(), before + 2);
    EXPECT_TRUE(PowerManager::initPowerManager());
}

TEST_F(PowerManagerStartTest, AMissingDeviceEndsTheStartAndLeavesWhatWasOpened) {
    const struct {
        const char* missing;
        int leftOpen;
    } cases[] = {{board::PowerControlPath, 0}, {Speaker, 3}, {board::ClockPath, 4}};
    for (const auto& failing : cases) {
        terminal.setPresent(failing.missing, false);
        const long before = test::openDescriptors();
        EXPECT_FALSE(PowerManager::initPowerManager()) << failing.missing;
        EXPECT_EQ(PowerManager::getPowerManager(), nullptr);
        EXPECT_EQ(test::openDescriptors(), before + failing.leftOpen) << failing.missing;
        EXPECT_THAT(takeLines(), ElementsAre());
        terminal.setPresent(failing.missing, true);
    }
    terminal.setPresent(board::DisplayPath, false);
    EXPECT_TRUE(PowerManager::initPowerManager()) << "works without a display";
}

TEST_F(PowerManagerStartTest, TheSpeakerIsTheFirstInputDeviceThatCanSound) {
    sim::Faults& faults = terminal.faults();
    ASSERT_TRUE(PowerManager::initPowerManager());
    PowerManager& power = *PowerManager::getPowerManager();
    faults.fail("ioctl", "/dev/input/event0", EIO);
    const long before = test::openDescriptors();
    const int found = power.findSpeakerDevice();
    EXPECT_GE(found, 0);
    EXPECT_EQ(test::openDescriptors(), before + 2) << "the one that cannot tell is closed";
    EXPECT_TRUE(fcntl(found, F_GETFL) != -1);

    terminal.keypad().setEventTypes(1U << 18);
    EXPECT_GE(power.findSpeakerDevice(), 0);
    EXPECT_EQ(test::openDescriptors(), before + 3) << "and none looked at behind it";
    terminal.keypad().setEventTypes(1U << 1 | 1U << 17 | 1U << 19);
    terminal.speaker().setEventTypes(0);
    faults.clear();
    EXPECT_EQ(power.findSpeakerDevice(), -1);
    EXPECT_EQ(faults.calls(), 32 + 3) << "opened them all and asked those that are there";
}

TEST_F(PowerManagerStartTest, AClockThatLostItsTimeStartsWithTheSystemsIn1970LocalTime) {
    setenv("TZ", "XXX+5", 1);  // five hours behind
    tzset();
    for (const bool settable : {true, false}) {
        terminal.rtc().loseTime();
        if (!settable)
            terminal.faults().fail("ioctl", board::ClockPath, EIO, 0, 2);
        ASSERT_TRUE(PowerManager::initPowerManager());
        EXPECT_NEAR(static_cast<double>(std::time(nullptr)), 5 * 3600, 5);
        EXPECT_EQ(takeLines().front(),
                  settable ? "rtc: set 1970-01-01 00:00:00" : "pwrctrl: line 8 low");
        long seconds = 0;
        EXPECT_EQ(PowerManager::getPowerManager()->rtcGetTime(&seconds), settable);
        EXPECT_NEAR(static_cast<double>(seconds), settable ? 5 * 3600 : 0, 5);
        PowerManager::deinitPowerManager();
    }
    unsetenv("TZ");
    tzset();
}

using Operation = std::function<int(PowerManager&)>;

TEST_F(PowerManagerDevicesTest, EachOperationSendsItsRequestsInOrderAndShowsARefusedOne) {
    const Operation scannerUp = [](auto& p) { return p.scannerPowerUp(); };
    const Operation scannerDown = [](auto& p) { return p.scannerPowerDown(); };
    const Operation btOn = [](auto& p) { return p.btPowerOn(); };
    const Operation btOff = [](auto& p) { return p.btPowerOff(); };
    const Operation gprsOn = [](auto& p) { return p.gprsPowerOn(); };
    const Operation gprsOff = [](auto& p) { return p.gprsPowerOff(); };
    const Operation reset = [](auto& p) { return p.gprsReset(); };
    const struct {
        Operation operation;
        int refused;  // the number of the request that is; 0: none
        int result;
        const char* requests;
    } cases[] = {
        {[](auto& p) { return p.scannerSetAim(true); }, 0, 1, "line 9 low"},
        {[](auto& p) { return p.scannerSetAim(false); }, 0, 1, "line 9 high"},
        {[](auto& p) { return p.scannerSetAim(true); }, 1, 0, ""},
        {scannerUp, 0, 1, "line 9 high, line 2 low, supply 2 on"},
        {scannerUp, 1, 0, ""},
        {scannerUp, 2, 0, "line 9 high"},
        {scannerUp, 3, 0, "line 9 high, line 2 low"},
        {scannerDown, 0, 1, "line 2 high, line 9 low, supply 2 off"},
        {scannerDown, 1, 0, ""},
        {scannerDown, 2, 0, "line 2 high"},
        {scannerDown, 3, 0, "line 2 high, line 9 low"},
        {[](auto& p) { return p.gprsGetPower(); }, 0, 0, "read line 3"},
        {[](auto& p) { return p.gprsGetPower(); }, 1, 0, ""},
        {[](auto& p) { return p.gprsSetDTR(true); }, 0, 0, "line 8 low"},
        {[](auto& p) { return p.gprsSetDTR(false); }, 0, 0, "line 8 high"},
        {[](auto& p) { return p.gprsSetDTR(true); }, 1, -1, ""},
        {reset, 0, 0, "line 6 high, line 6 low"},
        {reset, 1, 0, "line 6 low"},
        {reset, 2, -1, "line 6 high"},
        {gprsOn, 1, 1, "supply 1 on, read line 3, line 7 high, line 7 low, read line 3"},
        {gprsOn, 2, 0, "line 5 high"},
        {gprsOff, 0, 1, "supply 1 off, read line 3, line 5 low"},
        {gprsOff, 1, 0, ""},
        {gprsOff, 2, 1, "supply 1 off, line 5 low"},
        {btOn, 0, 1, "line 4 high, supply 1 on, line 6 high, line 6 low"},
        {btOn, 1, 1, "supply 1 on, line 6 high, line 6 low"},
        {btOn, 2, 0, "line 4 high"},
        {btOn, 3, 1, "line 4 high, supply 1 on, line 6 low"},
        {btOff, 0, 1, "supply 1 off, line 6 high, line 4 low"},
        {btOff, 1, 0, ""},
        {btOff, 2, 1, "supply 1 off, line 4 low"},
        {[](auto& p) { return p.mpciEnable3V3(true); }, 0, 0, "line 4 high"},
        {[](auto& p) { return p.mpciEnable3V3(false); }, 0, 0, "line 4 low"},
        {[](auto& p) { return p.mpciEnable3V3(true); }, 1, -1, ""},
        {[](auto& p) { return p.mpciEnableRadio(true); }, 0, 0, "line 7 high"},
        {[](auto& p) { return p.mpciEnableRadio(false); }, 0, 0, "line 7 low"},
        {[](auto& p) { return p.ledEnable(true, false); }, 0, 0, "line 0 low, line 1 high"},
        {[](auto& p) { return p.ledEnable(false, true); }, 0, 0, "line 0 high, line 1 low"},
        {[](auto& p) { return p.ledEnable(true, true); }, 1, 0, "line 1 low"},
        {[](auto& p) { return p.ledEnable(true, true); }, 2, -1, "line 0 low"},
        {[](auto& p) { return p.keybSetBackLight(200); }, 0, 0, "keyboard light 200"},
        {[](auto& p) { return p.keybFadeBackLight(255); }, 0, 0, "keyboard fade 255"},
        {[](auto& p) { return p.keybSetBackLight(200); }, 1, -1, ""},
    };
    terminal.clock().setSpeed(Fast);
    for (const auto& tried : cases) {
        terminal.radio().setOn(false);
        terminal.faults().clear();
        if (tried.refused)
            terminal.faults().fail("ioctl", board::PowerControlPath, EIO, tried.refused - 1);
        EXPECT_EQ(tried.operation(power()), tried.result) << tried.requests;
        EXPECT_EQ(take("pwrctrl"), tried.requests);
    }
}

TEST_F(PowerManagerDevicesTest, TheModemIsSwitchedOnWithUpToThreePulsesOfItsKey) {
    const string start = "line 5 high, supply 1 on, read line 3";
    const string pulse = ", line 7 high, line 7 low, read line 3";
    terminal.clock().setSpeed(Fast);
    terminal.radio().setOn(true);
    EXPECT_TRUE(power().gprsPowerOn());
    EXPECT_GE(between("pwrctrl: line 5 high", "pwrctrl: supply 1 on"), 10ms);
    EXPECT_EQ(take("pwrctrl"), start) << "runs already";

    terminal.radio().setOn(false);
    terminal.radio().answerPulse(3);
    EXPECT_TRUE(power().gprsPowerOn());
    EXPECT_GE(between("pwrctrl: line 7 high", "pwrctrl: line 7 low"), 1s);
    EXPECT_EQ(take("pwrctrl"), start + pulse + pulse + pulse);

    terminal.radio().setOn(false);
    terminal.radio().answerPulse(0);
    EXPECT_FALSE(power().gprsPowerOn());
    EXPECT_EQ(take("pwrctrl"), start + pulse + pulse + pulse);
}

TEST_F(PowerManagerDevicesTest, TheModemIsSwitchedOffWithItsKeyAndElseByForce) {
    terminal.clock().setSpeed(Fast);
    const string start = "supply 1 off, read line 3, line 7 high, line 7 low";
    terminal.radio().setOn(true);
    terminal.radio().lingerFor(2);
    EXPECT_TRUE(power().gprsPowerOff());
    EXPECT_GE(between("pwrctrl: line 7 high", "pwrctrl: line 7 low"), 2s);
    EXPECT_EQ(take("pwrctrl"), start + ", read line 3, read line 3, read line 3");

    terminal.radio().setOn(true);
    terminal.radio().lingerFor(-1);
    EXPECT_TRUE(power().gprsPowerOff());
    EXPECT_GE(between("pwrctrl: line 7 low", "pwrctrl: line 5 low"), 10s);
    string forced = start;
    for (int poll = 0; poll < 100; ++poll)
        forced += ", read line 3";
    EXPECT_EQ(take("pwrctrl"), forced + ", line 5 low");
}

TEST_F(PowerManagerDevicesTest, ResetPulsesLastTheirTime) {
    terminal.clock().setSpeed(10);
    power().gprsReset();
    EXPECT_GE(between("pwrctrl: line 6 high", "pwrctrl: line 6 low"), 100ms);
    takeLines();
    power().btPowerOn();
    EXPECT_GE(between("pwrctrl: line 4 high", "pwrctrl: supply 1 on"), 10ms);
    EXPECT_GE(between("pwrctrl: line 6 high", "pwrctrl: line 6 low"), 100ms);
    takeLines();
    power().btPowerOff();
    EXPECT_GE(between("pwrctrl: line 6 high", "pwrctrl: line 4 low"), 100ms);
}

TEST_F(PowerManagerDevicesTest, TheBuzzerSoundsForItsTimeAndIsSilenced) {
    terminal.clock().setSpeed(10);
    EXPECT_EQ(power().buzzerPlay(2000, 300), 16);
    EXPECT_GE(between("speaker: tone 2000", "speaker: silence"), 300ms);
    EXPECT_EQ(take("speaker"), "tone 2000, silence");
    terminal.faults().fail("write", Speaker, EIO);
    EXPECT_EQ(power().buzzerPlay(2000, 0), 16);
    EXPECT_EQ(take("speaker"), "silence") << "whatever became of the tone";
    terminal.faults().fail("write", Speaker, EIO, 1);
    EXPECT_EQ(power().buzzerPlay(1000, -5), -1);
}

TEST_F(PowerManagerDevicesTest, EnableAndFreezeShareOneMemoryAndBrightnessHasNone) {
    const struct {
        Operation operation;
        int result;
        const char* request;
    } steps[] = {
        // The start has left the display enabled.
        {[](auto& p) { return p.oledEnable(true); }, 1, ""},
        {[](auto& p) { return p.oledFreeze(true); }, 1, ""},
        {[](auto& p) { return p.oledFreeze(false); }, 1, "unfreeze"},
        {[](auto& p) { return p.oledEnable(false); }, 1, ""},
        {[](auto& p) { return p.oledFreeze(true); }, 1, "freeze"},
        {[](auto& p) { return p.oledEnable(true); }, 1, ""},
        {[](auto& p) { return p.oledEnable(false); }, 1, "off"},
        {[](auto& p) { return p.oledEnable(true); }, 1, "on"},
        {[](auto& p) { return p.oledSetBrightness(7); }, 1, "brightness 7"},
        {[](auto& p) { return p.oledSetBrightness(7); }, 1, "brightness 7"},
        {[](auto& p) { return p.oledFadeBrightness(255); }, 1, "fade 255"},
    };
    const long before = test::openDescriptors();
    for (const auto& step : steps) {
        EXPECT_EQ(step.operation(power()), step.result) << step.request;
        EXPECT_EQ(take("oled"), step.request);
    }
    const auto isRefused = [&] {
        return !power().oledEnable(false) && !power().oledSetBrightness(1) &&
               !power().oledFadeBrightness(1);
    };
    terminal.faults().fail("open", board::DisplayPath, EBUSY, 0, 3);
    EXPECT_TRUE(isRefused());
    terminal.faults().fail("ioctl", board::DisplayPath, EIO, 0, 3);
    EXPECT_TRUE(isRefused()) << "not remembered when not opened";
    EXPECT_TRUE(power().oledEnable(false)) << "remembered when refused";
    EXPECT_EQ(take("oled"), "");
    EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(PowerManagerDevicesTest, TheClockIsReadSetAndWakesInLocalTime) {
    setenv("TZ", "XXX-2", 1);  // two hours ahead
    tzset();
    constexpr long Moment = 1709622489;  // 2024-03-05 07:08:09 UTC
    long seconds = 0;
    EXPECT_TRUE(power().rtcSetTime(Moment));
    EXPECT_TRUE(power().rtcGetTime(&seconds));
    EXPECT_NEAR(static_cast<double>(seconds), Moment, 2);
    EXPECT_TRUE(power().rtcGetTime(nullptr));
    EXPECT_TRUE(power().rtcSetAlarm(90));
    EXPECT_TRUE(power().rtcEnableAlarm(true));
    EXPECT_FALSE(power().rtcGetAlarmState());
    pass(91s);
    EXPECT_TRUE(power().rtcGetAlarmState());
    EXPECT_FALSE(power().rtcGetAlarmState()) << "once for an alarm";
    EXPECT_TRUE(power().rtcSetAlarm(-10));
    EXPECT_TRUE(power().rtcGetAlarmState()) << "has passed";
    EXPECT_TRUE(power().rtcEnableAlarm(false));
    EXPECT_EQ(take("rtc"),
              "set 2024-03-05 09:08:09, alarm in 90 s, alarm on, alarm in -10 s, alarm off");
    if (sizeof(long) > 4) {
        EXPECT_FALSE(power().rtcSetTime(LONG_MAX)) << "no calendar reaches that far";
    }
    terminal.faults().fail("ioctl", board::ClockPath, EIO, 0, 6);
    EXPECT_FALSE(power().rtcSetTime(Moment));
    EXPECT_FALSE(power().rtcGetTime(&seconds));
    EXPECT_FALSE(power().rtcGetTime(nullptr));
    EXPECT_FALSE(power().rtcSetAlarm(1));
    EXPECT_FALSE(power().rtcEnableAlarm(true));
    EXPECT_FALSE(power().rtcEnableAlarm(false));
    terminal.faults().fail("ioctl", board::ClockPath, EIO, 1);
    EXPECT_FALSE(power().rtcSetAlarm(1)) << "read but not set";
    unsetenv("TZ");
    tzset();
}

TEST_F(PowerManagerDevicesTest, SensorsAreReadAsTextAndFailToTheirOwnAnswers) {
    const struct {
        const char* text;  // null: the attribute is missing
        bool usb;
        int light, temperature, voltage;
    } cases[] = {
        {nullptr, false, -1, INT_MIN, -1},
        {"", false, 0, 0, 0},
        {"many\n", false, 0, 0, 0},
        {"1\n", true, 1, 0, 1},
        {" 1\n", false, 1, 0, 1},
        {"2550\n", false, 2550, 25, 2550},
        {"-150\n", false, -150, -1, -1},
        {"-99\n", false, -99, 0, -1},
        {"12abc\n", true, 12, 0, 12},
        {"9999999999999999999999\n", false, INT_MAX, INT_MAX / 100, INT_MAX},
        {"-9999999999999999999999\n", false, INT_MIN, INT_MIN / 100, -1},
        {"0000000000000001234\n", false, 1, 0, 1},  // the first 16 bytes count
    };
    const long before = test::openDescriptors();
    for (const auto& tried : cases) {
        for (sim::Attribute* attribute : {&terminal.usbSupply(), &terminal.light(),
                                          &terminal.temperature(), &terminal.battery()}) {
            if (tried.text)
                attribute->setText(tried.text);
            else
                attribute->remove();
        }
        const string text = tried.text ? tried.text : "missing";
        EXPECT_EQ(power().isUsbConnected(), tried.usb) << text;
        EXPECT_EQ(power().getAmbientLight(), tried.light) << text;
        EXPECT_EQ(power().getTempReading(), tried.temperature) << text;
        EXPECT_EQ(power().getBatteryVoltage(), tried.voltage) << text;
    }
    for (const char* path : {board::UsbSupplyPath, board::AmbientLightPath, board::TemperaturePath,
                             board::BatteryVoltagePath}) {
        terminal.files().remove(path);
        terminal.files().makeFolder(path);  // opens, but cannot be read
    }
    EXPECT_FALSE(power().isUsbConnected());
    EXPECT_EQ(power().getAmbientLight(), -1);
    EXPECT_EQ(power().getTempReading(), INT_MIN);
    EXPECT_EQ(power().getBatteryVoltage(), -1);
    EXPECT_EQ(power().getBatteryCapacity(nullptr), -1);
    EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(PowerManagerDevicesTest, TheChargeFollowsTheVoltageLinearlyBetweenItsEnds) {
    const struct {
        int reading, percent;
    } cases[] = {{1, 0},         {3500, 0},  {3506, 0},  {3507, 1},    {3850, 50},
                 {4192, 98},     {4193, 99}, {4199, 99}, {4200, 100},  {5000, 100},
                 {INT_MAX, 100}, {0, -1},    {-1, -1},   {INT_MIN, -1}};
    for (const auto& tried : cases) {
        terminal.battery().set(-1);
        EXPECT_EQ(power().getBatteryVoltage(), -1);  // a negative one forgets the readings before
        terminal.battery().set(tried.reading);
        int voltage = -7;
        EXPECT_EQ(power().getBatteryCapacity(&voltage), tried.percent) << tried.reading;
        EXPECT_EQ(voltage, tried.percent < 0 ? -7 : tried.reading);
    }
}

TEST_F(PowerManagerDevicesTest, TheVoltageIsSmoothedOverTheReadings) {
    const struct {
        int reading, percent, voltage;
    } steps[] = {{3850, 50, 3850}, {4200, 65, 3955}, {4200, 75, 4028},
                 {0, -1, 0},       {4200, 82, 4079}, {3500, 57, 3905},
                 {1, 0, 2733},     {4200, 0, 3173},  {INT_MAX, 100, 644247315}};
    for (const auto& step : steps) {
        terminal.battery().set(step.reading);
        int voltage = 0;
        EXPECT_EQ(power().getBatteryCapacity(&voltage), step.percent) << step.reading;
        EXPECT_EQ(voltage, step.voltage);
    }
    terminal.battery().set(3600);
    EXPECT_EQ(power().getBatteryVoltage(), 3600) << "not smoothed, but the next one's start";
    terminal.battery().set(4200);
    int voltage = 0;
    EXPECT_EQ(power().getBatteryCapacity(&voltage), 40);
    EXPECT_EQ(voltage, 3780);
    terminal.battery().remove();
    EXPECT_EQ(power().getBatteryVoltage(), -1);
    EXPECT_EQ(power().getBatteryCapacity(nullptr), -1);
    terminal.battery().set(4200);
    EXPECT_EQ(power().getBatteryCapacity(nullptr), 58) << "a failure forgets nothing";
}

}  // namespace
