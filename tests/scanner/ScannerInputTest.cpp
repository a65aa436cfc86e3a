#include "scanner/ScannerInput.h"

#include <map>

#include "support/FreshProcess.h"
#include "support/TerminalTest.h"

namespace {

using std::string;
using Steps = std::function<string(sim::Terminal&)>;

/// What the steps tell on a terminal with such engines. In a process of its own: what the terminal
/// says of its engines is read once.
string onTerminal(const string& engines, const Steps& steps) {
    return test::inFreshProcess([&] {
        sim::Terminal terminal;
        terminal.identity().setScanners(engines);
        if (engines == "01" || engines == "11")
            terminal.rfid().fit(sim::RfidEngine::Type::Nxp);
        PowerManager::initPowerManager();
        terminal.journal().clear();
        return steps(terminal);
    });
}

ScannerInput& input() { return *ScannerInput::getScannerInput(); }

TEST(ScannerInputTest, TheEnginesThatTheTerminalTellsOfGetAReaderEach) {
    const Steps tellReaders = [](sim::Terminal& terminal) -> string {
        if (!ScannerInput::initialize())
            return ScannerInput::getScannerInput() ? "left over" : "none";
        const ScannerInput* const first = &input();
        if (!ScannerInput::initialize() || &input() != first)
            return "two instances";
        string readers = terminal.journal().history("rfid");
        if (terminal.journal().history("pwrctrl").find("supply 2 on") != string::npos)
            readers = readers.empty() ? "barcode" : "barcode " + readers;
        ScannerInput::shutdown();
        return readers;
    };
    const std::map<string, string> cases = {{"10", "barcode"},
                                            {"11", "barcode open, close"},
                                            {"12", "barcode open, close"},
                                            {"13", "barcode"},
                                            {"01", "open, close"},
                                            {"02", "open, close"},
                                            {"00", "none"},
                                            {"", "none"}};
    for (const auto& [engines, readers] : cases)
        EXPECT_EQ(onTerminal(engines, tellReaders), readers) << engines;
}

TEST(ScannerInputTest, OnlyArmedReadersScanAndAnArmedOneKeepsItsArea) {
    const Steps scan = [](sim::Terminal& terminal) -> string {
        if (!ScannerInput::initialize() || input().startScan() || input().stopScan())
            return "scans unarmed";
        if (!input().initScan(2) || !input().initScan(-1) || input().startScan())
            return "an index without a reader is armed";
        input().setRfidReadAreas(RFID_BANK_3, 1, 2);
        terminal.journal().clear();
        input().initScan(1);
        input().setRfidReadAreas(RFID_BANK_4, 8, 9);
        terminal.journal().await("rfid: reading", 0, test::HostLimit);
        const bool all = input().startScan() && input().stopScan() && !input().startScan();
        terminal.journal().await("rfid: close", 0, test::HostLimit);
        const string shown = terminal.journal().history("rfid");
        ScannerInput::shutdown();
        return (all ? "" : "wrong results ") + shown;
    };
    EXPECT_EQ(onTerminal("12", scan), "open, first 1, last 2, bank 2, reading, abort, close");
}

TEST(ScannerInputTest, WithoutABarcodeReaderTheRfidReaderOutlivesTheFacade) {
    const Steps shutDown = [](sim::Terminal& terminal) -> string {
        ScannerInput::initialize();
        terminal.journal().clear();
        input().initScan(1);
        terminal.journal().await("rfid: reading", 0, test::HostLimit);
        ScannerInput::shutdown();
        terminal.rfid().present({"\x07", {}});
        return terminal.journal().await("rfid: close", 0, test::HostLimit) ? "reads on" : "gone";
    };
    EXPECT_EQ(onTerminal("02", shutDown), "reads on");
}

// The readers that failed were kept, in a state in which they fail for ever.
TEST(ScannerInputTest, AnInitThatFailedCanBeRepeated) {
    const Steps repeat = [](sim::Terminal& terminal) -> string {
        terminal.faults().fail("open", "/dev/ttyAT2", EIO);
        ScannerInput facade;
        return !facade.init() && facade.init() ? "scans" : "fails for ever";
    };
    EXPECT_EQ(onTerminal("12", repeat), "scans");
}

// It was released with its timer running.
TEST(ScannerInputTest, AReaderStartedAfterTheCloseOutlivesTheFacade) {
    const Steps start = [](sim::Terminal& terminal) -> string {
        const test::EventThread events;
        {
            ScannerInput facade;
            facade.init();
            facade.initScan(0);
            facade.close();
            terminal.journal().clear();
            terminal.clock().setSpeed(20);
            facade.startScan();
        }
        const bool both = test::soon([&] {  // the second is the timer's
            return terminal.journal().history("pwrctrl") == "line 9 high, line 9 high";
        });
        return both ? "times out" : "is gone";
    };
    EXPECT_EQ(onTerminal("10", start), "times out");
}

TEST(ScannerInputTest, AReaderThatFailsLeavesTheOneBeforeRunning) {
    const Steps fail = [](sim::Terminal& terminal) -> string {
        // Stays: the reader is still in its delivery when that is noted.
        static const test::NotingWindow window(terminal.journal());
        terminal.rfid().fit(std::nullopt);
        if (ScannerInput::initialize() || ScannerInput::getScannerInput())
            return "an instance";
        terminal.barcodeLine().send("12345\r\n");
        return terminal.journal().await("app: scan 12345", 0, test::HostLimit) ? "scans" : "dead";
    };
    EXPECT_EQ(onTerminal("12", fail), "scans");
}

}  // namespace
