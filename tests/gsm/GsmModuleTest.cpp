#include "gsm/GsmModule.h"

#include <gtest/gtest.h>

#include <chrono>
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

    const LockGuard<GsmModule> held(module);
    string text = "kept";
    line().send("\nOK\n");
    EXPECT_EQ(module.readAnswer(&text, 200), -1) << "without an echo";
    EXPECT_EQ(text, "kept");
    const string full = "AT\r" + string(127, 'x');  // no result within the first 128 bytes
    line().send(full + Ok);
    EXPECT_EQ(module.readAnswer(&text, 200), -1);
    EXPECT_EQ(text, full.substr(3, 125));
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
        {0, automatic, {Error}, false, "AT+COPS=0,2 AT+COPS=0,2 AT+COPS=0,2 ", 1500},
        {5, numeric, {Error}, false, chosen, 0},
        {3,
         question,
         {searching, searching, lines("+CREG: 0,5")},
         true,
         chosen + times(3, ask),
         2000},
        {9, question, {Silence}, false, chosen + times(3, ask), 32000},
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

TEST_F(GsmModuleTest, ContextAndClockAreSetOnlyToWhatCanBe) {
    const string context = R"(AT+CGDCONT=1,"IP","internet","0.0.0.0",0,0 )";
    const string least = "AT+CGQMIN=1,0,0,0,0,0 ";
    modem.script(context.substr(0, context.size() - 1),
                 {cmeError(14), cmeError(14), Ok});  // a SIM that is still busy
    terminal.clock().setSpeed(3);
    EXPECT_TRUE(module.initGprs("internet"));
    EXPECT_EQ(modem.takeCommands(), context + context + context + least + "AT+CGQREQ=1,0,0,0,0,0 ");
    EXPECT_TRUE(module.initGprs(string(100, 'a').c_str())) << "the echo alone is over 128 bytes";
    modem.script("AT+CGQMIN=1,0,0,0,0,0", {Error});
    modem.takeCommands();
    EXPECT_FALSE(module.initGprs("internet"));
    EXPECT_EQ(modem.takeCommands(), context + least + least + least);

    for (const char* apn : {"a\"b", "a\rb", "a\x7f", "\xc3\xa4", static_cast<const char*>(nullptr)})
        EXPECT_FALSE(module.initGprs(apn));
    EXPECT_EQ(modem.takeCommands(), "") << "nothing is sent for what cannot be";

    tm time{};
    time.tm_year = 104;
    time.tm_mday = 6;
    time.tm_gmtoff = -8;
    EXPECT_TRUE(module.setRTC(&time));
    EXPECT_EQ(modem.takeCommands(), "AT+CCLK=\"04/01/06,00:00:00--8\" ");  // two signs: kept
    line().hangUp();
    EXPECT_FALSE(module.attachGprs());
    EXPECT_TRUE(module.close() && module.open() && module.attachGprs());
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
