#include "gsm/AtAnswer.h"

#include <gtest/gtest.h>

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace {

using std::nullopt;
using Number = std::optional<int>;

TEST(AtAnswerTest, TheRegistrationIsTheSecondNumberOfAWholeLine) {
    const struct {
        std::string_view answer;
        Number status;
    } cases[] = {
        {"+CREG: 0,1\r\n\r\nOK\r\n", 1}, {"+CREG:2,5,\"00D5\",\"1A2B\",7\r\n", 5},
        {"\t +CREG:  1 , 10  \r\n", 10}, {"+CREG: 1\r\n\r\n+CREG: 0,2\r\n", 2},  // behind a notice
        {"+CREG: 0,11", nullopt},        {"+CREG: 0,99999999999999999999", nullopt},
    };
    for (const auto& [answer, status] : cases)
        EXPECT_EQ(at::registrationStatus(answer), status) << answer;
}

TEST(AtAnswerTest, ACellHasItsNameAndTheFieldsThatAreNumbersTheyCanBe) {
    const auto all = [](const std::optional<at::Cell>& cell) {
        return std::tuple(cell->networkName, cell->bsic, cell->rxQual, cell->channel, cell->power);
    };
    const auto told = [&](std::string_view answer) { return all(at::servingCell(answer)); };
    EXPECT_EQ(told("#MONI: Net BSIC:41 RxQual:3 LAC:00D5 ARFCN:62 PWR:-73dbm\r\n\r\nOK\r\n"),
              all(at::Cell{"Net", 41, 3, 62, -73}));
    EXPECT_EQ(told("#MONI:\" My Net \" PWR: -200dbm ARFCN:65535"),
              all(at::Cell{"My Net", nullopt, nullopt, 65535, -200}));
    EXPECT_EQ(told("AT#MONI: no\r\n#MONI: MetaTA:1 XPWR:-5 PWR:0"),
              all(at::Cell{"MetaTA:1 XPWR:-5", nullopt, nullopt, nullopt, 0}));
    EXPECT_EQ(told("#MONI: \" BSIC:FF RxQual:8 ARFCN:65536 PWR:-201dbm"),
              all(at::Cell{"\"", nullopt, nullopt, nullopt, nullopt}));
    EXPECT_FALSE(at::servingCell("AT#MONI: Net"));
}

TEST(AtAnswerTest, AClockTimeIsADateThatExists) {
    const struct {
        std::string_view answer, time;  // with the day of the week and that of the year
        int zone;                       // in quarters of an hour
    } cases[] = {{"+CCLK: \"04/05/06,22:10:00+08\"\r\n", "2004-05-06 22:10:00 4 127", 8},
                 {"+CCLK: \"99/12/31,23:59:59-96\"\r\n", "2099-12-31 23:59:59 4 365", -96},
                 {"+CCLK: 24/02/29 , 1: 2:3 +0\r\n", "2024-02-29 01:02:03 4 060", 0},
                 {"+CCLK: \"25/02/29,01:02:03\"\r\n+CCLK:\"24/12/31,01:02:03\"",
                  "2024-12-31 01:02:03 2 366", 0}};
    for (const auto& [answer, expected, zone] : cases) {
        SCOPED_TRACE(answer);
        const std::optional<tm> time = at::clockTime(answer);
        ASSERT_TRUE(time);
        char text[64];
        strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %w %j", &*time);
        EXPECT_EQ(text, expected);
        EXPECT_EQ(time->tm_isdst, -1);
        EXPECT_EQ(time->tm_gmtoff, zone);
    }
    for (const std::string_view broken :
         {"04/13/06,22:10:00", "04/00/06,22:10:00", "01/02/29,22:10:00", "04/05/06,24:10:00",
          "04/05/06,22:10:60", "-1/05/06,22:10:00", "100/05/06,22:10:00", "04/05/06,22:10:00+97",
          "04/05/06,22:10:00--4", "04/05/06,22:10:00+", "04/05/06,22:10", "04/05", ""})
        EXPECT_FALSE(at::clockTime("+CCLK: \"" + std::string(broken) + "\"\r\n")) << broken;
}

}  // namespace
