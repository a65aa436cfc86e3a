#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "gsm/Gsm0710Protocol.h"
#include "gsm/Octets.h"
#include "io/FileDescriptor.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using sim::RadioMux;
using std::string;
using test::octets;

constexpr char Line[] = "/dev/ttyAT1";

string data(uint8_t channel, const string& bytes) {
    return RadioMux::encode({channel, gsm0710::Uih, true, bytes});
}

/// As the module sends it.
string dataBack(uint8_t channel, const string& bytes) {
    return RadioMux::encode({channel, gsm0710::Uih, false, bytes});
}

/// Bytes pass as they are from now on.
void makeRaw(int descriptor) {
    termios raw{};
    ::tcgetattr(descriptor, &raw);
    cfmakeraw(&raw);
    ::tcsetattr(descriptor, TCSANOW, &raw);
}

/// A program at the application's end of the module's line, which knows nothing but bytes.
struct RadioModuleTest : test::TerminalTest {
    RadioModuleTest() {
        radio.setOn(true);
        radio.setAnswerTime(0ms);
        radio.setRegistrationTime(0ms);
        makeRaw(line.get());
    }

    /// What is sent, and all that comes back.
    void expect(const string& sent, const string& answer) const {
        ASSERT_EQ(::write(line.get(), sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
        EXPECT_EQ(testing::PrintToString(test::readFrom(line.get(), answer.size())),
                  testing::PrintToString(answer));
    }

    /// A command, and its answer behind the echo.
    void ask(const string& command, const string& answer) const {
        expect(command + "\r", command + "\r\r\n" + answer + "\r\n");
    }

    sim::RadioModule& radio = terminal.radio();
    const io::FileDescriptor line{::open(Line, O_RDWR | O_NOCTTY | O_NONBLOCK)};
};

TEST_F(RadioModuleTest, TheMultiplexerAnswersAsThePeerOfTheStandardDoes) {
    ask("AT+CPIN=1234", "OK");
    ask("AT+CMUX=0", "OK");
    const struct {
        string frame, answer;
    } frames[] = {
        {octets("F9 07 3F 01 DE F9"), octets("F9 07 1F 01 F4 F9")},  // channel 0 comes first
        {octets("F9 03 3F 01 1C F9"), octets("F9 03 73 01 D7 F9")},
        {octets("F9 F9 F9 07 3F 01 DE F9"),
         octets("F9 07 73 01 15 F9") + dataBack(0, octets("E3 05 07 8D"))},
        {data(0, octets("23 07 61 62 63")), dataBack(0, octets("21 07 61 62 63"))},
        {data(0, octets("F3 01")), dataBack(0, octets("11 03 F3"))},  // a command nobody knows
        {data(3, "x"), octets("F9 0F 1F 01 B1 F9")},                  // not open
        {RadioMux::encode({1, gsm0710::Ui, true, "AT\r"}),
         dataBack(1, "AT\r") + dataBack(1, "\r\nOK\r\n")},
        {octets("F9 0B 3F 01 59 F9"),
         octets("F9 0B 73 01 92 F9") + dataBack(0, octets("E3 05 0B 8D"))},
        {data(2, "ATD*99#\r"), dataBack(2, "ATD*99#\r") + dataBack(2, "\r\nCONNECT\r\n")},
        {data(2, "AT\r"), dataBack(2, "AT\r")},  // data by now
        {data(0, octets("E3 05 0B 8F")) + data(2, "held"), dataBack(0, octets("E1 05 0B 8F"))},
        {data(1, "AT\r"), dataBack(1, "AT\r") + dataBack(1, "\r\nOK\r\n")},
        {data(0, octets("E3 05 0B 8D")), dataBack(0, octets("E1 05 0B 8D")) + dataBack(2, "held")},
        // The end of a PPP link ends the call.
        {data(2, octets("7E FF 7D 23 C0 21 7D 25 7D 21 7D 20 7D 24 3D C7 7E")),
         dataBack(2, octets("7E FF 7D 23 C0 21 7D 26 7D 21 7D 20 7D 24 F0 E2 7E")) +
             dataBack(2, "\r\nNO CARRIER\r\n")},
        {data(2, "ATD*99#\r"), dataBack(2, "ATD*99#\r") + dataBack(2, "\r\nCONNECT\r\n")},
        {octets("F9 07 53 01 3F F9"), octets("F9 07 73 01 15 F9")},
        {octets("F9 07 53 01 3F F9"), octets("F9 07 1F 01 F4 F9")},
    };
    for (const auto& [frame, answer] : frames)
        expect(frame, answer);
    radio.dropCall();
    expect("", dataBack(2, "\r\nNO CARRIER\r\n"));
    for (const bool isHungUp : {false, true}) {
        expect(data(2, isHungUp ? "ATH\rATD*99#\r" : "ATD*99#\r"),
               (isHungUp ? dataBack(2, "ATH\r") + dataBack(2, "\r\nOK\r\n") : "") +
                   dataBack(2, "ATD*99#\r") + dataBack(2, "\r\nCONNECT\r\n"));
        terminal.clock().setMonotonic(terminal.clock().monotonic() + 1s);
        expect(data(2, "+++"), dataBack(2, "+++") + dataBack(2, "\r\nOK\r\n"));
    }
    radio.closeDown();
    expect(data(0, octets("C1 01")), dataBack(0, octets("C3 01")));
    EXPECT_TRUE(sim::eventually([&] { return !radio.isMultiplexing(); }, 10s));
    ask("AT", "OK");
}

TEST_F(RadioModuleTest, LegacyPseudoTerminalsAreRealAndTheirMastersExclusive) {
    EXPECT_EQ(::open("/dev/ttyp1", O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, EIO) << "no slave without its master";
    io::FileDescriptor master(::open("/dev/ptyp1", O_RDWR | O_NOCTTY));
    EXPECT_EQ(::open("/dev/ptyp1", O_RDWR), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_STREQ(::ptsname(master.get()), "/dev/ttyp1");
    char name[32] = {};
    EXPECT_EQ(::ptsname_r(master.get(), name, sizeof name) + ::grantpt(master.get()), 0);
    EXPECT_STREQ(name, "/dev/ttyp1");
    EXPECT_EQ(::unlockpt(master.get()), 0);
    const io::FileDescriptor slave(::open("/dev/ttyp1", O_RDWR | O_NOCTTY));
    master.reset();
    pollfd hungUp{slave.get(), 0, 0};
    EXPECT_EQ(::poll(&hungUp, 1, 20000), 1);
    EXPECT_TRUE(hungUp.revents & POLLHUP);
    master.reset(::open("/dev/ptyp1", O_RDWR | O_NOCTTY));
    EXPECT_TRUE(master.isOpen()) << "though a slave of the last pair is still held";
    EXPECT_TRUE(io::FileDescriptor(::open("/dev/ttyp1", O_RDWR | O_NOCTTY)).isOpen());
    EXPECT_EQ(::open("/dev/ptyq0", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
