#include "gsm/GsmModule.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <deque>
#include <string>

#include "foundation/Worker.h"
#include "gsm/ScriptedModem.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::inBackground;
using test::ScriptedModem;
using Answers = std::deque<string>;

constexpr char Path[] = "/dev/ttyAT2";
constexpr char Ok[] = "\r\nOK\r\n";
constexpr char Error[] = "\r\nERROR\r\n";
constexpr const char* Silence = ScriptedModem::Silence;

string cmeError(int code) { return "\r\n+CME ERROR: " + std::to_string(code) + "\r\n"; }
string times(int count, const string& text) {
    return count > 0 ? text + times(count - 1, text) : "";
}
string lines(const string& text) { return "\r\n" + text + "\r\n\r\nOK\r\n"; }

class GsmModuleTest : public test::TerminalTest {
protected:
    GsmModuleTest() { EXPECT_TRUE(module.open()); }

    sim::SerialLine& line() { return terminal.barcodeLine(); }

    /// How much simulated time an action takes, in milliseconds.
    template <class Action> long simulatedMs(Action action) {
        const auto begin = terminal.clock().monotonic();
        action();
        return static_cast<long>((terminal.clock().monotonic() - begin) / 1ms);
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
    EXPECT_TRUE(GsmModule(Path).open());
    EXPECT_FALSE(line().isOpen()) << "closed by the destructor";
    terminal.setPresent(Path, false);
    EXPECT_FALSE(module.open());
    terminal.setPresent(Path, true);
    EXPECT_TRUE(module.open()) << "a failed one leaves nothing behind";
    EXPECT_EQ(line().settings(), "115200 8N1");

    line().hangUp();
    EXPECT_LT(simulatedMs([&] {
                  EXPECT_FALSE(module.attachGprs());
                  EXPECT_FALSE(module.initComm());
              }),
              2500)
        << "none of the limits is waited for";
    EXPECT_TRUE(module.close());
    EXPECT_TRUE(module.open());
    EXPECT_TRUE(module.attachGprs());
}

TEST_F(GsmModuleTest, OnAClosedModuleEverythingFailsAtOnceAndSendsNothing) {
    modem.script("AT+CGMR", {Error, Ok, Silence, lines("12.00.003")});
    for (const char* version : {"", "", "", "12.00.003", "12.00.003"})
        EXPECT_EQ(module.getVersion(), version) << "asked for until it is known";
    EXPECT_EQ(modem.takeCommands(), "AT+CGMR AT+CGMR AT+CGMR AT+CGMR ");
    module.close();
    EXPECT_EQ(module.getVersion(), "12.00.003") << "known also while closed";
    tm time{};
    GSM_NETWORK_INFO info;
    string text = "kept";
    const long ms = simulatedMs([&] {
        EXPECT_FALSE(module.initComm());
        EXPECT_FALSE(module.initSIM("1234"));
        EXPECT_FALSE(module.searchNetwork(5));
        EXPECT_FALSE(module.attachGprs());
        EXPECT_FALSE(module.readNetworkInfo(info));
        EXPECT_FALSE(module.getRTC(&time));
        EXPECT_FALSE(module.writeCommand("AT"));
        EXPECT_EQ(module.readAnswer(&text, 5000), -1);
    });
    EXPECT_LT(ms, 500);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(modem.takeCommands(), "");
}

TEST_F(GsmModuleTest, AnAnswerIsWhatStandsBehindTheEcho) {
    const struct {
        string reply;  // behind the echo
        int result;
        string text;
    } cases[] = {
        {"\n \t\r\n+CREG: 0,1\r\n\r\nOK\r\n", 0, "+CREG: 0,1\r\n\r\nOK\r\n"},
        {cmeError(10), 7, "+CME ERROR: 10\r\n"},
        {"\r\nRING\r\n\r\nOK\r\n", 2, "RING\r\n"},
        {"\r\n+CPIN: READY\r\n", -1, "+CPIN: READY\r\n"},  // no result within the limit
        {string("\r\na\0b\r\n\r\nOK\r\n", 13), 0, "a"},
        {Silence, -1, "kept"},
    };
    terminal.clock().setSpeed(2);
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::PrintToString(expected.reply));
        for (const size_t pieceSize : {0U, 1U}) {
            line().fragment(pieceSize);
            modem.script("AT+X", {expected.reply});
            string text = "kept";
            const LockGuard<GsmModule> held(module);
            EXPECT_TRUE(module.writeCommand("AT+X"));
            EXPECT_EQ(module.readAnswer(&text, 300), expected.result);
            EXPECT_EQ(text, expected.text);
        }
    }
    EXPECT_TRUE(module.attachGprs()) << "what came too late is not this command's answer";

    string text = "kept";
    modem.takeCommands();
    module.lock();
    line().send("\nOK\n");
    EXPECT_EQ(module.readAnswer(&text, 200), -1) << "without an echo";
    EXPECT_EQ(text, "kept");
    const string full = "AT\r" + string(127, 'x');  // no result within the first 128 bytes
    line().send(full + Ok);
    EXPECT_EQ(module.readAnswer(&text, 200), -1);
    EXPECT_EQ(text, full.substr(3, 125));
    module.unlock();
    EXPECT_FALSE(module.writeCommand(nullptr));
    EXPECT_TRUE(module.writeCommand(""));
    EXPECT_TRUE(test::soon([&] { return modem.takeCommands() == " "; }));

    string answer = "+CREG: 0,1";
    EXPECT_TRUE(GsmModule::answerStartsWith(answer, "+CREG:"));
    EXPECT_FALSE(GsmModule::answerStartsWith(answer, "+CREG: 0,1\r"));
    EXPECT_FALSE(GsmModule::answerStartsWith(answer, "CREG"));
}

TEST_F(GsmModuleTest, TheSetUpProbesThenStopsAtTheFirstStepThatFails) {
    const string speed = "AT+CMEE=1 AT+IPR=115200 ";
    const string rest = "AT&K3 AT#SELINT=2 ";
    const struct {
        const char* command;
        Answers answers;
        bool result;
        string sent;
        bool isFlowControlled;
        long pausesMs;
    } cases[] = {
        {"AT", {Error, Error, Ok}, true, "AT AT AT " + speed + rest, true, 500},
        {"AT", {Silence}, true, "AT AT AT AT AT " + speed + rest, true, 1900},
        {"AT+CMEE=1", {Error}, false, "AT AT+CMEE=1 ", false, 40},
        {"AT&K3", {Error, Ok}, true, "AT " + speed + "AT&K3 " + rest, true, 600},
        {"AT&K3", {Error}, false, "AT " + speed + "AT&K3 AT&K3 ", true, 600},
        {"AT#SELINT=2", {"\r\nCONNECT\r\n"}, false, "AT " + speed + rest, true, 100},
    };
    terminal.clock().setSpeed(2);
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.command + testing::PrintToString(expected.answers));
        modem.script(expected.command, expected.answers);
        EXPECT_GE(simulatedMs([&] { EXPECT_EQ(module.initComm(), expected.result); }),
                  expected.pausesMs);
        EXPECT_EQ(modem.takeCommands(), expected.sent);
        EXPECT_EQ(line().settings(),
                  expected.isFlowControlled ? "115200 8N1 rtscts" : "115200 8N1");
        modem.script(expected.command, {Ok});
        module.close();
        ASSERT_TRUE(module.open());
    }
}

TEST_F(GsmModuleTest, TheSimIsAskedUntilItIsReadyAndGetsItsPinOnce) {
    const string ask = "AT+CPIN? ";
    const string pin = "AT+CPIN=1234  ";  // with an end too many
    const string needsPin = lines("+CPIN: SIM PIN");
    const string ready = lines("+CPIN: READY");
    const struct {
        Answers toQuestion, toPin;
        bool result;
        string sent;
        long pausesMs;
    } cases[] = {
        {{"\r\n+CPIN: READY\r\n"}, {Ok}, true, ask, 0},  // cut, but said
        {{Ok}, {Ok}, true, ask, 0},
        {{needsPin}, {cmeError(16)}, false, ask + pin, 0},
        {{needsPin}, {cmeError(15)}, false, ask + pin, 0},
        {{lines("+CPIN: SIM PUK")}, {Ok}, false, ask, 0},
        {{cmeError(14), cmeError(13), needsPin}, {Ok}, true, ask + ask + ask + pin, 1250},
        {{Error, "\r\nRING\r\n", ready}, {Ok}, true, ask + ask + ask, 1000},
        {{needsPin, ready}, {Silence}, true, ask + pin + ask, 500},
        {{cmeError(10)}, {Ok}, false, times(10, ask), 10000},
        {{needsPin}, {Error}, false, times(5, ask + pin), 2500},
    };
    terminal.clock().setSpeed(20);
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::PrintToString(expected.toQuestion));
        modem.script("AT+CPIN?", expected.toQuestion);
        modem.script("AT+CPIN=1234", expected.toPin);
        EXPECT_GE(simulatedMs([&] { EXPECT_EQ(module.initSIM("1234"), expected.result); }),
                  expected.pausesMs);
        EXPECT_EQ(modem.takeCommands(), expected.sent);
    }
}

TEST_F(GsmModuleTest, TheOperatorIsChosenAndRegistrationAwaitedAsAskedFor) {
    const char* const automatic = "AT+COPS=0,2";
    const char* const numeric = "AT+COPS=3,2";
    const char* const question = "AT+CREG?";
    const string chosen = "AT+COPS=0,2 AT+COPS=3,2 ";
    const string ask = "AT+CREG? ";
    const string searching = lines("+CREG: 0,2");
    const struct {
        int tries;
        const char* command;
        Answers answers;
        bool result;
        string sent;
        long pausesMs;
    } cases[] = {
        {0, question, {Silence}, true, chosen, 0},
        {0, automatic, {Error, Ok}, true, "AT+COPS=0,2 " + chosen, 500},
        {0, automatic, {Error}, false, "AT+COPS=0,2 AT+COPS=0,2 AT+COPS=0,2 ", 1500},
        {5, numeric, {Error}, false, chosen, 0},
        {3,
         question,
         {searching, searching, lines("+CREG: 0,5")},
         true,
         chosen + times(3, ask),
         2000},
        {2, question, {lines("+CREG: 0,11"), "\r\n+CREG: 0,1"}, true, chosen + ask + ask, 1000},
        {2, question, {lines("CREG: 0,1"), lines("+CREG: 1")}, false, chosen + ask + ask, 1000},
        {9, question, {Silence}, false, chosen + times(3, ask), 32000},
        {4, question, {Silence, Silence, Error, Silence}, false, chosen + times(4, ask), 33000},
    };
    terminal.clock().setSpeed(30);
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.command + testing::PrintToString(expected.answers));
        modem.script(expected.command, expected.answers);
        EXPECT_GE(
            simulatedMs([&] { EXPECT_EQ(module.searchNetwork(expected.tries), expected.result); }),
            expected.pausesMs);
        EXPECT_EQ(modem.takeCommands(), expected.sent);
        modem.script(expected.command, {Ok});
    }
}

TEST_F(GsmModuleTest, ContextBandAndPowerModeAreSetOnlyToWhatCanBe) {
    const string context = R"(AT+CGDCONT=1,"IP","internet","0.0.0.0",0,0 )";
    const string least = "AT+CGQMIN=1,0,0,0,0,0 ";
    modem.script(R"(AT+CGDCONT=1,"IP","internet","0.0.0.0",0,0)",
                 {cmeError(14), cmeError(14), Ok});  // a SIM that is still busy
    terminal.clock().setSpeed(3);
    EXPECT_TRUE(module.initGprs("internet"));
    EXPECT_EQ(modem.takeCommands(), context + context + context + least + "AT+CGQREQ=1,0,0,0,0,0 ");
    EXPECT_TRUE(module.initGprs(string(100, 'a').c_str())) << "the echo alone is over 128 bytes";
    modem.script("AT+CGQMIN=1,0,0,0,0,0", {Error});
    modem.takeCommands();
    EXPECT_FALSE(module.initGprs("internet"));
    EXPECT_EQ(modem.takeCommands(), context + least + least + least);

    for (const char* apn : {"a\"b", "a\rb", "a\x7f", "\xc3\xa4"})
        EXPECT_FALSE(module.initGprs(apn));
    EXPECT_FALSE(module.initGprs(nullptr));
    for (const int band : {-1, 4})
        EXPECT_FALSE(module.setFrequency(GsmModule::ModuleFreqBand(band)));
    for (const int mode : {-1, 128})
        EXPECT_FALSE(module.powerSaveMode(GsmModule::ModulePowerMode(mode)));
    EXPECT_EQ(modem.takeCommands(), "") << "nothing is sent for what cannot be";

    EXPECT_TRUE(module.setFrequency(GsmModule::BAND_850_1900));
    EXPECT_TRUE(module.powerSaveMode(GsmModule::POWER_MODE_FULL_SAVING));
    EXPECT_EQ(modem.takeCommands(), "AT#AUTOBND=1 AT#BND=3 AT+CFUN=5 ");
}

TEST_F(GsmModuleTest, TheNetworkIsToldOrNothingIsChanged) {
    const string name = "Long Named Operator Of The Country";
    const string cell = lines("#MONI: " + name + " BSIC:56 RxQual:0 LAC:E5AC Id:18B1 ARFCN:94 " +
                              "PWR:-78dbm TA:1 and so much more that the result is out of reach");
    const auto registration = [](int status) {
        return lines("+CREG: 0," + std::to_string(status));
    };
    const struct {
        string cell, registration;
        int status;  // -1: it fails
        string name;
        int power, channel;
    } cases[] = {
        {cell, registration(1), 1, name, -78, 94},
        {lines("#MONI: Net BSIC:1\r\n PWR:-60dbm"), registration(5), 5, "Net", -60, -1},
        {Error, registration(2), 2, "", GSM_NETWORK_INFO::NoPower, -1},
        {Error, registration(1), -1, "", 0, 0},
        {lines("#MONI: Net ARFCN:7 PWR:much"), registration(5), -1, "", 0, 0},
        {cell, registration(11), -1, "", 0, 0},
        {cell, Silence, -1, "", 0, 0},
    };
    terminal.clock().setSpeed(6);
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.cell + expected.registration);
        modem.script("AT#MONI", {expected.cell});
        modem.script("AT+CREG?", {expected.registration});
        GSM_NETWORK_INFO info;
        info.operatorName = "kept";
        const bool isTold = expected.status >= 0;
        EXPECT_EQ(module.readNetworkInfo(info), isTold);
        EXPECT_EQ(info.operatorName, isTold ? expected.name : "kept");
        if (isTold) {
            EXPECT_EQ(info.registrationStatus, expected.status);
            EXPECT_EQ(info.power, expected.power);
            EXPECT_EQ(info.channel, expected.channel);
        }
    }
}

TEST_F(GsmModuleTest, TheClockIsReadAndSetInTheModulesOwnForm) {
    modem.script("AT+CCLK?", {lines("+CCLK: \"04/05/06,22:10:00-08\""), lines("+CCLK: \"0\""),
                              Error, "\r\n+CCLK: \"04/05/06,22:10:00-08\"\r\n"});
    tm time{};
    terminal.clock().setSpeed(3);
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
        EXPECT_EQ(modem.takeCommands(), command + " ");
        modem.script(command, {Error});
        EXPECT_FALSE(module.setRTC(&time));
        modem.takeCommands();
    }
}

TEST_F(GsmModuleTest, DialoguesOfSeveralThreadsDoNotMixAndCanBeCancelled) {
    modem.script("AT+CREG?", {lines("+CREG: 0,2"), lines("+CREG: 0,1")});
    auto search = inBackground([&] { return module.searchNetwork(2); });
    ASSERT_TRUE(test::soon([&] { return modem.hasHeard("AT+CREG?"); }));
    EXPECT_TRUE(module.attachGprs());  // asked for in the pause of the search
    EXPECT_TRUE(search.get());
    EXPECT_EQ(modem.takeCommands(), "AT+COPS=0,2 AT+COPS=3,2 AT+CREG? AT+CREG? AT+CGATT=1 ");

    modem.script("AT+CPIN?", {Silence});
    test::Worker worker([&](test::Worker&) { module.initSIM("1234"); });
    ASSERT_TRUE(worker.start());
    ASSERT_TRUE(test::soon([&] { return modem.hasHeard("AT+CPIN?"); }));
    EXPECT_TRUE(worker.terminate());
    EXPECT_TRUE(module.attachGprs()) << "the lock is free";
    EXPECT_TRUE(module.close());
}

}  // namespace
