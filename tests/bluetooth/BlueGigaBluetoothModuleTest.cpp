#include "bluetooth/BlueGigaBluetoothModule.h"

#include <numeric>

#include "bluetooth/OwnedLink.h"
#include "foundation/Worker.h"
#include "sim/console/Console.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using sim::Reply;
using std::string;
using test::makeLink;
using test::OwnedLink;
using test::soon;
using test::taken;
using testing::HasSubstr;

constexpr char Path[] = "/dev/ttyAT1";
constexpr char Phone[] = "00:1A:7D:DA:71:13";
constexpr char Printer[] = "5C:F3:70:8B:12:34";

/// Answers take a few milliseconds of a second or more; only waits for the whole of it run faster.
constexpr double Exchanging = 5;
constexpr double Calling = 10;
constexpr double Looking = 0.3;  // for what is looked for only a quarter of a second
constexpr double Waiting = 50;

/// A frame as the module sends it.
string frame(int link, std::string_view payload) {
    return "\xBF"s + static_cast<char>(link) + '\0' + static_cast<char>(payload.size()) +
           string(payload) + static_cast<char>(~link);
}

unsigned size(const string& text) { return static_cast<unsigned>(text.size()); }

struct BlueGigaBluetoothModuleTest : test::TerminalTest {
    BlueGigaBluetoothModuleTest() {
        terminal.fitTextModule();
        terminal.air().present(Phone, "Phone");
        terminal.air().present(Printer, "Printer");
    }
    ~BlueGigaBluetoothModuleTest() override { terminal.clock().setSpeed(Waiting); }

    /// Opens the line of a module without power: what comes is what a test transmits. The reader
    /// has been given something, and sleeps.
    void openOnly() {
        terminal.clock().setSpeed(0.01);
        ASSERT_TRUE(driver->open());
        module.transmit("READY.\r\n");
        EXPECT_TRUE(
            soon([&] { return driver->getAnswerType() == BlueGigaBluetoothModule::ANSWER_OK; }));
        terminal.clock().setSpeed(1);
    }

    /// A connection with a link number of its own, without a call.
    OwnedLink linkNumbered(int number) {
        OwnedLink link = makeLink(*driver);
        EXPECT_TRUE(link && link->setLocalPort(number));
        return link;
    }

    sim::TextBluetoothModule& module = terminal.textModule();
    std::unique_ptr<BlueGigaBluetoothModule> driver =
        std::make_unique<BlueGigaBluetoothModule>(Path);
};

TEST_F(BlueGigaBluetoothModuleTest, FramesAndFinalLinesAreTheModules) {
    char buffer[129];
    const auto made = [&](const string& payload, unsigned room, int link) {
        return driver->createMuxFrame(buffer, room, payload.data(), size(payload), link);
    };
    EXPECT_EQ(made("abc", 128, 2), 8U);
    EXPECT_EQ(string(buffer, 8), "\xBF\x02\x00\x03\x61\x62\x63\xFD"s);
    EXPECT_EQ(made(string(124, 'x'), 128, 0xFF), 129U);
    EXPECT_EQ(made(string(125, 'x'), 128, 0), 0U);
    EXPECT_EQ(made("", 3, 0) + driver->createMuxFrame(buffer, 128, "", ~0U, 0), 0U);

    // A frame whose end has not come: one of the command link counts as filled up.
    string cut = frame(0xFF, "READY.\r\n"), answer;
    EXPECT_EQ(driver->parseMuxFrame(&answer, cut.data(), 0, 7), 13U);
    EXPECT_EQ(answer, "REA\0\0\0\0\0"s);
    for (string bad : {frame(3, "data").substr(0, 8), frame(9, "data"), "\xBF\x03\0\1x?"s})
        EXPECT_EQ(driver->parseMuxFrame(&answer, bad.data(), 0, size(bad)), 0U);

    openOnly();
    const struct {
        const char* text;
        unsigned length;
        int type;
    } cases[] = {{"WELCOME\r\nREADY.\r\n", 8, BlueGigaBluetoothModule::ANSWER_OK},
                 {"x SYNTAX ERROR\r\n", 14, BlueGigaBluetoothModule::ANSWER_ERROR},
                 {"INQUIRY 0\r\n", 11, BlueGigaBluetoothModule::ANSWER_ERROR},
                 {"SET CONTROL MUX 1??", 19, BlueGigaBluetoothModule::ANSWER_OK},
                 {"READY.\r", 0, BlueGigaBluetoothModule::ANSWER_NONE},
                 {"OK\r\n", 0, BlueGigaBluetoothModule::ANSWER_NONE}};
    for (const auto& expected : cases) {
        EXPECT_EQ(driver->setAnswerType(expected.text, size(expected.text)), expected.length);
        EXPECT_EQ(driver->getAnswerType(), expected.type) << expected.text;
    }
}

TEST_F(BlueGigaBluetoothModuleTest, AnAnswerInPiecesIsLookedAtFromItsBeginningEachTime) {
    openOnly();
    const OwnedLink link = linkNumbered(3);
    string answer;
    const auto read = [&](int timeoutMs) {
        driver->lock();
        answer.clear();
        const bool came = driver->readAnswer(&answer, timeoutMs);
        driver->unlock();
        return came;
    };
    EXPECT_FALSE(read(10));
    auto reading = test::inBackground([&] { return read(60000); });
    module.transmit("one\r\n");
    EXPECT_TRUE(soon([&] { return driver->getAnswerType() == 0; }));
    module.transmit("READY.\r\n");
    EXPECT_TRUE(reading.get());
    EXPECT_EQ(answer, "one\r\none\r\n") << "without the final line";

    // Frames from here on, though nobody has asked for them.
    reading = test::inBackground([&] { return read(60000); });
    module.transmit(frame(0xFF, "RING 1 5c:f3:70:8b:12:34 1 RFCOMM\r\n") +
                    frame(0xFF, "three\r\n").substr(0, 7));
    module.transmit(frame(0xFF, "three\r\n").substr(7) + frame(3, "A"));
    EXPECT_TRUE(soon([&] { return link->getFifoCnt() == 1; }));
    module.transmit(frame(3, "B"));
    EXPECT_TRUE(soon([&] { return link->getFifoCnt() == 3; }));
    module.transmit(frame(0xFF, "READY.\r\n") + frame(3, "C"));
    EXPECT_TRUE(reading.get());
    EXPECT_EQ(taken(*link), "AABABC") << "the data is delivered with each look";
    module.transmit(frame(3, "D"));
    EXPECT_TRUE(read(60000));
    EXPECT_EQ(taken(*link), "D") << "after a final line a read ends with the first piece";

    // A module that falls silent in a packet: what is left of it is lost, the next one is not.
    const string framed = frame(3, "a\xBF\x03"
                                   "b");
    for (size_t cut = 1; cut < framed.size(); ++cut) {
        module.transmit(framed.substr(0, cut));
        EXPECT_TRUE(soon([&] { return read(20); }));
        module.transmit(framed.substr(cut));
        EXPECT_TRUE(soon([&] { return read(20); }));
        EXPECT_EQ(taken(*link), "");
        module.transmit(frame(3, "found"));
        EXPECT_TRUE(read(60000));
        EXPECT_EQ(taken(*link), "found") << "cut at " << cut;
    }

    terminal.clock().setSpeed(0.1);  // what has been sent arrives within the 20 ms
    // More than the buffer of 1024 bytes holds: the frame across its end is lost.
    string waiting, expected;
    for (char piece = 1; piece <= 15; ++piece) {
        waiting += frame(3, string(70, piece));
        expected += piece == 14 ? "" : string(70, piece);
    }
    for (const string& bytes : {waiting, string(3000, '\xBF') + string(100, '\0')}) {
        module.transmit(bytes);
        while (read(20))
            continue;
    }
    EXPECT_EQ(taken(*link), expected);

    // The line is gone: nothing to read, and nothing waits for it.
    EXPECT_EQ(sim::Console(terminal).execute("line bt hangup"), "");
    EXPECT_FALSE(read(60000) || driver->ping());
}

TEST_F(BlueGigaBluetoothModuleTest, LinksAreCalledCarryDataAndAreEnded) {
    terminal.clock().setSpeed(Exchanging);
    ASSERT_TRUE(driver->open());
    EXPECT_EQ(module.line().settings(), "115200 8N1");
    module.setEnable(true);
    module.setSupply(true);
    ASSERT_TRUE(driver->isAlive() && driver->enableMUX());
    sim::BluetoothAir::Remote printer = *terminal.air().find(Printer);
    printer.pin = "1234";
    printer.service = printer.Sink;
    printer.dBm = -75;
    terminal.air().present(printer);
    const OwnedLink spare = makeLink(*driver);
    const OwnedLink phone = makeLink(*driver, Phone);
    const OwnedLink print = makeLink(*driver, Printer, "1234");
    const OwnedLink wrong = makeLink(*driver, Printer, "4321");
    terminal.clock().setSpeed(Waiting);
    EXPECT_FALSE(wrong->connect());
    module.onCommand("CALL*", Reply::raw("\xBF\xFF\x00\x07"s + "CONNECT" + '\0'), 1);
    EXPECT_FALSE(wrong->connect() || wrong->isConnected()) << "no link number";
    terminal.clock().setSpeed(Exchanging);
    module.onCommand("SET BT AUTH*", Reply::final("BUSY"), 1);
    EXPECT_FALSE(phone->connect());
    EXPECT_THAT(terminal.journal().history("bt"), HasSubstr("CALL 5c:f3:70:8b:12:34 1101 RFCOMM"));

    terminal.clock().setSpeed(Calling);
    EXPECT_TRUE(phone->connect() && print->connect());
    EXPECT_EQ(phone->getLocalPort() * 10 + print->getLocalPort(), 1);
    terminal.clock().setSpeed(1);
    EXPECT_THAT(driver->queryActiveConnections(), HasSubstr("LIST 1 CONNECTED RFCOMM "s + Printer));
    terminal.clock().setSpeed(Looking);
    EXPECT_EQ(driver->getSignalStrength(), 25) << "the weaker of the two";
    terminal.clock().setSpeed(1);
    EXPECT_TRUE(driver->ping());
    EXPECT_EQ(driver->getLocalMac(), "00:07:80:12:34:56");
    EXPECT_THAT(driver->getVersion(), HasSubstr("2.1.0"));

    // The first connection with the number gets the data, called or not.
    const string document(124, 'd');
    EXPECT_EQ(print->writeData(document.data(), 124), 124);
    EXPECT_EQ(print->writeData((document + "x").data(), 125), 0);
    EXPECT_TRUE(soon([&] { return terminal.air().find(Printer)->received == document; }));
    terminal.clock().setSpeed(Looking);
    EXPECT_TRUE(soon([&] {  // the reader may miss that it is to poll again
        return phone->writeData("echo", 4) == 4 && spare->isInputPending(1000);
    }));
    EXPECT_EQ(taken(*spare).substr(0, 4), "echo");
    for (int piece = 0; piece < 25; ++piece) {  // 3 kB there and back
        string sent(124, '\0');
        std::iota(sent.begin(), sent.end(), static_cast<char>(piece * 7));
        EXPECT_TRUE(soon([&] {
            taken(*spare);
            return phone->writeData(sent.data(), 124) == 124 && spare->isInputPending(1000) &&
                   taken(*spare).find(sent) != string::npos;
        }));
    }
    do  // what was sent twice comes back twice
        driver->pollIncomingData(300);
    while (!taken(*spare).empty());

    // Nobody has asked for this.
    EXPECT_TRUE(terminal.air().sendFrom(Printer, "paper out"));
    driver->pollIncomingData(100);
    EXPECT_EQ(taken(*print), "paper out");

    // The other side's end of a link is not told, the driver's own is.
    terminal.clock().setSpeed(Calling);
    EXPECT_TRUE(terminal.air().drop(Printer));
    driver->pollIncomingData(1000);
    EXPECT_TRUE(print->isConnected() && !print->disconnect());
    EXPECT_TRUE(phone->disconnect() && phone->isConnected() && module.links().empty());

    // Back to lines, unless the module refuses.
    terminal.clock().setSpeed(Exchanging);
    module.onCommand("SET CONTROL MUX 0", Reply::final("SYNTAX ERROR"), 1);
    EXPECT_FALSE(driver->disableMUX() || driver->open());
    EXPECT_TRUE(driver->getLocalMac() == "00:07:80:12:34:56" && module.isMultiplexing());
    EXPECT_TRUE(driver->disableMUX() && !module.isMultiplexing());
    EXPECT_EQ(driver->getLocalMac(), "00:07:80:12:34:56");
    module.onCommand("SET", Reply::final("SET BT BDADDR 00:07:80"), 1);
    EXPECT_EQ(driver->getLocalMac(), "");
}

TEST_F(BlueGigaBluetoothModuleTest, ItIsClosedAndDestroyedAtAnyMoment) {
    const test::Holdings before;
    terminal.clock().setSpeed(Waiting);
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(driver->open());
        OwnedLink link = linkNumbered(1);
        auto sending = test::inBackground([&] { return driver->sendSPPData(2, "x", 1); });
        if (round % 3 > 0)
            module.transmit(frame(1, "some data"));
        if (round % 2 > 0)
            driver->close();
        sending.wait();
        link.reset();
        if (round % 4 > 1)
            driver = std::make_unique<BlueGigaBluetoothModule>(Path);
        else
            EXPECT_TRUE(driver->close());
    }
    driver.reset();
    EXPECT_TRUE(before.areBack());
}

TEST_F(BlueGigaBluetoothModuleTest, AFailedOpenHoldsTheModuleForGood) {
    terminal.faults().fail("open", Path, EIO);
    EXPECT_FALSE(driver->open());
    std::atomic<bool> isBack{false};
    test::Worker caller([&](test::Worker&) {
        BluetoothModule::pModule.load()->pollIncomingData(0);
        isBack = true;
    });
    ASSERT_TRUE(caller.start());
    EXPECT_FALSE(sim::eventually([&] { return isBack.load(); }, 100ms));
    EXPECT_TRUE(caller.terminate());
}

}  // namespace
