#include "config/SysInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "support/FreshProcess.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::string_literals;
using std::string;
using Entries = std::vector<string>;

// What the boot loader, the factory and the firmware write.
constexpr char Flash[] = "/dev/mtd2";
constexpr char Eeprom[] = "/sys/devices/platform/i2c-gpio/i2c-0/0-0050/eeprom";
constexpr char Release[] = "/release_version";

class BootEnvironmentTest : public test::TerminalTest {
protected:
    /// The value as it stands in a buffer of just that size, or "-" when there is none.
    static string value(const string& name, int size) {
        const auto out = std::make_unique<char[]>(static_cast<size_t>(size));
        std::fill_n(out.get(), size, '?');
        const bool found = SysInfo::getUbootEnv(name.c_str(), out.get(), size);
        return found ? string(out.get(), static_cast<size_t>(size)) : "-";
    }

    void setFlash(const string& entries, size_t size = 1028) {
        string flash = "CRC!" + entries;
        flash.resize(size, '\0');
        terminal.files().write(Flash, flash);
    }
};

TEST_F(BootEnvironmentTest, AnEntryIsFoundByItsWholeNameAndCopiedAsFarAsItFits) {
    const string x300(300, 'x');
    const struct {
        string entries;
        const char* name;
        int size;
        string expected;
    } cases[] = {
        {"serial=123\0"s, "serial", 5, "123\0\0"s},
        {"serialx=1\0serial=2\0"s, "serial", 1, "2"},
        {"seria=1\0Serial=2\0 serial=3\0"s, "serial", 1, "-"},
        {"serial\0serial=1=2\0"s, "serial", 4, "1=2\0"s},
        {"a=1\0\0b=2\0"s, "b", 1, "-"},
        {"a=" + x300 + "\0b=2\0"s, "a", 255, string(253, 'x') + "\0\0"s},
        {x300 + "=1\0b=2\0"s, x300.c_str(), 1, "-"},
        {string(1018, 'x') + "\0b=123"s, "b", 4, "123\0"s},
        {"b=" + x300 + x300 + x300 + x300, "b", 254, string(253, 'x') + "\0"s},
    };
    for (const auto& one : cases) {
        setFlash(one.entries);
        EXPECT_EQ(value(one.name, one.size), one.expected)
            << testing::PrintToString(one.entries) << " " << one.name;
    }
    setFlash(string(1023, 'x') + "\0b=1"s, 2000);
    EXPECT_EQ(value("b", 1), "-") << "past the part that is looked at";
}

TEST_F(BootEnvironmentTest, AnEnvironmentThatCannotBeReadWholeHasNoEntries) {
    for (const size_t size : {0U, 3U, 20U, 1027U, 1028U}) {
        setFlash("a=1", size);
        EXPECT_EQ(value("a", 1), size == 1028 ? "1" : "-") << size;
    }
    terminal.files().remove(Flash);
    EXPECT_EQ(value("a", 1), "-");
}

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
        {{"model=M"}, "\2" + c40, "", "<><><1><0>null<M-1000><> then <><><1><0><><M-1000><>"},
    };
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
