#include "gsm/GsmModule.h"

#include <deque>
#include <map>

#include "foundation/Worker.h"
#include "gsm/ScriptedModem.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;
using test::inBackground;
using test::ScriptedModem;
using test::soon;
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

struct GsmModuleTest : test::TerminalTest {
    GsmModuleTest() { EXPECT_TRUE(module.open()); }

    sim::SerialLine& line() { return terminal.barcodeLine(); }

    struct Dialogue {
        std::map<string, Answers> scripts;
        bool result;
        string sent;
        std::chrono::milliseconds pauses;
    };
    /// What a call gives and sends, and how long it takes at least, when the modem answers so.
    void expect(const std::function<bool()>& call, const std::vector<Dialogue>& dialogues) {
        for (const Dialogue& expected : dialogues) {
            SCOPED_TRACE(testing::PrintToString(expected.scripts));
            module.close();
            ASSERT_TRUE(module.open());
            for (const auto& [command, answers] : expected.scripts)
                modem.script(command, answers);
            EXPECT_GE(simulated([&] { EXPECT_EQ(call(), expected.result); }), expected.pauses);
            string sent;
            soon([&] { return (sent += modem.takeCommands()).size() >= expected.sent.size(); });
            EXPECT_EQ(sent, expected.sent);
            for (const auto& script : expected.scripts)
                modem.script(script.first, {Ok});
        }
    }

    ScriptedModem modem{line()};
    GsmModule module{Path};
};

TEST_F(GsmModuleTest, AnAnswerIsWhatStandsBehindTheEcho) {
    const struct {
        string reply;  // behind the echo
        int result;
        string text;
    } cases[] = {{"\n \t\r\n+CREG: 0,1\r\n\r\nOK\r\n", 0, "+CREG: 0,1\r\n\r\nOK\r\n"},
                 {cmeError(10), 7, "+CME ERROR: 10\r\n"},
                 {"\r\nRING\r\n\r\nOK\r\n", 2, "RING\r\n"},
                 {"\r\n+CPIN: READY\r\n", -1, "+CPIN: READY\r\n"},  // no result within the limit
                 {string("\r\na\0b\r\n\r\nOK\r\n", 13), 0, "a"},
                 {Silence, -1, "kept"}};
    terminal.clock().setSpeed(2);
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::PrintToString(expected.reply));
        for (const size_t pieceSize : {0U, 1U}) {
            line().fragment(pieceSize);
            modem.script("AT+X", {expected.reply});
            string text = "kept";
            const LockGuard<GsmModule> held(module);
            EXPECT_TRUE(module.writeCommand("AT+X"));
            EXPECT_EQ(module.readAnswer(&text, expected.result < 0 ? 600 : 6000), expected.result);
            EXPECT_EQ(text, expected.text);
        }
    }
    EXPECT_TRUE(module.attachGprs()) << "what came too late is not this command's answer";

    const LockGuard<GsmModule> held(module);
    line().fragment(0);
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
    const string speed = "AT+CMEE=1 AT+IPR=115200 ", rest = "AT&K3 AT#SELINT=2 ";
    const auto setUp = [&] { return module.initComm(); };
    terminal.clock().setSpeed(0.5);  // the answer to a probe has 400 ms
    expect(setUp, {{{{"AT+CMEE=1", {Error}}}, false, "AT AT+CMEE=1 ", 40ms}});
    EXPECT_EQ(line().settings(), "115200 8N1");
    expect(setUp, {{{{"AT", {Error, Error, Ok}}}, true, "AT AT AT " + speed + rest, 500ms},
                   {{{"AT&K3", {Error, Ok}}}, true, "AT " + speed + "AT&K3 " + rest, 600ms},
                   {{{"AT&K3", {Error}}}, false, "AT " + speed + "AT&K3 AT&K3 ", 600ms},
                   {{{"AT#SELINT=2", {"\r\nCONNECT\r\n"}}}, false, "AT " + speed + rest, 100ms}});
    terminal.clock().setSpeed(1);
    expect(setUp, {{{{"AT", {Silence}}}, true, "AT AT AT AT AT " + speed + rest, 1900ms}});
    EXPECT_EQ(line().settings(), "115200 8N1 rtscts");
}

TEST_F(GsmModuleTest, TheSimIsAskedUntilItIsReadyAndGetsItsPinOnce) {
    const string ask = "AT+CPIN? ", pin = "AT+CPIN=1234  ";  // with an end too many
    const string needsPin = lines("+CPIN: SIM PIN"), ready = lines("+CPIN: READY");
    const string asked = "AT+CPIN?", given = "AT+CPIN=1234";
    terminal.clock().setSpeed(10);
    expect(
        [&] { return module.initSIM("1234"); },
        {{{{asked, {"\r\n+CPIN: READY\r\n"}}}, true, ask, 0ms},  // cut, but said
         {{{asked, {Ok}}}, true, ask, 0ms},
         {{{asked, {needsPin}}, {given, {cmeError(16)}}}, false, ask + pin, 0ms},
         {{{asked, {needsPin}}, {given, {cmeError(15)}}}, false, ask + pin, 0ms},
         {{{asked, {lines("+CPIN: SIM PUK")}}}, false, ask, 0ms},
         {{{asked, {cmeError(14), cmeError(13), needsPin}}}, true, ask + ask + ask + pin, 1250ms},
         {{{asked, {Error, "\r\nRING\r\n", ready}}}, true, ask + ask + ask, 1000ms},
         {{{asked, {needsPin, ready}}, {given, {Silence}}}, true, ask + pin + ask, 500ms},
         {{{asked, {cmeError(10)}}}, false, times(10, ask), 10000ms},
         {{{asked, {needsPin}}, {given, {Error}}}, false, times(5, ask + pin), 2500ms}});
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
    ASSERT_TRUE(worker.start() && test::soon([&] { return modem.hasHeard("AT+CPIN?"); }));
    EXPECT_TRUE(worker.terminate());
    EXPECT_TRUE(module.attachGprs()) << "the lock is free";
    EXPECT_TRUE(module.close());
}

TEST_F(GsmModuleTest, TheClockKeepsItsZoneAndWhatIsOutOfRangeIsNotSent) {
    modem.script("AT+CCLK?", {lines("+CCLK: \"24/03/05,07:08:09-22\"")});
    tm moment{};
    EXPECT_TRUE(module.getRTC(&moment) && module.setRTC(&moment));
    EXPECT_EQ(moment.tm_gmtoff, -22);
    EXPECT_TRUE(module.powerSaveMode(GsmModule::POWER_MODE_RADIO_OFF) &&
                module.setFrequency(GsmModule::BAND_850_1900));
    EXPECT_FALSE(module.powerSaveMode(GsmModule::ModulePowerMode(128)) ||
                 module.setFrequency(GsmModule::ModuleFreqBand(4)) || module.initGprs("a\"b"));
    EXPECT_EQ(modem.takeCommands(), "AT+CCLK? AT+CCLK=\"24/03/05,07:08:09--22\" AT+CFUN=4 "
                                    "AT#AUTOBND=1 AT#BND=3 ");
    for (const string& answer :
         {lines("+CCLK: \"24/02/30,07:08:09\""), string(Ok), string(Error)}) {
        modem.script("AT+CCLK?", {answer});
        EXPECT_FALSE(module.getRTC(&moment)) << answer;
    }
    modem.script("AT+CCLK=\"24/03/05,07:08:09--22\"", {Error});  // it is as it was
    EXPECT_FALSE(module.setRTC(&moment) || module.getRTC(nullptr) || module.setRTC(nullptr));
    EXPECT_FALSE(module.open()) << "it is open already";
    module.close();
    terminal.faults().fail("open", Path, EIO);
    EXPECT_FALSE(module.open() || module.initComm() || module.initSIM("") ||
                 module.searchNetwork(0) || module.attachGprs() || module.getRTC(&moment));
    EXPECT_TRUE(module.open());
}

}  // namespace
