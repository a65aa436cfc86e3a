#include "scanner/BarcodeReader.h"

#include "power/SystemEvents.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using std::string;

// At this speed an idle worker looks at its line every 4 ms of the host's time.
constexpr double Fast = 50;
// At this one the gap that ends a burst lasts 5 seconds of it, so that no busy machine makes one.
constexpr double Slow = 0.02;

struct BarcodeReaderTest : test::PoweredTest {
    BarcodeReaderTest() { terminal.clock().setSpeed(Fast); }
    ~BarcodeReaderTest() override { terminal.clock().setSpeed(Fast); }

    void initialize() {
        ASSERT_TRUE(reader.initialize());
        takeLines();
    }

    /// Waits until the worker has made so many calls more since the burst was sent.
    void awaitCalls(int count, std::string_view burst = {}) {
        const int before = terminal.faults().calls();
        engine.transmit(burst);
        ASSERT_TRUE(test::soon([&] { return terminal.faults().calls() >= before + count; }));
    }

    /// What the window is told of a burst that is delivered.
    string delivered(std::string_view burst) {
        takeLines();
        engine.transmit(burst);
        await("app: ");
        return take("app");
    }

    sim::BarcodeEngine& engine = terminal.barcode();
    BarcodeReader reader;
};

TEST_F(BarcodeReaderTest, ACodeIsDeliveredWithoutItsWhiteSpaceUnlessItIsTooShortOrTooLong) {
    const string digits(70, '7');
    const struct {
        string burst, code;  // "": dropped
    } cases[] = {{"4006381333931\r\n", "4006381333931"},
                 {" \t\v\f\r\nA B\tC \t\v\f\r\n", "A B\tC"},
                 {"12", "12"},
                 {"12\0x"s, "12"},  // a text ends there
                 {"7\r\n", ""},
                 {" \t\v\f\r\n", ""},
                 {digits.substr(0, 63), digits.substr(0, 63)},
                 {digits.substr(0, 62) + "\r\n", ""},
                 {digits + digits + digits.substr(0, 60), ""},
                 {string(126, ' ') + "12345", ""}};
    ASSERT_TRUE(reader.initialize());
    EXPECT_EQ(terminal.barcodeLine().settings(), "9600 8N1");
    EXPECT_GE(between("pwrctrl: supply 2 on", "barcode: command ESC YM CR"), 100ms);
    for (const auto& tried : cases) {
        takeLines();
        awaitCalls(20, tried.burst);  // the worker has ended the burst and looks for the next
        EXPECT_EQ(take("app"), tried.code.empty() ? "" : "scan " + tried.code) << tried.burst;
        EXPECT_EQ(delivered("next\r\n"), "scan next") << tried.burst;
    }
}

TEST_F(BarcodeReaderTest, ABurstInPiecesIsOneCodeUnlessAGapOf100MsComesBetween) {
    const string code = "4006381333931";
    initialize();
    for (size_t cut = 1; cut < code.size(); ++cut) {
        terminal.clock().setSpeed(Slow);
        awaitCalls(1);                       // the worker waits slowly from now on
        awaitCalls(3, code.substr(0, cut));  // it has looked, read, and waits for more
        terminal.clock().setSpeed(Fast);
        EXPECT_EQ(delivered(code.substr(cut)), "scan " + code) << cut;
    }
    EXPECT_EQ(delivered(code.substr(0, 7)), "scan 4006381");
    EXPECT_EQ(delivered(code.substr(7)), "scan 333931");
}

TEST_F(BarcodeReaderTest, StartAndStopAreSentOnceAndACodeEndsTheScan) {
    initialize();
    EXPECT_TRUE(reader.stopRead()) << "nothing to stop";
    EXPECT_TRUE(reader.startRead() && reader.startRead() && engine.isScanning());
    EXPECT_TRUE(reader.stopRead() && reader.stopRead());
    EXPECT_EQ(take("barcode"), "command ESC Z CR, command ESC Y CR");

    engine.present("4006381333931");
    EXPECT_TRUE(reader.startRead() && await("app: scan 4006381333931"));
    EXPECT_TRUE(reader.stopRead()) << "the engine has stopped by itself";
    EXPECT_TRUE(reader.startRead());
    EXPECT_EQ(take("barcode"), "command ESC Z CR, read 4006381333931, command ESC Z CR");
}

TEST_F(BarcodeReaderTest, AScanThatFindsNothingIsStopped5SecondsAfterTheLastTrigger) {
    test::EventThread events;
    for (const bool silent : {false, true}) {
        engine.setSilent(silent);
        ASSERT_TRUE(reader.initialize());
        EXPECT_TRUE(reader.startRead());
        takeLines();
        EXPECT_TRUE(reader.startRead());
        EXPECT_TRUE(test::soon([&] {  // the second is the timer's
            return terminal.journal().history("pwrctrl") == "line 9 high, line 9 high";
        }));
        EXPECT_GE(between("pwrctrl: line 9 high", "pwrctrl: line 9 high"), 5s);
        EXPECT_TRUE(silent || await("barcode: command ESC Y CR"));
        EXPECT_TRUE(reader.shutdown());
    }
}

TEST_F(BarcodeReaderTest, AFailedInitializationIsNotTriedAgainBeforeAShutdown) {
    const struct {
        const char *call, *path;
    } failures[] = {{"ioctl", "/dev/pwrctrl"}, {"open", "/dev/ttyAT2"}, {"pthread_create", ""}};
    for (const auto& [call, path] : failures) {
        terminal.faults().fail(call, path, EIO);
        EXPECT_FALSE(reader.initialize()) << call << path;
        terminal.faults().clear();
        EXPECT_FALSE(reader.initialize());
        EXPECT_EQ(terminal.faults().calls(), 0) << "it touches nothing";
        EXPECT_TRUE(reader.shutdown());
    }
    ASSERT_TRUE(reader.initialize());
    EXPECT_FALSE(reader.initialize());
    EXPECT_EQ(delivered("12345\r\n"), "scan 12345");
    {
        BarcodeReader other;
        other.startRead();  // its timer goes with it, though it was never initialized
    }
    EXPECT_TRUE(reader.stopRead());
}

TEST_F(BarcodeReaderTest, ItMayBeShutDownByAnyCallbackEvenByTheDeliveryOfACode) {
    initialize();
    {
        const events::WindowingGuard windowing;
        awaitCalls(3, "12345\r\n");
        EXPECT_TRUE(reader.shutdown()) << "drops the code that it cannot deliver";
    }
    EXPECT_EQ(take("app"), "");
    test::EventThread events;
    for (const bool byKey : {true, false, false}) {
        {
            const events::WindowingGuard windowing;  // under it no callback runs
            window.onKey = [&] { EXPECT_TRUE(reader.shutdown()); };
            window.onScan = byKey ? std::function<void()>() : window.onKey;
        }
        initialize();
        awaitCalls(byKey ? 3 : 0, "12345\r\n");  // the code may be under way to the window
        if (byKey)
            GuiLibrary::postKey(28, true);
        EXPECT_TRUE(await("pwrctrl: supply 2 off"));
    }
    const events::WindowingGuard windowing;
    window.onKey = window.onScan = nullptr;
}

}  // namespace
