#include "gsm/GsmModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "foundation/Worker.h"
#include "gsm/ScriptedModem.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::inBackground;
using test::ScriptedModem;
using testing::ElementsAre;
using testing::IsEmpty;
using Commands = std::vector<string>;
using Answers = std::deque<string>;

constexpr char Path[] = "/dev/ttyAT2";
constexpr char Ok[] = "\r\nOK\r\n";
constexpr char Error[] = "\r\nERROR\r\n";
constexpr const char* Silence = ScriptedModem::Silence;

string cmeError(int code) { return "\r\n+CME ERROR: " + std::to_string(code) + "\r\n"; }
string lines(const string& text) { return "\r\n" + text + "\r\n\r\nOK\r\n"; }

class GsmModuleTest : public test::TerminalTest {
protected:
    GsmModuleTest() { EXPECT_TRUE(module.open()); }

    sim::SerialLine& line() { return terminal.barcodeLine(); }

    void answer(const string& command, const Answers& answers) { modem.script(command, answers); }

    /// How much simulated time an action takes, in milliseconds.
    template <class Action> long simulatedMs(Action action) {
        const auto begin = terminal.clock().monotonic();
        action();
        return static_cast<long>((terminal.clock().monotonic() - begin) / 1ms);
    }

    /// One exchange by hand.
    int exchange(const char* command, string* text) {
        const LockGuard<GsmModule> held(module);
        return module.writeCommand(command) ? module.readAnswer(text, 300) : -2;
    }

    ScriptedModem modem{line()};
    GsmModule module{Path};
};

TEST_F(GsmModuleTest, ThePortIsOpenedOncePlainAndClosedAgain) {
    EXPECT_EQ(line().settings(), "115200 8N1");
    module.lock();
    EXPECT_FALSE(module.open()) << "and does not wait for the dialogue in progress";
    module.unlock();
    EXPECT_TRUE(module.attachGprs()) << "the port in use is left alone";
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(module.close());
        EXPECT_FALSE(line().isOpen());
    }
    EXPECT_TRUE(module.open());
    EXPECT_EQ(line().settings(), "115200 8N1");
    {
        GsmModule other(Path);
        EXPECT_TRUE(module.close());
        EXPECT_TRUE(other.open());
    }
    EXPECT_FALSE(line().isOpen()) << "closed by the destructor";

    terminal.setPresent(Path, false);
    EXPECT_FALSE(module.open());
    terminal.setPresent(Path, true);
    EXPECT_TRUE(module.open()) << "a failed one leaves nothing behind";
}

TEST_F(GsmModuleTest, OnAClosedModuleEverythingFailsAtOnceAndSendsNothing) {
    module.close();
    tm time{};
    GSM_NETWORK_INFO info;
    string text = "kept";
    const long ms = simulatedMs([&] {
        EXPECT_FALSE(module.initComm());
        EXPECT_FALSE(module.initSIM("1234"));
        EXPECT_FALSE(module.searchNetwork(0));
        EXPECT_FALSE(module.searchNetwork(5));
        EXPECT_FALSE(module.attachGprs());
        EXPECT_FALSE(module.initGprs("internet"));
        EXPECT_FALSE(module.setFrequency(GsmModule::BAND_900_1800));
        EXPECT_FALSE(module.powerSaveMode(GsmModule::POWER_MODE_FULL));
        EXPECT_FALSE(module.readNetworkInfo(info));
        EXPECT_FALSE(module.getRTC(&time));
        EXPECT_FALSE(module.setRTC(&time));
        EXPECT_EQ(module.getVersion(), "");
        EXPECT_FALSE(module.writeCommand("AT"));
        EXPECT_EQ(module.readAnswer(&text, 5000), -1);
        EXPECT_EQ(module.readAnswer(5000), -1);
    });
    EXPECT_LT(ms, 500);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(modem.takeBytes(), "");
}

TEST_F(GsmModuleTest, AnAnswerIsWhatStandsBehindTheEcho) {
    const struct {
        string reply;  // behind the echo
        int result;
        string text;
    } cases[] = {
        {Ok, 0, "OK\r\n"},
        {"\n \t\r\n+CREG: 0,1\r\n\r\nOK\r\n", 0, "+CREG: 0,1\r\n\r\nOK\r\n"},
        {Error, 4, "ERROR\r\n"},
        {cmeError(10), 7, "+CME ERROR: 10\r\n"},
        {"\r\nRING\r\n\r\nOK\r\n", 2, "RING\r\n"},
        {"\r\n+CPIN: READY\r\n", -1, "+CPIN: READY\r\n"},  // no result within the limit
        {string("\r\na\0b\r\n\r\nOK\r\n", 13), 0, "a"},
        {Silence, -1, "kept"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::PrintToString(expected.reply));
        for (const size_t pieceSize : {0U, 1U}) {
            line().fragment(pieceSize);
            answer("AT+X", {expected.reply});
            string text = "kept";
            EXPECT_EQ(exchange("AT+X", &text), expected.result);
            EXPECT_EQ(text, expected.text);
        }
    }
    EXPECT_TRUE(module.attachGprs()) << "what came too late is not this command's answer";
}

TEST_F(GsmModuleTest, AnAnswerWithoutAnEchoOrALimitIsNone) {
    string text = "kept";
    modem.takeBytes();
    module.lock();
    EXPECT_EQ(module.readAnswer(&text, 0), -1);
    line().send("\nOK\n");
    EXPECT_EQ(module.readAnswer(&text, 200), -1);
    EXPECT_EQ(text, "kept");

    const string full = "AT\r" + string(127, 'x');  // no result within the first 128 bytes
    line().send(full + Ok);
    EXPECT_EQ(module.readAnswer(&text, 200), -1);
    EXPECT_EQ(text, full.substr(3, 125));
    module.unlock();

    EXPECT_FALSE(module.writeCommand(nullptr));
    EXPECT_TRUE(module.writeCommand(""));
    EXPECT_TRUE(test::soon([&] { return modem.takeBytes() == "\r"; }));

    string answerText = "+CREG: 0,1";
    EXPECT_TRUE(GsmModule::answerStartsWith(answerText, ""));
    EXPECT_TRUE(GsmModule::answerStartsWith(answerText, "+CREG:"));
    EXPECT_TRUE(GsmModule::answerStartsWith(answerText, "+CREG: 0,1"));
    EXPECT_FALSE(GsmModule::answerStartsWith(answerText, "+CREG: 0,1\r"));
    EXPECT_FALSE(GsmModule::answerStartsWith(answerText, "+creg"));
    EXPECT_FALSE(GsmModule::answerStartsWith(answerText, "CREG"));
}

TEST_F(GsmModuleTest, TheSetUpProbesThenStopsAtTheFirstStepThatFails) {
    const Commands whole{"AT", "AT+CMEE=1", "AT+IPR=115200", "AT&K3", "AT#SELINT=2"};
    const struct {
        string command;
        Answers answers;
        bool result;
        Commands sent;
        bool flowControlled;
        long leastMs, mostMs;
    } cases[] = {
        {"AT", {Ok}, true, whole, true, 100, 700},
        {"AT",
         {Error, Error, Ok},
         true,
         {"AT", "AT", "AT", "AT+CMEE=1", "AT+IPR=115200", "AT&K3", "AT#SELINT=2"},
         true,
         500,
         1500},
        {"AT",
         {Silence},
         true,
         {"AT", "AT", "AT", "AT", "AT", "AT+CMEE=1", "AT+IPR=115200", "AT&K3", "AT#SELINT=2"},
         true,
         1900,
         3500},
        {"AT+CMEE=1", {Error}, false, {"AT", "AT+CMEE=1"}, false, 40, 500},
        {"AT+CMEE=1", {Silence}, false, {"AT", "AT+CMEE=1"}, false, 500, 1500},
        {"AT+IPR=115200",
         {cmeError(4)},
         false,
         {"AT", "AT+CMEE=1", "AT+IPR=115200"},
         false,
         60,
         500},
        {"AT&K3",
         {Error, Ok},
         true,
         {"AT", "AT+CMEE=1", "AT+IPR=115200", "AT&K3", "AT&K3", "AT#SELINT=2"},
         true,
         600,
         1500},
        {"AT&K3",
         {Error},
         false,
         {"AT", "AT+CMEE=1", "AT+IPR=115200", "AT&K3", "AT&K3"},
         true,
         600,
         1500},
        {"AT#SELINT=2", {Error}, false, whole, true, 100, 700},
        {"AT#SELINT=2", {"\r\nCONNECT\r\n"}, false, whole, true, 100, 700},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.command + testing::PrintToString(expected.answers));
        answer(expected.command, expected.answers);
        const long ms = simulatedMs([&] { EXPECT_EQ(module.initComm(), expected.result); });
        EXPECT_GE(ms, expected.leastMs);
        EXPECT_LT(ms, expected.mostMs + 2000) << "a busy machine adds to it";
        EXPECT_EQ(modem.takeCommands(), expected.sent);
        EXPECT_EQ(line().settings(), expected.flowControlled ? "115200 8N1 rtscts" : "115200 8N1");
        answer(expected.command, {Ok});
        module.close();
        ASSERT_TRUE(module.open());
    }
}

TEST_F(GsmModuleTest, TheSimIsAskedUntilItIsReadyAndGetsItsPinOnce) {
    const string question = "AT+CPIN?";
    const string pin = "AT+CPIN=1234";
    const string needsPin = lines("+CPIN: SIM PIN");
    const string ready = lines("+CPIN: READY");
    const struct {
        Answers toQuestion, toPin;
        bool result;
        Commands sent;
        long pausesMs;
    } cases[] = {
        {{ready}, {}, true, {question}, 0},
        {{"\r\n+CPIN: READY\r\n"}, {}, true, {question}, 0},  // cut, but said
        {{Ok}, {}, true, {question}, 0},
        {{needsPin}, {Ok}, true, {question, pin}, 0},
        {{needsPin}, {cmeError(16)}, false, {question, pin}, 0},
        {{needsPin}, {cmeError(15)}, false, {question, pin}, 0},
        {{lines("+CPIN: SIM PUK")}, {}, false, {question}, 0},
        {{cmeError(14), cmeError(13), cmeError(10), needsPin},
         {Ok},
         true,
         {question, question, question, question, pin},
         2250},
        {{Error, "\r\nRING\r\n", ready}, {}, true, {question, question, question}, 1000},
        {{needsPin, ready}, {Silence}, true, {question, pin, question}, 500},
        {{cmeError(10)}, {}, false, Commands(10, question), 10000},
        {{needsPin},
         {Error},
         false,
         {question, pin, question, pin, question, pin, question, pin, question, pin},
         2500},
    };
    terminal.clock().setSpeed(10);
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::PrintToString(expected.toQuestion));
        answer(question, expected.toQuestion);
        answer(pin, expected.toPin.empty() ? Answers{Error} : expected.toPin);
        const long ms = simulatedMs([&] { EXPECT_EQ(module.initSIM("1234"), expected.result); });
        EXPECT_GE(ms, expected.pausesMs);
        EXPECT_EQ(modem.takeCommands(), expected.sent);
    }
    answer(question, {needsPin});
    answer(pin, {Ok});
    modem.takeBytes();
    EXPECT_TRUE(module.initSIM("1234"));
    EXPECT_EQ(modem.takeBytes(), "AT+CPIN?\rAT+CPIN=1234\r\r");
}

TEST_F(GsmModuleTest, TheOperatorIsChosenAndRegistrationAwaitedAsAskedFor) {
    const string automatic = "AT+COPS=0,2";
    const string numeric = "AT+COPS=3,2";
    const string question = "AT+CREG?";
    const string searching = lines("+CREG: 0,2");
    const auto asked = [&](int times) {
        Commands commands{automatic, numeric};
        commands.insert(commands.end(), static_cast<size_t>(times), question);
        return commands;
    };
    const struct {
        int tries;
        string command;
        Answers answers;
        bool result;
        Commands sent;
        long leastMs;
    } cases[] = {
        {0, question, {Silence}, true, {automatic, numeric}, 0},
        {-1, question, {Ok}, false, {automatic, numeric}, 0},
        {0,
         automatic,
         {Error, cmeError(30), Ok},
         true,
         {automatic, automatic, automatic, numeric},
         1000},
        {0, automatic, {Error}, false, {automatic, automatic, automatic}, 1500},
        {5, numeric, {Error}, false, {automatic, numeric}, 0},
        {5,
         question,
         {searching, searching, searching, searching, lines("+CREG: 0,5")},
         true,
         asked(5),
         4000},
        {5, question, {lines("+CREG: 0, 1,\"00D5\",\"1A2B\"")}, true, asked(1), 0},
        {3, question, {searching}, false, asked(3), 2000},
        {2, question, {lines("+CREG: 0,11"), "\r\n+CREG: 0,1"}, true, asked(2), 1000},
        {2, question, {lines("CREG: 0,1"), lines("+CREG: 1")}, false, asked(2), 1000},
        {9, question, {Silence}, false, asked(3), 32000},
        {6,
         question,
         {Silence, Silence, Error, Silence, Silence, searching},
         false,
         asked(6),
         45000},
    };
    terminal.clock().setSpeed(20);
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.command + testing::PrintToString(expected.answers));
        for (const string& command : {automatic, numeric, question})
            answer(command, command == expected.command ? expected.answers : Answers{Ok});
        const long ms =
            simulatedMs([&] { EXPECT_EQ(module.searchNetwork(expected.tries), expected.result); });
        EXPECT_GE(ms, expected.leastMs);
        EXPECT_EQ(modem.takeCommands(), expected.sent);
    }
    answer("AT+CGATT=1", {Error, "\r\nCONNECT\r\n", Ok});
    EXPECT_FALSE(module.attachGprs());
    EXPECT_FALSE(module.attachGprs());
    EXPECT_TRUE(module.attachGprs());
}

TEST_F(GsmModuleTest, TheContextIsDefinedWithItsQualityOfService) {
    const string context = R"(AT+CGDCONT=1,"IP","internet","0.0.0.0",0,0)";
    const string least = "AT+CGQMIN=1,0,0,0,0,0";
    const string requested = "AT+CGQREQ=1,0,0,0,0,0";
    EXPECT_TRUE(module.initGprs("internet"));
    EXPECT_THAT(modem.takeCommands(), ElementsAre(context, least, requested));

    answer(context, {cmeError(14), cmeError(14), Ok});  // a SIM that is still busy
    EXPECT_TRUE(module.initGprs("internet"));
    EXPECT_THAT(modem.takeCommands(), ElementsAre(context, context, context, least, requested));
    answer(least, {Error});
    EXPECT_FALSE(module.initGprs("internet"));
    EXPECT_THAT(modem.takeCommands(), ElementsAre(context, least, least, least));
    answer(least, {Ok});

    EXPECT_TRUE(module.initGprs("")) << "the subscription's own";
    EXPECT_TRUE(module.initGprs(string(100, 'a').c_str())) << "the echo alone is over 128 bytes";
    modem.takeCommands();
    for (const char* apn : {"a\"b", "a\rb", "a\x7f", "\xc3\xa4"})
        EXPECT_FALSE(module.initGprs(apn));
    EXPECT_FALSE(module.initGprs(nullptr));

    for (const int band : {-1, 4, INT_MAX})
        EXPECT_FALSE(module.setFrequency(GsmModule::ModuleFreqBand(band)));
    for (const int mode : {-1, 128, INT_MIN})
        EXPECT_FALSE(module.powerSaveMode(GsmModule::ModulePowerMode(mode)));
    EXPECT_THAT(modem.takeCommands(), IsEmpty()) << "nothing is sent for what cannot be";
    EXPECT_TRUE(module.setFrequency(GsmModule::BAND_850_1900));
    EXPECT_TRUE(module.powerSaveMode(GsmModule::POWER_MODE_FULL_SAVING));
    EXPECT_THAT(modem.takeCommands(), ElementsAre("AT#AUTOBND=1", "AT#BND=3", "AT+CFUN=5"));
    answer("AT#AUTOBND=1", {Error});
    answer("AT+CFUN=0", {cmeError(3)});
    EXPECT_FALSE(module.setFrequency(GsmModule::BAND_900_1800));
    EXPECT_FALSE(module.powerSaveMode(GsmModule::POWER_MODE_MINIMUM));
}

TEST_F(GsmModuleTest, TheNetworkIsToldOrNothingIsChanged) {
    const string cell = lines(
        "#MONI: Long Named Operator Of The Country BSIC:56 RxQual:0 LAC:E5AC Id:18B1 ARFCN:94 "
        "PWR:-78dbm TA:1 and some more fields that push the result behind 128 bytes");
    const auto registration = [](int status) {
        return lines("+CREG: 0," + std::to_string(status));
    };
    const struct {
        string cell, registration;
        bool result;
        int status;
        string name;
        int power, channel;
    } cases[] = {
        {cell, registration(1), true, 1, "Long Named Operator Of The Country", -78, 94},
        {cell, registration(5), true, 5, "Long Named Operator Of The Country", -78, 94},
        {lines("#MONI: PWR: -60 dBm"), registration(1), true, 1, "", -60, -1},
        {lines("#MONI: Net BSIC:1\r\n ARFCN:7 PWR:-60dbm"), registration(1), true, 1, "Net", -60,
         7},
        {Error, registration(2), true, 2, "", GSM_NETWORK_INFO::NoPower, -1},
        {Silence, registration(0), true, 0, "", GSM_NETWORK_INFO::NoPower, -1},
        {lines("#MONI: Cc:222 Nc:01 PWR:-90dbm"), registration(3), true, 3, "", -90, -1},
        {Error, registration(1), false, 0, "", 0, 0},
        {lines("#MONI: Net BSIC:1 ARFCN:7"), registration(5), false, 0, "", 0, 0},
        {lines("#MONI: Net PWR:much"), registration(1), false, 0, "", 0, 0},
        {cell, registration(11), false, 0, "", 0, 0},
        {cell, Error, false, 0, "", 0, 0},
        {cell, "\r\n+CREG: 0,1\r\n", false, 0, "", 0, 0},
        {cell, Silence, false, 0, "", 0, 0},
    };
    terminal.clock().setSpeed(4);
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.cell + expected.registration);
        answer("AT#MONI", {expected.cell});
        answer("AT+CREG?", {expected.registration});
        GSM_NETWORK_INFO info;
        info.operatorName = "kept";
        info.power = 1;
        EXPECT_EQ(module.readNetworkInfo(info), expected.result);
        EXPECT_EQ(info.registrationStatus, expected.result ? expected.status : 0);
        EXPECT_EQ(info.operatorName, expected.result ? expected.name : "kept");
        EXPECT_EQ(info.power, expected.result ? expected.power : 1);
        EXPECT_EQ(info.channel, expected.result ? expected.channel : -1);
    }
}

TEST_F(GsmModuleTest, TheClockIsReadAndSetInTheModulesOwnForm) {
    answer("AT+CCLK?", {lines("+CCLK: \"04/05/06,22:10:00-08\""), lines("+CCLK: \"0\""), Error,
                        "\r\n+CCLK: \"04/05/06,22:10:00-08\"\r\n"});
    tm time{};
    ASSERT_TRUE(module.getRTC(&time));
    EXPECT_EQ(time.tm_year, 104);
    EXPECT_EQ(time.tm_gmtoff, -8);
    for (int bad = 0; bad < 3; ++bad)
        EXPECT_FALSE(module.getRTC(&time));
    EXPECT_FALSE(module.getRTC(nullptr));
    EXPECT_FALSE(module.setRTC(nullptr));
    EXPECT_EQ(time.tm_mday, 6) << "unchanged";
    modem.takeCommands();

    const struct {
        int year;
        long zone;
        string command;
    } cases[] = {{104, 8, R"(AT+CCLK="04/05/06,22:10:00+08")"},
                 {200, 0, R"(AT+CCLK="100/05/06,22:10:00+00")"},
                 {99, -4, R"(AT+CCLK="-1/05/06,22:10:00--4")"},  // two signs: kept
                 {INT_MIN, -12, R"(AT+CCLK="-2147483748/05/06,22:10:00--12")"}};
    for (const auto& [year, zone, command] : cases) {
        time.tm_year = year;
        time.tm_gmtoff = zone;
        EXPECT_TRUE(module.setRTC(&time));
        EXPECT_THAT(modem.takeCommands(), ElementsAre(command));
        answer(command, {Error});
        EXPECT_FALSE(module.setRTC(&time));
        modem.takeCommands();
    }
}

TEST_F(GsmModuleTest, TheVersionIsAskedForUntilItIsKnown) {
    answer("AT+CGMR", {Error, Ok, Silence, lines("12.00.003")});
    for (int unknown = 0; unknown < 3; ++unknown)
        EXPECT_EQ(module.getVersion(), "");
    EXPECT_EQ(module.getVersion(), "12.00.003");
    EXPECT_EQ(modem.takeCommands(), Commands(4, "AT+CGMR"));
    EXPECT_EQ(module.getVersion(), "12.00.003");
    module.close();
    EXPECT_EQ(module.getVersion(), "12.00.003") << "also while closed";
    EXPECT_THAT(modem.takeCommands(), IsEmpty());
}

TEST_F(GsmModuleTest, DialoguesOfSeveralThreadsDoNotMix) {
    answer("AT+CREG?", {lines("+CREG: 0,2"), lines("+CREG: 0,1")});
    auto search = inBackground([&] { return module.searchNetwork(2); });
    ASSERT_TRUE(test::soon([&] { return modem.commandCount() == 3; }));
    EXPECT_TRUE(module.attachGprs());  // asked for in the pause of the search
    EXPECT_TRUE(search.get());
    EXPECT_THAT(modem.takeCommands(),
                ElementsAre("AT+COPS=0,2", "AT+COPS=3,2", "AT+CREG?", "AT+CREG?", "AT+CGATT=1"));
}

TEST_F(GsmModuleTest, ACancelledWorkerLeavesTheModuleUsable) {
    answer("AT+CPIN?", {Silence});
    for (int round = 0; round < 3; ++round) {
        test::Worker worker([&](test::Worker&) { module.initSIM("1234"); });
        ASSERT_TRUE(worker.start());
        ASSERT_TRUE(test::soon([&] { return modem.commandCount() > 0; }));
        EXPECT_TRUE(worker.terminate());
        modem.takeCommands();
        EXPECT_TRUE(module.attachGprs()) << "the lock is free";
        modem.takeCommands();
    }
    EXPECT_TRUE(module.close());
}

TEST_F(GsmModuleTest, ALineThatHangsUpEndsADialogueWithoutWaiting) {
    line().hangUp();
    const long ms = simulatedMs([&] {
        EXPECT_FALSE(module.attachGprs());
        EXPECT_FALSE(module.initComm());
    });
    EXPECT_LT(ms, 2500) << "none of the limits is waited for";
    EXPECT_TRUE(module.close());
    EXPECT_TRUE(module.open());
    EXPECT_TRUE(module.attachGprs());
}

}  // namespace
