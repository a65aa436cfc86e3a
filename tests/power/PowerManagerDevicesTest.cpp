
#include <climits>
#include <cstdlib>

#include "power/BoardProtocol.h"
#include "power/PowerManager.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;

constexpr char Speaker[] = "/dev/input/event2";

constexpr double Fast = 100;  // the modem takes its seconds

using PowerManagerDevicesTest = test::PoweredTest;
using PowerManagerStartTest = test::TerminalTest;

TEST_F(PowerManagerStartTest, ThereIsNoPowerManagerWithoutADeviceAndALostTimeIsRepaired) {
    EXPECT_FALSE(PowerManager::deinitPowerManager());
    const auto startsWithout = [this](const char* call, const char* path) {
        terminal.faults().fail(call, path, ENODEV);
        const bool starts = PowerManager::initPowerManager();
        terminal.faults().clear();
        EXPECT_EQ(PowerManager::getPowerManager() != nullptr, starts);
        PowerManager::deinitPowerManager();
        return starts;
    };
    EXPECT_FALSE(startsWithout("open", board::PowerControlPath));
    EXPECT_FALSE(startsWithout("open", Speaker));
    EXPECT_FALSE(startsWithout("ioctl", Speaker)) << "whether it can sound";
    EXPECT_FALSE(startsWithout("open", board::ClockPath));
    EXPECT_TRUE(startsWithout("open", "/dev/input/event0")) << "a silent one before it";
    EXPECT_TRUE(startsWithout("open", board::DisplayPath));

    terminal.rtc().loseTime();
    takeLines();
    ASSERT_TRUE(PowerManager::initPowerManager());
    EXPECT_FALSE(PowerManager::initPowerManager()) << "there is one";
    EXPECT_EQ(take("rtc"), "set 1970-01-01 00:00:00");
    EXPECT_LT(terminal.clock().wall(), 1h) << "the system's time";
    EXPECT_TRUE(PowerManager::deinitPowerManager());
}

TEST_F(PowerManagerDevicesTest, EachOperationSendsItsRequestsInOrderAndShowsARefusedOne) {
    const struct {
        std::function<int(PowerManager&)> operation;
        int refused;  // the number of the request that is; 0: none
        int result;
        const char* requests;
    } cases[] = {
        {&PowerManager::scannerPowerUp, 0, 1, "line 9 high, line 2 low, supply 2 on"},
        {&PowerManager::scannerPowerUp, 3, 0, "line 9 high, line 2 low"},
        {&PowerManager::scannerPowerDown, 0, 1, "line 2 high, line 9 low, supply 2 off"},
        {&PowerManager::scannerPowerDown, 3, 0, "line 2 high, line 9 low"},
        {&PowerManager::gprsReset, 2, -1, "line 6 high"},
        {&PowerManager::gprsPowerOn, 1, 1,
         "supply 1 on, read line 3, line 7 high, line 7 low, read line 3"},
        {&PowerManager::gprsPowerOn, 2, 0, "line 5 high"},
        {&PowerManager::gprsPowerOff, 0, 1, "supply 1 off, read line 3, line 5 low"},
        {&PowerManager::gprsPowerOff, 2, 1, "supply 1 off, line 5 low"},
        {&PowerManager::btPowerOn, 0, 1, "line 4 high, supply 1 on, line 6 high, line 6 low"},
        {&PowerManager::btPowerOn, 3, 1, "line 4 high, supply 1 on, line 6 low"},
        {&PowerManager::btPowerOff, 0, 1, "supply 1 off, line 6 high, line 4 low"},
        {&PowerManager::btPowerOff, 2, 1, "supply 1 off, line 4 low"},
        {[](auto& p) { return p.gprsSetDTR(true); }, 0, 0, "line 8 low"},
        {[](auto& p) { return p.ledEnable(true, false); }, 0, 0, "line 0 low, line 1 high"},
        {[](auto& p) { return p.ledEnable(true, true); }, 2, -1, "line 0 low"},
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

TEST_F(PowerManagerDevicesTest, TheModemIsSwitchedWithItsKeyAndOffByForceInTheEnd) {
    const string on = "line 5 high, supply 1 on, read line 3";
    const string pulse = ", line 7 high, line 7 low, read line 3";
    terminal.clock().setSpeed(Fast);
    terminal.radio().setOn(true);
    EXPECT_TRUE(power().gprsPowerOn());
    EXPECT_GE(between("pwrctrl: line 5 high", "pwrctrl: supply 1 on"), 10ms);
    EXPECT_EQ(take("pwrctrl"), on) << "runs already";
    const string threePulses = on + pulse + pulse + pulse;
    for (const int answered : {0, 3}) {
        terminal.radio().setOn(false);
        terminal.radio().answerPulse(answered);
        EXPECT_EQ(power().gprsPowerOn(), answered == 3);
        EXPECT_GE(between("pwrctrl: line 7 high", "pwrctrl: line 7 low"), 1s);
        EXPECT_EQ(take("pwrctrl"), threePulses);
    }

    const string off = "supply 1 off, read line 3, line 7 high, line 7 low";
    terminal.radio().setOn(true);
    terminal.radio().lingerFor(2);
    EXPECT_TRUE(power().gprsPowerOff());
    EXPECT_GE(between("pwrctrl: line 7 high", "pwrctrl: line 7 low"), 2s);
    EXPECT_EQ(take("pwrctrl"), off + ", read line 3, read line 3, read line 3");
    terminal.radio().setOn(true);
    terminal.radio().lingerFor(-1);
    EXPECT_TRUE(power().gprsPowerOff());
    EXPECT_GE(between("pwrctrl: line 7 low", "pwrctrl: line 5 low"), 10s);
    string forced = off;
    for (int poll = 0; poll < 100; ++poll)
        forced += ", read line 3";
    EXPECT_EQ(take("pwrctrl"), forced + ", line 5 low");

    terminal.clock().setSpeed(10);
    EXPECT_EQ(power().buzzerPlay(2000, 300), 16);
    EXPECT_GE(between("speaker: tone 2000", "speaker: silence"), 300ms);
    terminal.faults().fail("write", Speaker, EIO, 1);
    EXPECT_EQ(power().buzzerPlay(1000, -5), -1);
}

TEST_F(PowerManagerDevicesTest, TheClockIsReadSetAndWakesInLocalTime) {
    setenv("TZ", "XXX-2", 1);  // two hours ahead
    tzset();
    constexpr long Moment = 1709622489;  // 2024-03-05 07:08:09 UTC
    long seconds = 0;
    EXPECT_TRUE(power().rtcSetTime(Moment) && power().rtcGetTime(&seconds));
    EXPECT_NEAR(static_cast<double>(seconds), Moment, 2);
    EXPECT_TRUE(power().rtcGetTime(nullptr) && power().rtcSetAlarm(90));
    EXPECT_TRUE(power().rtcEnableAlarm(true));
    EXPECT_FALSE(power().rtcGetAlarmState());
    pass(91s);
    EXPECT_TRUE(power().rtcGetAlarmState());
    EXPECT_FALSE(power().rtcGetAlarmState()) << "once for an alarm";
    EXPECT_TRUE(power().rtcEnableAlarm(false));
    EXPECT_EQ(take("rtc"), "set 2024-03-05 09:08:09, alarm in 90 s, alarm on, alarm off");
    unsetenv("TZ");
    tzset();
}

TEST_F(PowerManagerDevicesTest, SensorsAreReadAsTextAndFailToTheirOwnAnswers) {
    const struct {
        const char* text;
        bool usb;
        int light, temperature, voltage;
    } cases[] = {{"", false, 0, 0, 0},
                 {"many\n", false, 0, 0, 0},
                 {"1\n", true, 1, 0, 1},
                 {"2550\n", false, 2550, 25, 2550},
                 {"-150\n", false, -150, -1, -1},
                 {"9999999999999999999999\n", false, INT_MAX, INT_MAX / 100, INT_MAX},
                 {"0000000000000001234\n", false, 1, 0, 1}};  // the first 16 bytes count
    sim::Attribute* const attributes[] = {&terminal.usbSupply(), &terminal.light(),
                                          &terminal.temperature(), &terminal.battery()};
    for (const auto& tried : cases) {
        for (sim::Attribute* attribute : attributes)
            attribute->setText(tried.text);
        EXPECT_EQ(power().isUsbConnected(), tried.usb) << tried.text;
        EXPECT_EQ(power().getAmbientLight(), tried.light) << tried.text;
        EXPECT_EQ(power().getTempReading(), tried.temperature) << tried.text;
        EXPECT_EQ(power().getBatteryVoltage(), tried.voltage) << tried.text;
    }
    for (sim::Attribute* attribute : attributes)
        attribute->remove();
    EXPECT_EQ(power().getTempReading(), INT_MIN);
    EXPECT_EQ(power().getBatteryVoltage() * 10 + power().getAmbientLight(), -11);
    EXPECT_FALSE(power().isUsbConnected());
}

TEST_F(PowerManagerDevicesTest, EnableAndFreezeShareOneMemoryAndTheChargeIsSmoothed) {
    EXPECT_TRUE(power().oledFreeze(true) && power().oledEnable(false) && power().oledFreeze(false));
    EXPECT_TRUE(power().oledFreeze(true) && power().oledEnable(true));
    EXPECT_TRUE(power().oledSetBrightness(7) && power().oledFadeBrightness(9));
    EXPECT_EQ(take("oled"), "off, freeze, brightness 7, fade 9");

    int millivolts = 0;
    terminal.battery().set(4200);
    EXPECT_EQ(power().getBatteryCapacity(nullptr), 100);
    terminal.battery().set(3500);
    EXPECT_NEAR(power().getBatteryCapacity(&millivolts), 70, 1);
    EXPECT_NEAR(millivolts, 3990, 1);
    terminal.battery().set(0);
    EXPECT_EQ(power().getBatteryCapacity(&millivolts), -1);
}

}  // namespace
