#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "io/FileDescriptor.h"
#include "power/BoardProtocol.h"
#include "sim/HostTime.h"
#include "sim/Terminal.h"

namespace {

using namespace std::chrono_literals;
using sim::RadioFrame;
using sim::RadioMux;
using sim::RadioNetwork;
using sim::RadioSim;
using sim::Reply;
using std::string;
using testing::HasSubstr;

constexpr char Line[] = "/dev/ttyAT1";

/// Octets given in hexadecimal.
string octets(const string& hex) {
    string bytes;
    for (size_t at = 0; at < hex.size(); at += 3)
        bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    return bytes;
}

string data(uint8_t channel, const string& bytes) {
    return RadioMux::encode({channel, RadioMux::UIH, true, bytes});
}

/// As the module sends it.
string dataBack(uint8_t channel, const string& bytes) {
    return RadioMux::encode({channel, RadioMux::UIH, false, bytes});
}

bool isComplete(const string& answer) {
    for (const char* end : {"\nOK\r\n", "ERROR\r\n", "\nCONNECT\r\n", "NO CARRIER\r\n"}) {
        if (answer.find(end) != string::npos)
            return true;
    }
    const size_t code = answer.find("\n+CME ERROR: ");
    return code != string::npos && answer.find('\n', code + 1) != string::npos;
}

/// A program at the application's end of the module's line, which knows nothing but bytes.
class RadioModuleTest : public testing::Test {
protected:
    RadioModuleTest() {
        radio.setOn(true);
        radio.setAnswerTime(0ms);
        radio.setRegistrationTime(0ms);
        openLine();
    }

    void openLine(tcflag_t flowControl = CRTSCTS) {
        line.reset();
        line.reset(::open(Line, O_RDWR | O_NOCTTY | O_NONBLOCK));
        termios raw{};
        ::tcgetattr(line.get(), &raw);
        cfmakeraw(&raw);
        raw.c_cflag = (raw.c_cflag & ~static_cast<tcflag_t>(CRTSCTS)) | flowControl;
        ::tcsetattr(line.get(), TCSANOW, &raw);
    }

    void send(const string& bytes) const {
        ASSERT_EQ(::write(line.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }

    template <class Enough> string receiveUntil(Enough enough) const {
        string text;
        pollfd file{line.get(), POLLIN, 0};
        const sim::HostTime hostTime;
        while (!enough(text) && ::poll(&file, 1, 10000) > 0) {
            char buffer[256];
            const ssize_t size = ::read(line.get(), buffer, sizeof buffer);
            if (size <= 0)
                break;
            text.append(buffer, static_cast<size_t>(size));
        }
        return text;
    }

    string receive(size_t size) const {
        return receiveUntil([size](const string& text) { return text.size() >= size; });
    }

    void expect(const string& bytes) const {
        EXPECT_EQ(testing::PrintToString(receive(bytes.size())), testing::PrintToString(bytes));
    }

    /// The answer behind the echo, its lines joined with '|'.
    string ask(const string& command) const {
        send(command + "\r");
        const string all = receiveUntil(isComplete);
        string text;
        for (size_t at = all.find('\r') + 1; at < all.size(); ++at) {
            if (all[at] == '\n' && !text.empty() && text.back() != '|')
                text += '|';
            else if (all[at] != '\r' && all[at] != '\n')
                text += all[at];
        }
        return text.substr(0, text.find_last_not_of('|') + 1);
    }

    struct Exchange {
        string command, answer;
    };

    void expectAll(const std::vector<Exchange>& exchanges) const {
        for (const Exchange& exchange : exchanges)
            EXPECT_EQ(ask(exchange.command), exchange.answer) << exchange.command;
    }

    void unlock() const { ASSERT_EQ(ask("AT+CPIN=1234"), "OK"); }

    /// Multiplexing with the first channels open and their modem status passed.
    void multiplex(uint8_t lastChannel) const {
        ASSERT_EQ(ask("AT+CMUX=0"), "OK");
        for (uint8_t channel = 0; channel <= lastChannel; ++channel)
            send(RadioMux::encode({channel, RadioMux::SABM | RadioMux::PollFinal, true, {}}));
        receive(6 + static_cast<size_t>(lastChannel) * (6 + 10));
    }

    void pass(std::chrono::milliseconds time) {
        terminal.clock().setMonotonic(terminal.clock().monotonic() + time);
    }

    sim::Terminal terminal;
    sim::RadioModule& radio = terminal.radio();
    io::FileDescriptor line;
};

TEST_F(RadioModuleTest, CommandsAreEchoedAndAnsweredAsTheSettingsSay) {
    send("AT\r");
    expect("AT\r\r\nOK\r\n");
    send("noise\r\natE0+CREG?;+GARBAGE;+CSQ\r");
    expect("atE0+CREG?;+GARBAGE;+CSQ\r\r\n+CREG: 0,0\r\n\r\nERROR\r\n");
    send("ATV0\rAT+CSQ\rAT+CPIN=1\rATV1Q1\rAT\rATQ0\r");
    expect("0\r+CSQ: 21,0\r\n0\r4\r\r\nOK\r\n");
    send("ATE1\r");
    expect("\r\nOK\r\n");
    expectAll({{"AT+CMEE=1", "OK"},
               {"AT+CPIN=1", "+CME ERROR: 16"},
               {"AT+CMEE=2;+COPS?", "+CME ERROR: SIM PIN required"},
               {"AT+CMEE=3", "+CME ERROR: incorrect parameters"},
               {"AT+CMEE?", "+CMEE: 2|OK"},
               {"AT&K3;+IPR=9600;#SELINT=2", "OK"},
               {"AT+CGMR", "10.00.005|OK"}});
    send("ATZ+IPR=115200\r");  // at 9600 baud
    expect("ATZ+IPR=115200\r\r\nOK\r\n");
    send("AT\r");
    ::tcdrain(line.get());
    EXPECT_EQ(terminal.journal().lines().back(), "radio: ATZ+IPR=115200") << "noise to it now";
}

TEST_F(RadioModuleTest, TheSimIsInOneOfManyStates) {
    const struct {
        RadioSim::State state;
        string answer;
    } states[] = {{RadioSim::Absent, "+CME ERROR: 10"},       {RadioSim::Broken, "+CME ERROR: 13"},
                  {RadioSim::Busy, "+CME ERROR: 14"},         {RadioSim::Wrong, "+CME ERROR: 15"},
                  {RadioSim::PukNeeded, "+CPIN: SIM PUK|OK"}, {RadioSim::Ready, "+CPIN: READY|OK"},
                  {RadioSim::PinNeeded, "+CPIN: SIM PIN|OK"}};
    ask("AT+CMEE=1");
    for (const auto& tried : states) {
        radio.setSim(tried.state);
        EXPECT_EQ(ask("AT+CPIN?"), tried.answer);
    }
    send("AT+CPIN=1234\r\r");  // the second end is of no command
    EXPECT_THAT(receiveUntil(isComplete), HasSubstr("\r\nOK\r\n"));
    expectAll({{"AT+CPIN?", "+CPIN: READY|OK"}, {"AT+CPIN=1234", "+CME ERROR: 3"}});
    radio.setSim(RadioSim::PinNeeded);
    expectAll({{"AT+CPIN=1", "+CME ERROR: 16"},
               {"AT+CPIN=\"2\"", "+CME ERROR: 16"},
               {"AT+CPIN?", "+CPIN: SIM PIN|OK"},
               {"AT+CPIN=3", "+CME ERROR: 16"},
               {"AT+CPIN?", "+CPIN: SIM PUK|OK"},
               {"AT+CPIN=1234", "+CME ERROR: 12"},
               {"AT+CPIN=1,2", "+CME ERROR: 16"},
               {"AT+CPIN=12345678,4321", "OK"},
               {"AT+CPIN?", "+CPIN: READY|OK"}});
    EXPECT_EQ(radio.simCard().pin, "4321");
}

TEST_F(RadioModuleTest, ItRegistersAttachesAndDialsAsTheNetworkAllows) {
    radio.setRegistrationTime(100h);
    ask("AT+CMEE=1");
    expectAll({{"AT+COPS=0,2", "+CME ERROR: 11"}, {"AT+CREG=1", "OK"}});
    send("AT+CPIN=1234\r");
    expect("AT+CPIN=1234\r\r\nOK\r\n\r\n+CREG: 2\r\n");
    expectAll({{"AT+COPS=0,2", "OK"},
               {"AT+CREG?", "+CREG: 1,2|OK"},
               {"AT+COPS?", "+COPS: 0|OK"},
               {"AT+CGATT=1", "+CME ERROR: 30"},
               {"ATD*99#", "NO CARRIER"}});
    EXPECT_EQ(ask("AT#MONI"),
              "#MONI: BSIC:70 RxQual:0 LAC:1A2B Id:3C4D ARFCN:736 PWR:-71dbm TA:1|OK");
    radio.setRegistrationTime(0ms);
    expect("\r\n+CREG: 1\r\n");
    radio.setSignal(-99);
    expectAll({{"AT+COPS?", "+COPS: 0,2,\"00101\"|OK"},
               {"AT+CSQ", "+CSQ: 7,0|OK"},
               {"AT#MONI", "#MONI: Sim Net BSIC:70 RxQual:0 LAC:1A2B Id:3C4D ARFCN:736 "
                           "PWR:-99dbm TA:1|OK"},
               {"AT+CGQREQ=1,0,0,0,0,0", "+CME ERROR: 148"},
               {"AT+CGDCONT=1,\"IP\",\"inter,net\",\"0.0.0.0\",0,0", "OK"},
               {"AT+CGDCONT?", "+CGDCONT: 1,\"IP\",\"inter,net\",\"0.0.0.0\",0,0|OK"},
               {"AT+CGQREQ=1,0,0,0,0,0", "OK"},
               {"AT+CGATT=1", "OK"},
               {"AT+CGATT?", "+CGATT: 1|OK"}});
    EXPECT_EQ(ask("ATD*99***1#"), "CONNECT");
    send("\x7E\xFF");
    expect("\x7E\xFF");
    radio.setCoverage(RadioNetwork::Denied);
    expect("\r\nNO CARRIER\r\n\r\n+CREG: 3\r\n");
    radio.setCoverage(RadioNetwork::Roaming);
    expect("\r\n+CREG: 5\r\n");
    radio.sayUnasked("RING");
    expect("\r\nRING\r\n");

    terminal.clock().setWall(std::chrono::seconds(1700000000));
    expectAll(
        {{"AT+CCLK=\"26/02/03,04:05:06-04\"", "OK"}, {"AT+CCLK=\"26/13/03\"", "+CME ERROR: 50"}});
    terminal.clock().setWall(std::chrono::seconds(1700000000 + 86400));
    EXPECT_THAT(ask("AT+CCLK?"), HasSubstr("+CCLK: \"26/02/04,04:05:0"));
}

TEST_F(RadioModuleTest, HooksAnswerDelayCutGarbleAndSwallow) {
    radio.onCommand("AT+CPIN?", Reply::error(10)).times(2);
    radio.failNext("AT+CPIN?");
    radio.onCommand("AT+CGMR", Reply::ok("1.2\n3.4"));
    radio.onCommand("AT+CSQ", Reply::final("BUSY").withoutEcho());
    radio.onCommand("AT+COPS=*", Reply::normal().cut(5));
    radio.onCommand("AT+CGSN", Reply::raw("half").then([this] { radio.sayUnasked("RING"); }));
    radio.onCommand("AT+CGMI", Reply::ok().garbled());
    radio.onCommand("AT+CGMM", Reply::silence());
    radio.onCommand("AT+CIMI", Reply::normal().after(1h));
    expectAll({{"AT+CPIN?", "+CME ERROR: 10"},
               {"AT+CPIN?", "+CME ERROR: 10"},
               {"AT+CPIN?", "ERROR"},
               {"AT+CPIN?", "+CPIN: SIM PIN|OK"},
               {"AT+CGMR", "1.2|3.4|OK"}});
    send("AT+CSQ\rAT+COPS=0\rAT+CGSN\rAT+CGMM\rAT+CGMI\r");
    expect("\r\nBUSY\r\nAT+COPS=0\r\r\nERRAT+CGSN\rhalf\r\nRING\r\nAT+CGMI\r\x18\x1FZ^\x18\x1F");
    send("AT+CIMI\rAT\r");  // the second waits for the first
    expect("AT+CIMI\rAT\r");
    radio.sayUnasked("RING");
    expect("\r\nRING\r\n");
    terminal.clock().setSpeed(1e6);
    expect("\r\nERROR\r\n\r\nOK\r\n");
    terminal.clock().setSpeed(1);
    radio.clearHooks();
    radio.loseBytes(4);
    send("AT\r");
    expect("\nOK\r\n");
    radio.garbleBytes(1);
    send("AT\r");
    expect("TT\r\r\nOK\r\n");
}

TEST_F(RadioModuleTest, ItsLinesPowerItUpAndDownAndResetIt) {
    const io::FileDescriptor control(::open(board::PowerControlPath, O_RDWR));
    const auto drive = [&](unsigned request, unsigned number) {
        return ::ioctl(control.get(), request, static_cast<unsigned long>(number));
    };
    const auto pulse = [&](std::chrono::milliseconds length) {
        drive(board::LineHigh, board::LineGprsPowerKey);
        pass(length);
        drive(board::LineLow, board::LineGprsPowerKey);
        return drive(board::ReadLine, board::LineGprsPowerStatus);
    };
    radio.setOn(false);
    drive(board::LineHigh, board::LineGprsControl);
    drive(board::SupplyOff, board::SupplyGprs);
    EXPECT_EQ(pulse(1000ms), 0) << "without supply";
    drive(board::SupplyOn, board::SupplyGprs);
    EXPECT_EQ(pulse(500ms), 0) << "too short";
    EXPECT_EQ(pulse(1000ms), 1);
    send("AT\r");  // not up yet
    ::tcdrain(line.get());
    pass(1s);
    EXPECT_EQ(ask("ATE0"), "OK");
    drive(board::LineHigh, board::LineGprsReset);
    drive(board::LineLow, board::LineGprsReset);
    pass(1s);
    EXPECT_EQ(ask("AT+CPIN?"), "+CPIN: SIM PIN|OK") << "with echo again";

    ask("AT+CFUN=5");
    drive(board::LineHigh, board::LineGprsDtr);
    send("AT\r");
    ::tcdrain(line.get());
    drive(board::LineLow, board::LineGprsDtr);
    EXPECT_EQ(ask("AT+CFUN?"), "+CFUN: 5|OK") << "awake again, the other one slept through";

    EXPECT_EQ(pulse(1000ms), 1) << "too short to switch off";
    radio.lingerFor(1);
    EXPECT_EQ(pulse(2000ms), 1);
    EXPECT_EQ(drive(board::ReadLine, board::LineGprsPowerStatus), 0);
    radio.answerPulse(2);
    EXPECT_EQ(pulse(1000ms), 0);
    EXPECT_EQ(pulse(1000ms), 1);
    drive(board::LineLow, board::LineGprsControl);
    EXPECT_FALSE(radio.isOn());
}

TEST_F(RadioModuleTest, TheMultiplexerAnswersAsThePeerOfTheStandardDoes) {
    unlock();
    ASSERT_EQ(ask("AT+CMUX=0"), "OK");
    const string controlStatus = dataBack(0, octets("E3 05 07 8D"));
    const Exchange frames[] = {
        {octets("F9 07 3F 01 DE F9"), octets("F9 07 1F 01 F4 F9")},  // channel 0 comes first
        {octets("F9 03 3F 01 1C F9"), octets("F9 03 73 01 D7 F9")},
        {octets("F9 F9 F9 07 3F 01 DE F9"), octets("F9 07 73 01 15 F9") + controlStatus},
        {data(0, octets("E3 05 07 0D")), dataBack(0, octets("E1 05 07 0D"))},
        {data(0, octets("23 07 61 62 63")), dataBack(0, octets("21 07 61 62 63"))},
        {data(0, octets("F3 01")), dataBack(0, octets("11 03 F3"))},  // a command nobody knows
        {data(1, "AT+CREG?\r"),
         dataBack(1, "AT+CREG?\r") + dataBack(1, "\r\n+CREG: 0,1\r\n\r\nOK\r\n")},
        {data(3, "x"), octets("F9 0F 1F 01 B1 F9")},  // not open
        {RadioMux::encode({1, RadioMux::UI, true, "AT\r"}),
         dataBack(1, "AT\r") + dataBack(1, "\r\nOK\r\n")},
        {octets("F9 07 53 01 3F F9"), octets("F9 07 73 01 15 F9")},
        {octets("F9 07 53 01 3F F9"), octets("F9 07 1F 01 F4 F9")},
    };
    for (const Exchange& exchange : frames) {
        send(exchange.command);
        expect(exchange.answer);
    }
    radio.refuseChannel(2);
    radio.recordFrames();
    send(octets("F9 0B 3F 01 59 F9"));
    expect(RadioMux::encode({2, RadioMux::DM | RadioMux::PollFinal, true, {}}));
    EXPECT_EQ(radio.frames().at(0).control, RadioMux::SABM | RadioMux::PollFinal);
    radio.onFrame([](const RadioFrame&) { return true; });
    send(octets("F9 0B 3F 01 59 F9"));
    ::tcdrain(line.get());
    radio.onFrame(nullptr);
    radio.openChannel(3);
    expect(octets("F9 0D 3F 01 FA F9"));
    radio.closeDown();
    expect(dataBack(0, octets("C3 01")));
    send(data(0, octets("C1 01")) + data(0, octets("C3 01")));  // the second reaches no frame code
    EXPECT_TRUE(sim::eventually([&] { return !radio.isMultiplexing(); }, 10s));
    EXPECT_EQ(ask("AT"), "OK");
}

TEST_F(RadioModuleTest, TheMultiplexerFindsFramesAmongDamagedOnesAndLosesNoOther) {
    multiplex(2);
    const string good = data(2, "0123456789");
    const string answer = dataBack(2, "0123456789");
    for (size_t cut = 1; cut < good.size(); ++cut) {
        send(good.substr(0, cut));
        ::tcdrain(line.get());
        send(good.substr(cut));
        expect(answer);
    }
    for (size_t at = 0; at < good.size(); ++at) {
        string flipped = good, shorter = good;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
        shorter.erase(at, 1);
        for (const string& damaged : {flipped, shorter}) {
            send(damaged + data(0, octets("23 01")) + data(1, "AT\r"));
            const string end = dataBack(1, "\r\nOK\r\n");
            const string all =
                receiveUntil([&](const string& text) { return text.find(end) != string::npos; });
            EXPECT_THAT(all, HasSubstr(dataBack(0, octets("21 01")))) << at;
        }
    }
    send(data(2, string(32, 'x')) + good);  // longer than agreed
    expect(answer);
}

TEST_F(RadioModuleTest, ChannelTwoCarriesDataAfterTheDialOrAnythingElse) {
    unlock();
    multiplex(2);
    send(data(2, "ATD*99#\r"));
    expect(dataBack(2, "ATD*99#\r") + dataBack(2, "\r\nCONNECT\r\n"));
    EXPECT_TRUE(radio.isOnline(2));
    send(data(2, "AT\r"));
    expect(dataBack(2, "AT\r"));
    radio.dropCall();
    expect(dataBack(2, "\r\nNO CARRIER\r\n"));
    send(data(2, "~PPP") + data(2, "ATH\r"));
    expect(dataBack(2, "~PPP") + dataBack(2, "ATH\r"));

    send(data(0, octets("E3 05 0B 8F")) + data(2, "held"));  // flow control
    expect(dataBack(0, octets("E1 05 0B 8F")));
    radio.sayUnasked("RING");
    expect(dataBack(1, "\r\nRING\r\n"));
    send(data(0, octets("E3 05 0B 8D")));
    expect(dataBack(0, octets("E1 05 0B 8D")) + dataBack(2, "held"));

    radio.onData([this](uint8_t channel, std::string_view bytes) {
        terminal.journal().note("peer", std::to_string(channel) + string(bytes));
        radio.sendData(channel, string(40, 'y'));
    });
    send(data(2, "to the peer"));
    expect(dataBack(2, string(31, 'y')) + dataBack(2, string(9, 'y')));
    EXPECT_EQ(terminal.journal().history("peer"), "2to the peer");
}

TEST_F(RadioModuleTest, WithoutAChannelItTakesCommandsAgain) {
    ASSERT_EQ(ask("AT+CMUX=0"), "OK");
    terminal.clock().setSpeed(1000);
    EXPECT_TRUE(sim::eventually([&] { return !radio.isMultiplexing(); }, 10s));
    EXPECT_EQ(ask("AT"), "OK");
}

TEST_F(RadioModuleTest, TheLineLosesNothingUnderHardwareFlowControl) {
    ASSERT_EQ(ask("ATE0"), "OK");
    string all;
    for (int i = 0; all.size() < 100000; ++i)
        all += std::to_string(i) + ",";
    radio.line().send(all);
    expect(all);
    openLine(0);
    radio.line().send(all);
    EXPECT_LT(receive(4096).size(), all.size()) << "what there is no room for is lost";
    radio.setSilent(true);
    openLine();
    radio.line().fragment(3, 1h);
    radio.line().distortSent([](string& bytes) { bytes += '!'; });
    radio.line().send("1234567");
    expect("123");
    pass(2h);
    expect("4567!");
}

TEST_F(RadioModuleTest, LegacyPseudoTerminalsAreRealAndTheirMastersExclusive) {
    EXPECT_EQ(::open("/dev/ttyp1", O_RDWR | O_NOCTTY), -1);
    EXPECT_EQ(errno, EIO) << "no slave without its master";
    io::FileDescriptor master(::open("/dev/ptyp1", O_RDWR | O_NOCTTY | O_NONBLOCK));
    ASSERT_TRUE(master.isOpen());
    EXPECT_EQ(::open("/dev/ptyp1", O_RDWR), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_STREQ(::ptsname(master.get()), "/dev/ttyp1");
    EXPECT_EQ(::grantpt(master.get()) + ::unlockpt(master.get()), 0);

    termios raw{};
    ASSERT_EQ(::tcgetattr(master.get(), &raw), 0);
    cfmakeraw(&raw);
    ASSERT_EQ(::tcsetattr(master.get(), TCSANOW, &raw), 0);
    const io::FileDescriptor other(::open("/dev/ptypf", O_RDWR | O_NOCTTY));
    const io::FileDescriptor slave(::open("/dev/ttyp1", O_RDWR | O_NOCTTY));
    ASSERT_TRUE(other.isOpen() && slave.isOpen());
    char buffer[16];
    EXPECT_EQ(::read(master.get(), buffer, sizeof buffer), -1);
    EXPECT_EQ(errno, EAGAIN);
    ASSERT_EQ(::write(slave.get(), "up\n", 3), 3);
    pollfd file{master.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&file, 1, 10000), 1);
    EXPECT_EQ(string(buffer, static_cast<size_t>(::read(master.get(), buffer, 16))), "up\n");
    ASSERT_EQ(::write(master.get(), "down\r", 5), 5);
    EXPECT_EQ(string(buffer, static_cast<size_t>(::read(slave.get(), buffer, 16))), "down\r");

    master.reset();
    EXPECT_EQ(::read(slave.get(), buffer, sizeof buffer), 0) << "hung up";
    master.reset(::open("/dev/ptyp1", O_RDWR | O_NOCTTY));
    EXPECT_TRUE(master.isOpen()) << "though a slave of the last pair is still held";
    EXPECT_TRUE(io::FileDescriptor(::open("/dev/ttyp1", O_RDWR | O_NOCTTY)).isOpen());
    EXPECT_EQ(::open("/dev/ptyq0", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
