#include "config/SysInfo.h"

#include "support/FreshProcess.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::string_literals;
using std::string;
using Entries = std::vector<string>;

// What the boot loader, the factory and the firmware write.
constexpr char Flash[] = "/dev/mtd2";
constexpr char Eeprom[] = "/sys/devices/platform/i2c-gpio/i2c-0/0-0050/eeprom";
constexpr char Release[] = "/release_version";

/// Every answer, an item in brackets each; asked twice, since answers are kept.
string answers() {
    const auto text = [](const char* answer) {
        return answer ? "<" + string(answer) + ">" : "null";
    };
    string all;
    for (int round = 0; round < 2; ++round) {
        string now = text(SysInfo::getSerialNumber());
        now += text(SysInfo::getHardwareRevision());
        now += "<" + std::to_string(SysInfo::getCommModule()) + ">";
        now += "<" + std::to_string(SysInfo::getManufTimeStamp()) + ">";
        now += text(SysInfo::getScannerInformation());
        now += text(SysInfo::getModelType());
        now += text(SysInfo::getFirmwareVersion());
        all += now == all ? "" : (all.empty() ? "" : " then ") + now;
    }
    return all;
}

TEST(SysInfoTest, AnEnvironmentThatCannotBeReadWholeHasNoEntries) {
    sim::Terminal terminal;
    char value[2] = "?";
    for (const size_t size : {0U, 3U, 20U, 1027U, 1028U}) {
        string flash = "CRC!a=1";
        flash.resize(size, '\0');
        terminal.files().write(Flash, flash);
        EXPECT_EQ(SysInfo::getUbootEnv("a", value, 2), size == 1028) << size;
    }
    EXPECT_STREQ(value, "1");
    terminal.files().remove(Flash);
    terminal.files().remove(Eeprom);
    EXPECT_FALSE(SysInfo::getUbootEnv("a", value, 2) || SysInfo::getScannerInformation());
}

TEST(SysInfoTest, AnswersComeFromTheEnvironmentTheEepromAndTheReleaseFile) {
    const string c40 = "0123456789012345678901234567890123456789";
    const Entries usual = {"serial=S1", "hwrev=C", "model=X9", "cmtype=1", "mfdate=1268649600"};
    const struct {
        Entries environment;
        string eeprom;
        string release;
        string expected;
    } cases[] = {
        {usual, "\1BR"s + string(18, '\0'), "1.2.3\r\n",
         "<S1><C><1><1268649600><BR><X9-1BR><1.2.3>"},
        {usual, "\1"s + string(20, '\0'), "\n", "<S1><C><1><1268649600><><X9-1000><\n>"},
        {{}, "", "", "<><><1><0>null<-1000><>"},
        {{"serial=" + c40, "model=" + c40, "cmtype=7x", "mfdate=99999999999"},
         "",
         c40,
         "<" + c40.substr(0, 31) + "><><7><4294967295>null<" + c40.substr(0, 31) + "><" +
             c40.substr(0, 31) + ">"},
        {{"cmtype=" + c40, "mfdate=0"},
         "\1",
         "1",
         "<><><2147483647><0>null<-2147483647000><1>"
         " then <><><2147483647><0><><-2147483647000><1>"},
        {{"model=M"}, "\2" + c40, "", "<><><1><0>null<M-1000><> then <><><1><0><><M-1000><>"}};
    for (const auto& one : cases) {
        EXPECT_EQ(test::inFreshProcess([&] {
                      sim::Terminal terminal;
                      terminal.identity().setEnvironment(one.environment);
                      terminal.files().write(Eeprom, one.eeprom);
                      terminal.files().write(Release, one.release);
                      return answers();
                  }),
                  one.expected);
    }
}

}  // namespace
