#include "sim/console/Console.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

class ConsoleTest : public testing::Test {
protected:
    sim::Terminal terminal;
    sim::Console console{terminal};
};

TEST_F(ConsoleTest, ItsCommandsReachTheDevices) {
    std::istringstream script("# the world\n"
                              "\n"
                              "battery 3600\n"
                              "temperature -150\n"
                              "usb on\n"
                              "card out\n"
                              "key 30 down\n"
                              "missing /dev/oled\n");
    EXPECT_EQ(console.run(script), "");
    EXPECT_EQ(terminal.files().read(terminal.battery().path()), "3600\n");
    EXPECT_EQ(terminal.files().read(terminal.temperature().path()), "-150\n");
    EXPECT_EQ(terminal.files().read(terminal.usbSupply().path()), "1\n");
    EXPECT_EQ(terminal.journal().history("card"), "taken out");
    EXPECT_EQ(terminal.journal().history("keypad"), "key 30 down");
    EXPECT_EQ(terminal.locate("/dev/oled", false).error, ENOENT);
}

TEST_F(ConsoleTest, TheRadioModuleIsReachedByCommandsOfTwoWords) {
    sim::RadioModule& radio = terminal.radio();
    radio.setOn(true);
    radio.setRegistrationTime({});
    std::istringstream script("radio sim ready\n"
                              "radio network roaming\n"
                              "radio signal -90\n"
                              "radio fail AT+CPIN? 10\n"
                              "radio hangup\n"
                              "radio drop\n"
                              "radio close\n"
                              "radio say RING\n"
                              "radio silent\n"
                              "radio normal\n"
                              "ppp never\n");
    EXPECT_EQ(console.run(script), "");
    EXPECT_EQ(radio.registration(), 5);
    EXPECT_EQ(console.execute("radio sim none"),
              "one of ready, pin, puk, absent, busy, broken, wrong, not: none");
    EXPECT_EQ(console.execute("radio fail"), "radio fail COMMAND [CODE]");
    for (const char* line : {"radio", "radio sing", "radio signal", "radio signal x", "ppp up"})
        EXPECT_NE(console.execute(line), "") << line;
    EXPECT_EQ(radio.registration(), 5);
}

TEST_F(ConsoleTest, TheWlanItsSupplicantAndItsDhcpServerAreReached) {
    std::istringstream script("wlan network Depot secret words\n"
                              "wlan signal -71\n"
                              "wlan channel 14\n"
                              "wlan appear never\n"
                              "wlan appear 0\n"
                              "wlan associate 0\n"
                              "wlan drop\n"
                              "supplicant silent\n"
                              "supplicant normal\n"
                              "supplicant die\n"
                              "dhcp fail\n"
                              "dhcp answer\n"
                              "dhcp lease 1.2.3.4 255.0.0.0 1.0.0.1 1.0.0.2\n"
                              "program rmmod 42\n");
    EXPECT_EQ(console.run(script), "");
    EXPECT_EQ(WEXITSTATUS(system("rmmod x")), 42);
    for (const char* module : {"modprobe ohci-hcd", "insmod /lib/modules/wireless/rt3070sta.ko"})
        EXPECT_EQ(system(module), 0);
    terminal.wlan().setPower(true);
    terminal.wlan().setRadio(true);
    terminal.wlan().setUp(true);
    terminal.wlan().join(
        {{"ssid", "\"Depot\""}, {"key_mgmt", "WPA-PSK"}, {"psk", "\"secret words\""}});
    EXPECT_EQ(terminal.wlan().essid(), "Depot");
    EXPECT_EQ(console.execute("wlan network"), "");
    EXPECT_EQ(terminal.wlan().essid(), "");
    for (const char* line :
         {"wlan", "wlan signal", "wlan signal x", "wlan associate soon", "supplicant",
          "supplicant sleepy", "dhcp maybe", "dhcp lease 1.2.3.4", "program rmmod"})
        EXPECT_NE(console.execute(line), "") << line;
}

TEST_F(ConsoleTest, AnAwaitFindsWhatHappenedSinceTheLastOne) {
    terminal.journal().note("engine", "one");
    terminal.journal().note("engine", "two");
    terminal.journal().note("engine", "one");
    std::istringstream script("await engine: one\nawait engine: one\n");
    EXPECT_EQ(console.run(script), "");
}

TEST_F(ConsoleTest, ABadLineSaysWhatIsWrongAndChangesNothing) {
    const std::string battery = terminal.files().read(terminal.battery().path());
    for (const char* line :
         {"battery", "battery full", "battery nan", "battery 1e30", "usb maybe", "wait -1",
          "speed 0", "key 30 sideways", "engine", "no-such-command", "\x01\xFF", "code"})
        EXPECT_NE(console.execute(line), "") << line;
    EXPECT_EQ(terminal.files().read(terminal.battery().path()), battery);
    EXPECT_TRUE(terminal.journal().lines().empty());
    EXPECT_EQ(terminal.clock().speed(), 1.0);
}

TEST_F(ConsoleTest, AScriptEndsAtItsFirstBadLine) {
    std::istringstream script("battery 3700\nbattery x\nbattery 3600\n");
    EXPECT_EQ(console.run(script), "line 2: not a number: x");
    EXPECT_EQ(terminal.files().read(terminal.battery().path()), "3700\n");
}

TEST_F(ConsoleTest, AConversationEndsWithQuitOrItsInput) {
    std::istringstream input("usb on\nhelp\nquit\nusb off\n");
    std::ostringstream output;
    console.converse(input, output);
    EXPECT_NE(output.str().find("barcode engine"), std::string::npos);
    EXPECT_EQ(terminal.files().read(terminal.usbSupply().path()), "1\n");
    EXPECT_TRUE(console.hasQuit());
}

}  // namespace
