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
        {"+CREG: 0,1\r\n\r\nOK\r\n", 1},
        {"+CREG:2,5,\"00D5\",\"1A2B\",7\r\n", 5},
        {"  +CREG :0,1", nullopt},
        {"\t +CREG:  1 , 10  \r\n", 10},
        {"+CREG: 1\r\n\r\n+CREG: 0,2\r\n", 2},                    // behind a notice
        {"+CREG: 1,\"00D5\",\"1A2B\"\r\n\r\n+CREG: 2,5\r\n", 5},  // behind a longer one
        {"+CREG: 0,11", nullopt},
        {"+CREG: 0,-1", nullopt},
        {"+CREG: 0,1x", nullopt},
        {"+CREG: 0,1 2", nullopt},
        {"+CREG: ,1", nullopt},
        {"+CREG: 0,99999999999999999999", nullopt},
        {"+CREG: 0\r\n,1", nullopt},
        {"", nullopt},
    };
    for (const auto& [answer, status] : cases)
        EXPECT_EQ(at::registrationStatus(answer), status) << answer;
}

TEST(AtAnswerTest, ACellKeepsTheFieldsThatParseAndMissesTheOthers) {
    const struct {
        std::string_view answer;
        std::string_view name;
        Number bsic, rxQual, channel, power;
    } cases[] = {
        {"#MONI: Operator One BSIC:56 RxQual:0 LAC:E5AC Id:18B1 ARFCN:94 PWR:-78dbm TA:1\r\n",
         "Operator One", 56, 0, 94, -78},
        {"#MONI:  \"Net 1\"   PWR: -113 dBm  ARFCN: 1023\tRxQual: 7 BSIC: 0\r\n", "Net 1", 0, 7,
         1023, -113},
        {"#MONI: One BSIC:1\r\n RxQual:2 ARFCN:3\r\n PWR:-4dbm", "One", 1, 2, 3, -4},
        {"#MONI: Cc:222 Nc:01 BSIC:56 PWR:-60 dBm\r\n", "", 56, nullopt, nullopt, -60},
        {"#MONI: XPWR:-1 MyBSIC:3 PWR:-80\r\n", "XPWR:-1 MyBSIC:3", nullopt, nullopt, nullopt, -80},
        {"RING\r\n#MONI: BSIC:99 RxQual:8 ARFCN:65536 PWR:-201\r\n", "", 99, nullopt, nullopt,
         nullopt},
        {"#MONI: Net BSIC:xx RxQual: ARFCN:- PWR:+5\r\n", "Net", nullopt, nullopt, nullopt,
         nullopt},
        {"#MONI: PWR:99999999999\r\nPWR:-5", "", nullopt, nullopt, nullopt, nullopt},
        {"#MONI: \"\r\n", "\"", nullopt, nullopt, nullopt, nullopt},
        {"#MONI:", "", nullopt, nullopt, nullopt, nullopt},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.answer);
        const std::optional<at::Cell> cell = at::servingCell(expected.answer);
        ASSERT_TRUE(cell);
        EXPECT_EQ(std::tie(cell->networkName, cell->bsic, cell->rxQual, cell->channel, cell->power),
                  std::tuple(expected.name, expected.bsic, expected.rxQual, expected.channel,
                             expected.power));
    }
    for (const std::string_view answer : {"", "MONI: Net PWR:-78", "x#MONI: Net", "OK\r\n"})
        EXPECT_FALSE(at::servingCell(answer)) << answer;
}

TEST(AtAnswerTest, AClockTimeIsADateThatExists) {
    const struct {
        std::string_view answer, time;  // with the day of the week and that of the year
        int zone;                       // in quarters of an hour
    } cases[] = {
        {"+CCLK: \"04/05/06,22:10:00+08\"\r\n", "2004-05-06 22:10:00 4 127", 8},
        {"+CCLK: \"00/01/01,00:00:00\"\r\n", "2000-01-01 00:00:00 6 001", 0},
        {"+CCLK: \"99/12/31,23:59:59-96\"\r\n", "2099-12-31 23:59:59 4 365", -96},
        {"+CCLK: 24/02/29 , 1: 2:3 +0\r\n", "2024-02-29 01:02:03 4 060", 0},
        {"+CCLK: \"25/02/29,01:02:03\"\r\n+CCLK:\"24/12/31,01:02:03\"", "2024-12-31 01:02:03 2 366",
         0},
    };
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
         {"04/13/06,22:10:00", "04/00/06,22:10:00", "04/04/31,22:10:00", "01/02/29,22:10:00",
          "04/05/00,22:10:00", "04/05/06,24:10:00", "04/05/06,22:60:00", "04/05/06,22:10:60",
          "-1/05/06,22:10:00", "100/05/06,22:10:00", "04/05/06,22:10:00+97", "04/05/06,22:10:00-97",
          "04/05/06,22:10:00--4", "04/05/06,22:10:00+", "04/05/06,22:10", "04/05/06 22:10:00",
          "04/05/06,22:10:00+08x", "04/05", ""})
        EXPECT_FALSE(at::clockTime("+CCLK: \"" + std::string(broken) + "\"\r\n")) << broken;
    EXPECT_FALSE(at::clockTime("\"04/05/06,22:10:00+08\"\r\n"));
}

TEST(AtAnswerTest, TheFirstLineIsATextOrNothing) {
    EXPECT_EQ(at::firstLine("12.00.003\r\n\r\nOK\r\n"), "12.00.003");
    EXPECT_EQ(at::firstLine(" v 1 "), "v 1");
    EXPECT_EQ(at::firstLine("OK\r\n"), "");
}

}  // namespace
