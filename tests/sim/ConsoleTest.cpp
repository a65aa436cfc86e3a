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
                              "card pull\n"
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

TEST_F(ConsoleTest, AnAwaitFindsWhatHappenedSinceTheLastOneAndABadLineEndsAScript) {
    for (const char* text : {"one", "two", "one"})
        terminal.journal().note("engine", text);
    std::istringstream script("await engine: one\nawait engine: one\nbattery x\nbattery 3600\n");
    EXPECT_EQ(console.run(script), "line 3: not a number: x");
    EXPECT_NE(terminal.files().read(terminal.battery().path()), "3600\n");
}

TEST_F(ConsoleTest, ABadLineSaysWhatIsWrongAndChangesNothing) {
    const std::string battery = terminal.files().read(terminal.battery().path());
    for (const char* line :
         {"battery", "battery full", "battery nan", "battery 1e30", "usb maybe", "wait -1",
          "speed 0", "speed 1e-7", "speed 1e9", "wlan channel 1000000000", "key 30 sideways",
          "mute barcode", "mute gps on", "line bt up", "no-such-command", "\x01\xFF",
          "barcode present"})
        EXPECT_NE(console.execute(line), "") << line;
    EXPECT_EQ(terminal.files().read(terminal.battery().path()), battery);
    EXPECT_TRUE(terminal.journal().lines().empty());
    EXPECT_EQ(terminal.clock().speed(), 1.0);
}

}  // namespace
