#include "scanner/RfidReader.h"

#include <climits>

#include "scanner/RfidProtocol.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using std::string;
using Engine = sim::RfidEngine::Type;

constexpr char Nxp[] = "/dev/rfid_nxp";
constexpr char Ams[] = "/dev/rfid_ams";

// The driver's own numbers stand here a second time on purpose, as do the paths and frames below.
TEST(RfidProtocolTest, RequestNumbersAreTheDriversOwn) {
    EXPECT_THAT((std::vector<unsigned>{rfid::AbortRead, rfid::SelectBlock, rfid::PrepareRead,
                                       rfid::SelectBank, rfid::SetAreaFirst, rfid::SetAreaLast}),
                testing::ElementsAre(0xEF01, 0xEF03, 0xEF06, 0xF001, 0xF002, 0xF003));
    EXPECT_STREQ(rfid::NxpPath, Nxp);
    EXPECT_STREQ(rfid::AmsPath, Ams);
}

struct RfidReaderTest : test::TerminalTest {
    RfidReaderTest() { terminal.clock().setSpeed(50); }

    /// Arms a read and waits until the driver is in it.
    void beginRead(RfidReader& armed) {
        takeLines();
        EXPECT_TRUE(armed.initRead() && await("rfid: reading"));
    }

    /// What the application is told of an answer of the driver: "" when it is dropped.
    string delivered(RfidReader& armed, const string& answer) {
        takeLines();
        engine.answerNext(answer);
        EXPECT_TRUE(armed.initRead() && await("rfid: close"));
        return take("tag");
    }

    sim::RfidEngine& engine = terminal.rfid();
    RfidReader reader{RFID_READER_AMS};
};

TEST_F(RfidReaderTest, WhatOfATagIsReadIsSetUpBeforeEachRead) {
    engine.present({"\x04\xA1"s, {"bank0", "bank1", "bank2", "0000111122223333444455556666"}});
    const struct {
        int type, bank, first, last;
        string requests, tag;
    } cases[] = {
        {0, 0, 2, 5, "prepare, ", "1 04A1 bank0"},
        {0, 3, 2, 5, "prepare, ", "1 04A1 bank0"},
        {0, 4, 2, 5, "prepare, block 2, block 3, block 4, block 5, ", "1 04A1 2222333344445555"},
        {0, 4, 5, 2, "prepare, ", "1 04A1 bank0"},
        {0, 4, INT_MAX, INT_MAX, "prepare, block 2147483647, ", "1 04A1 "},
        {1, 0, 2, 5, "first 0, last 0, bank 0, ", "2 04A1 bank0"},
        {1, 1, 0, 0, "first 0, last 0, bank 0, ", "2 04A1 bank0"},
        {1, 2, 1, 7, "first 1, last 7, bank 1, ", "2 04A1 1"},
        {1, 3, 0, 0, "first 0, last 0, bank 2, ", "2 04A1 bank2"},
        {1, 4, 2, 3, "first 2, last 3, bank 3, ", "2 04A1 22223333"},
        {1, 5, 2, 3, "", "2 04A1 bank0"},
        {1, -1, 2, 3, "", "2 04A1 bank0"}};
    for (const auto& tried : cases) {
        engine.fit(tried.type == 0 ? Engine::Nxp : Engine::Ams);
        RfidReader typed(static_cast<RfidReaderType>(tried.type));
        ASSERT_TRUE(typed.initialize());
        for (const bool isSet : {false, true}) {  // by default it is bank 0
            takeLines();
            if (isSet)
                typed.setReadAreas(static_cast<RfidBank>(tried.bank), tried.first, tried.last);
            EXPECT_TRUE(typed.initRead() && await("rfid: close"));
            const string tag = terminal.journal().history("tag");
            const string unset = tried.type == 0 ? "prepare, " : "first 0, last 0, bank 0, ";
            EXPECT_EQ(take("rfid"),
                      "open, " + (isSet ? tried.requests : unset) + "reading, read 04A1, close");
            EXPECT_EQ(tag, isSet ? tried.tag : std::to_string(tried.type + 1) + " 04A1 bank0");
        }
    }
}

TEST_F(RfidReaderTest, AnAnswerIsDeliveredOnlyWhenItIsWholeAndTellsSomething) {
    ASSERT_TRUE(reader.initialize());
    const string whole = "\x00\x03\x04\x00\x04\xA1\xF0user"s;
    EXPECT_EQ(delivered(reader, whole), "2 04A1F0 user");
    for (size_t cut = 0; cut < whole.size(); ++cut)
        EXPECT_EQ(delivered(reader, whole.substr(0, cut)), "") << cut;
    for (const size_t more : {1U, 256U, 2000U, 3000U})
        EXPECT_EQ(delivered(reader, whole + string(more, '\0')), "") << more;

    string longestId(2 * 255, '\0');
    for (size_t i = 0; i < longestId.size(); i += 2)
        longestId.replace(i, 2, "5A");
    const string longestData(2047 - 4, 'x');
    const struct {
        string answer, tag;
    } cases[] = {{"\x01\x03\x04\x00\x04\xA1\xF0user"s, ""},  // a failure
                 {"\xFF\x03\x04\x00\x04\xA1\xF0user"s, ""},
                 {"\x00\x03\x00\x04\x04\xA1\xF0user"s, ""},  // the bytes of the length exchanged
                 {"\x00\x04\x03\x00\x04\xA1\xF0user"s, "2 04A1F075 ser"},
                 {"\x00\x04\x00\x00\xE0\x0F\x00\x01"s, "2 E00F0001 "},
                 {"\x00\x00\x01\x00x"s, "2  x"},
                 {"\x00\x00\x00\x00"s, ""},
                 {"\x00\x00\x03\x00\x00xy"s, ""},  // a text that ends at once, and no identifier
                 {"\x00\x01\x03\x00\x07x\0y"s, "2 07 x"},
                 {"\x00\xFF\x00\x00"s + string(255, 'Z'), "2 " + longestId + " "},
                 {"\x00\xFF\x00\x00"s + string(254, 'Z'), ""},
                 {"\x00\x00\xFB\x07"s + longestData, "2  " + longestData},
                 {"\x00\x00\xFC\x07"s + longestData + "x", ""},  // more than a read takes
                 {"\x00\xFF\xFF\xFF"s + longestData, ""}};
    for (const auto& tried : cases)
        EXPECT_EQ(delivered(reader, tried.answer), tried.tag) << testing::PrintToString(tried);
    terminal.faults().fail("read", Ams, EIO);
    EXPECT_EQ(delivered(reader, whole), "");
    EXPECT_EQ(delivered(reader, ""), "2 04A1F0 user") << "what the failed read has left";
}

TEST_F(RfidReaderTest, ItNeedsItsDeviceToInitializeAndAWorkerThatLostItToBeShutDown) {
    RfidReader other(RFID_READER_NXP);
    EXPECT_FALSE(other.initialize()) << "an engine of the other type is fitted";
    EXPECT_FALSE(other.shutdown());
    ASSERT_TRUE(reader.initialize());
    EXPECT_FALSE(reader.initialize());
    terminal.faults().fail("open", Ams, ENXIO);
    EXPECT_TRUE(reader.initRead());
    EXPECT_TRUE(test::soon([&] { return terminal.faults().failed() == 1; }));
    EXPECT_FALSE(reader.initialize());
    EXPECT_TRUE(reader.shutdown());
    EXPECT_FALSE(reader.shutdown());
    ASSERT_TRUE(reader.initialize());
    beginRead(reader);
    EXPECT_FALSE(reader.initialize());
    EXPECT_EQ(take("rfid"), "open, first 0, last 0, bank 0, reading")
        << "a read in progress is not disturbed";
}

TEST_F(RfidReaderTest, AReadEndsByItsTagByAStopOrAfter5Seconds) {
    ASSERT_TRUE(reader.initialize());
    takeLines();
    EXPECT_TRUE(reader.stopRead());
    EXPECT_THAT(takeLines(), testing::IsEmpty()) << "nothing to abort";
    beginRead(reader);
    EXPECT_TRUE(reader.initRead());  // forgotten when this read ends
    EXPECT_TRUE(reader.stopRead() && await("rfid: close"));

    test::EventThread events;
    EXPECT_GE(simulated([&] {
                  beginRead(reader);
                  EXPECT_TRUE(reader.startRead() && await("rfid: close"));
              }),
              5s);
    EXPECT_EQ(take("rfid"), "open, first 0, last 0, bank 0, reading, abort, close");

    beginRead(reader);
    EXPECT_TRUE(reader.startRead());
    engine.present({"\x07", {}});
    EXPECT_TRUE(await("rfid: read ") && await("rfid: close"));
    engine.remove();
    beginRead(reader);
    const auto delivery = terminal.clock().monotonic();
    EXPECT_TRUE(test::soon([&] { return terminal.clock().monotonic() >= delivery + 7s; }));
    EXPECT_EQ(take("rfid").find("abort"), string::npos) << "the tag has ended the time";

    // Setting up an area that is absurd is ended as well.
    EXPECT_TRUE(reader.shutdown());
    engine.fit(Engine::Nxp);
    RfidReader blocks(RFID_READER_NXP);
    blocks.setReadAreas(RFID_BANK_4, INT_MIN, INT_MAX);
    ASSERT_TRUE(blocks.initialize());
    EXPECT_TRUE(blocks.initRead() && await("rfid: block") && blocks.stopRead());
    EXPECT_TRUE(await("rfid: close"));
    EXPECT_EQ(take("rfid").find("reading"), string::npos);
}

TEST_F(RfidReaderTest, ItMayBeShutDownOrDestroyedAtAnyMoment) {
    const test::Holdings before;
    terminal.clock().setSpeed(10);  // the limit below stays long on a busy machine
    for (int moment = 0; moment < 60; ++moment) {
        auto shortLived = std::make_unique<RfidReader>(RFID_READER_AMS);
        const int calls = terminal.faults().calls();
        ASSERT_TRUE(shortLived->initialize());
        shortLived->initRead();
        shortLived->startRead();
        if (moment % 3 == 0)
            engine.answerNext("\x00\x01\x00\x00\x07"s);
        // Somewhere between the worker's start and its read.
        EXPECT_TRUE(test::soon([&] { return terminal.faults().calls() >= calls + moment % 7; }));
        const auto ending = simulated([&] {
            if (moment % 2 == 0)
                shortLived->shutdown();
            shortLived.reset();
        });
        EXPECT_LT(ending, 9s) << "nothing had to be cancelled";
    }
    EXPECT_TRUE(before.areBack());

    // A driver that keeps the read: the worker is cancelled in it, and can be started again.
    terminal.clock().setSpeed(50);
    engine.setStubborn(true);
    ASSERT_TRUE(reader.initialize());
    beginRead(reader);
    EXPECT_TRUE(reader.shutdown());
    EXPECT_TRUE(before.areBack());
    engine.setStubborn(false);
    ASSERT_TRUE(reader.initialize());
    EXPECT_EQ(delivered(reader, "\x00\x01\x00\x00\x07"s), "2 07 ");
}

}  // namespace
