#include "io/SerialPort.h"

#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using std::string;

constexpr char Path[] = "/dev/ttyAT2";

struct SerialPortTest : test::TerminalTest, sim::LinePeer {
    SerialPortTest() { line().connect(this); }
    ~SerialPortTest() override { line().connect(nullptr); }

    /// At the far end.
    void received(std::string_view bytes) override {
        terminal.journal().note("line", string(bytes));
    }

    sim::SerialLine& line() { return terminal.barcodeLine(); }

    /// Bits, parity, stop bits, flow control or speed by initial and value; else opens again.
    bool set(const string& setting) {
        const int value = atoi(setting.c_str() + 1);
        switch (setting[0]) {
        case 'b': return port.setCharBits(value);
        case 'p': return port.setParity(S_PARITY_CONTROL(value));
        case 's': return port.setStopBits(value);
        case 'f': return port.setFlowControl(S_FLOW_CONTROL(value));
        case 'v': return port.setSpeed(static_cast<unsigned long>(value));
        default: return port.reOpen();
        }
    }

    /// The port as most drivers have it.
    void openPlain() {
        ASSERT_TRUE(port.open(Path) && set("v9600") && set("b8") && set("p0") && set("s1") &&
                    set("f0"));
        ASSERT_EQ(line().settings(), "9600 8N1");
    }

    SerialPort port;
};

TEST_F(SerialPortTest, EverySpeedOfTheTableReachesBothDirectionsAndNoOtherChangesAnything) {
    openPlain();
    for (const unsigned baud :
         {110U, 300U, 1200U, 2400U, 4800U, 9600U, 19200U, 38400U, 57600U, 600U, 115200U}) {
        EXPECT_TRUE(port.setSpeed(baud));
        EXPECT_EQ(line().settings(), std::to_string(baud) + " 8N1");
        const termios now = line().attributes();
        EXPECT_EQ(cfgetispeed(&now), cfgetospeed(&now)) << baud;
    }
    for (const unsigned long baud : {0UL, 75UL, 150UL, 200UL, 1800UL, 9601UL, 230400UL, 460800UL,
                                     static_cast<unsigned long>(B9600), ~0UL})
        EXPECT_FALSE(port.setSpeed(baud)) << baud;
    EXPECT_EQ(line().settings(), "115200 8N1");
}

TEST_F(SerialPortTest, ARefusedValueIsNotAppliedButItsFieldGoesClearedWithTheNextSetting) {
    constexpr struct {
        const char *refused, *next, *after;
    } Cases[] = {
        {"b9", "s1", "9600 5E1 rtscts xonxoff"},    {"b4", "v300", "300 5E2 rtscts xonxoff"},
        {"b-1", "b7", "9600 7E2 rtscts xonxoff"},   {"p3", "b7", "9600 7N2 rtscts xonxoff"},
        {"p-1", "open", "9600 8N2 rtscts xonxoff"}, {"s0", "b7", "9600 7E1 rtscts xonxoff"},
        {"s3", "p1", "9600 8O1 rtscts xonxoff"},    {"f4", "s1", "9600 8E1"},
        {"f-1", "f2", "9600 8E2 rtscts"},
    };
    openPlain();
    for (const auto& refusal : Cases) {
        EXPECT_TRUE(set("v9600") && set("b8") && set("p2") && set("s2") && set("f3"));
        EXPECT_FALSE(set(refusal.refused)) << refusal.refused;
        EXPECT_EQ(line().settings(), "9600 8E2 rtscts xonxoff");
        EXPECT_TRUE(set(refusal.next)) << refusal.refused;
        EXPECT_EQ(line().settings(), refusal.after);
        EXPECT_TRUE(set("v1200"));
        EXPECT_EQ(line().settings(), "1200" + string(strchr(refusal.after, ' '))) << "only once";
    }
}

TEST_F(SerialPortTest, AFirstOpenSetsRawModeWithEverythingOnAtSpeedZero) {
    ASSERT_TRUE(port.open(Path));
    const termios now = line().attributes();
    EXPECT_EQ(now.c_iflag, tcflag_t(IGNBRK | IXON | IXANY | IXOFF));
    EXPECT_EQ(now.c_oflag, 0U);
    EXPECT_EQ(now.c_lflag, 0U);
    EXPECT_EQ(now.c_cflag,
              tcflag_t(CREAD | HUPCL | CLOCAL | CS8 | CSTOPB | PARENB | PARODD | CRTSCTS));
    for (int character = 0; character < NCCS; ++character)
        EXPECT_EQ(now.c_cc[character], character == VMIN ? 1 : 0) << character;
}

TEST_F(SerialPortTest, AMissingNodeIsRememberedAndOpenedOnceItIsThere) {
    terminal.setPresent(Path, false);
    EXPECT_FALSE(port.open(Path) || port.reOpen() || port.isPortOpen());
    terminal.setPresent(Path, true);
    EXPECT_TRUE(port.reOpen());
    EXPECT_EQ(line().settings(), "0 8O2 rtscts xonxoff");
    EXPECT_FALSE(port.open(nullptr) || port.open("") || line().isOpen());
}

TEST_F(SerialPortTest, AHangUpEndsAWaitAndIsRememberedUntilThePortIsOpenedAgain) {
    openPlain();
    const auto remembersHangUp = [&] {
        const int calls = terminal.faults().calls();
        EXPECT_FALSE(port.isPortOpen());
        return terminal.faults().calls() == calls;  // it knows without asking
    };
    const int before = terminal.faults().calls();
    auto pending = test::inBackground([&] { return port.isInputPending(-1); });
    EXPECT_TRUE(test::soon([&] { return terminal.faults().calls() > before; }));
    line().hangUp();
    EXPECT_FALSE(pending.get());
    EXPECT_TRUE(remembersHangUp());
    EXPECT_FALSE(port.isInputPending(-1));
    EXPECT_EQ(port.numInputPending(-1), 0);

    EXPECT_TRUE(port.reOpen());
    EXPECT_EQ(line().settings(), "9600 8N1");
    line().send("ab");
    EXPECT_TRUE(port.isInputPending(-1));
    EXPECT_EQ(port.numInputPending(0), 2);
    line().hangUp();
    EXPECT_TRUE(test::soon([&] { return port.numInputPending(0) == 0; })) << "with input unread";
    EXPECT_TRUE(remembersHangUp() && port.reOpen());
    EXPECT_FALSE(remembersHangUp());
    line().hangUp();
    EXPECT_TRUE(test::soon([&] { return remembersHangUp(); }));
}

std::atomic<std::chrono::steady_clock::rep> interruptedAt{0};

void noteInterruption(int) {
    interruptedAt = std::chrono::steady_clock::now().time_since_epoch().count();
}

TEST_F(SerialPortTest, ASignalDuringAWaitStartsItsTimeOutAgain) {
    constexpr auto Wait = 500ms;
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = noteInterruption;  // without SA_RESTART
    sigaction(SIGUSR1, &action, &former);
    openPlain();
    for (const bool counting : {false, true}) {
        interruptedAt = 0;
        std::atomic<pthread_t> waiter{};
        const int calls = terminal.faults().calls();
        auto end = test::inBackground([&] {
            waiter = pthread_self();
            EXPECT_FALSE(counting ? port.numInputPending(Wait.count()) != 0
                                  : port.isInputPending(Wait.count()));
            return std::chrono::steady_clock::now().time_since_epoch();
        });
        ASSERT_TRUE(test::soon([&] { return terminal.faults().calls() > calls; }));
        std::this_thread::sleep_for(100ms);  // of the time that starts again
        pthread_kill(waiter, SIGUSR1);
        ASSERT_TRUE(test::soon([] { return interruptedAt != 0; }));
        EXPECT_GE(end.get() - std::chrono::steady_clock::duration(interruptedAt), Wait);
    }
    sigaction(SIGUSR1, &former, nullptr);
}

TEST_F(SerialPortTest, ModemLinesAreReadAndSetOneByOne) {
    openPlain();
    EXPECT_TRUE(port.getCTS());
    line().setModemLine(TIOCM_CTS, false);
    EXPECT_FALSE(port.getCTS());
    constexpr int Outputs = TIOCM_RTS | TIOCM_DTR;
    port.setRTS(false);
    EXPECT_EQ(line().modemLines() & Outputs, TIOCM_DTR);
    port.setDTR(false);
    EXPECT_EQ(line().modemLines() & Outputs, 0);
    port.setRTS(true);
    EXPECT_EQ(line().modemLines() & Outputs, TIOCM_RTS);
    terminal.faults().fail("ioctl", Path, EIO, 0, 2);
    port.setDTR(true);
    EXPECT_FALSE(port.getCTS());
    EXPECT_EQ(line().modemLines() & Outputs, TIOCM_RTS) << "nothing is set from lines not read";
    port.setDTR(true);
    EXPECT_EQ(line().modemLines() & Outputs, Outputs);
}

TEST_F(SerialPortTest, DrainingWaitsForTheFarEndAndFlushingDiscards) {
    openPlain();
    EXPECT_EQ(port.writeData("hello", 5), 5);
    EXPECT_EQ(port.drainOutput(), 0);
    EXPECT_EQ(take("line"), "hello");
    line().send("noise");
    EXPECT_TRUE(port.isInputPending(-1));
    EXPECT_EQ(port.flushInput(), 0);
    EXPECT_EQ(port.numInputPending(0), 0);
    EXPECT_EQ(port.flushOutput(), 0);
    port.sendBreak();
    EXPECT_EQ(take("barcode"), "break");
    for (const char* call : {"tcflush", "tcdrain", "write"})
        terminal.faults().fail(call, Path, EIO);
    EXPECT_EQ(port.flushInput(), -1);
    EXPECT_EQ(port.drainOutput(), -1);
    EXPECT_EQ(port.writeData("x", 1), -1);
}

TEST_F(SerialPortTest, WhicheverSystemCallFailsThePortAnswersAndKeepsNoDescriptor) {
    const auto procedure = [&](SerialPort& tried) {
        const bool opened = tried.open(Path);
        const bool reopened = tried.reOpen();
        EXPECT_TRUE(opened || reopened) << "one call fails, not two";
        EXPECT_TRUE(tried.setSpeed(9600) && tried.setCharBits(8) && tried.setStopBits(1) &&
                    tried.setParity(S_PARITY_NONE) && tried.setFlowControl(S_FLOW_NONE));
        tried.setRTS(true);
        tried.getCTS();
        tried.isInputPending(0);
        tried.numInputPending(0);
        tried.flushInput();
        tried.drainOutput();
        tried.close();
        EXPECT_FALSE(line().isOpen());
        tried.reOpen();
    };
    const long before = test::openDescriptors();
    sim::Faults& faults = terminal.faults();
    int calls = 1;
    for (int failing = 1; failing <= calls; ++failing) {
        for (const int error : {EIO, EINTR}) {
            faults.clear();
            faults.failNth(failing, error);
            {
                SerialPort tried;
                procedure(tried);
            }
            calls = faults.calls();
            EXPECT_EQ(faults.failed(), 1) << failing;
            EXPECT_EQ(test::openDescriptors(), before) << "call " << failing;
        }
    }
    EXPECT_GT(calls, 25);
}

}  // namespace
