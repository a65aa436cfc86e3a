#include "gsm/Gsm0710Mux.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "gsm/Gsm0710Protocol.h"
#include "gsm/Octets.h"
#include "io/FileDescriptor.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::chrono_literals;
using sim::RadioFrame;
using std::string;
using test::octets;
using test::readFrom;
using test::soon;

constexpr char Line[] = "/dev/ttyAT1";
constexpr double SlowTime = 0.3;
constexpr char OpeningOfTwo[] = "0:3F, 1:3F, 0:EF[E3 05 07 0C], 2:3F, 0:EF[E3 05 0B 0C]";
constexpr char ClosingOfTwo[] = "1:53, 0:53, 0:EF[C3 01], 0:EF[C3 01], 0:EF[C3 01], 0:EF[C3 01], "
                                "0:EF[C3 01]";

string hex(const string& bytes) {
    string text;
    for (const char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, " %02X", unsigned{static_cast<uint8_t>(byte)});
        text += digits + (text.empty() ? 1 : 0);
    }
    return text;
}

/// Octets that tell where in the stream they stand; every value occurs.
string pattern(size_t size) {
    string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i + i / 251);
    return bytes;
}

/// Until the promise goes the line's thread stands still: nothing is taken from the line any more.
using Block = std::unique_ptr<std::promise<void>>;

Block block(sim::SerialLine& line) {
    auto end = std::make_unique<std::promise<void>>();
    const auto stands = std::make_shared<std::promise<void>>();
    line.at(0ns, [stands, ended = end->get_future().share()] {
        stands->set_value();
        ended.wait();
    });
    stands->get_future().wait();
    return end;
}

/// The engine between the simulated radio module and programs that open the slaves.
struct Gsm0710MuxTest : test::PoweredTest {
    Gsm0710MuxTest() {
        radio.setOn(true);
        radio.setAnswerTime(0ms);
        radio.onFrame([this](const RadioFrame& frame) { return note(frame); });
    }

    ~Gsm0710MuxTest() override {
        stop();
        radio.onFrame(nullptr);
    }

    /// Multiplexing with two ports, and all over that belongs to its beginning.
    void start() {
        clear();
        ASSERT_TRUE(startMultiplexing());
        ASSERT_TRUE(soon([&] { return radio.isChannelOpen(0); })) << text();
        send(0, octets("23 01"));
        ASSERT_TRUE(soonReceived(string(OpeningOfTwo) + ", 0:EF[21 01]")) << text();
        clear();
    }

    /// The module's answers are awaited for 200 ms, which are longer meanwhile: no busy machine
    /// makes them late.
    bool startMultiplexing() {
        terminal.clock().setSpeed(SlowTime);
        const bool started = startOnly() && soon([&] { return radio.isMultiplexing(); });
        terminal.clock().setSpeed(1);
        return started;
    }

    /// For a module that knows nothing of what was before.
    void stopAndRestartModule() {
        stop();
        radio.setOn(false);
        radio.setOn(true);
    }

    bool startOnly() {
        const char* ports[] = {"/dev/ptyp0", "/dev/ptyp1", nullptr};
        return mux->startMux(Line, ports);
    }

    void stop() { EXPECT_TRUE(mux->stopMux()); }

    static io::FileDescriptor program(int number) {
        const string path = "/dev/ttyp" + std::to_string(number - 1);
        io::FileDescriptor opened(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
        EXPECT_TRUE(opened.isOpen()) << path;
        return opened;
    }

    /// Writes what fits, again and again until all has gone.
    static bool write(const io::FileDescriptor& to, const string& bytes) {
        const sim::HostTime hostTime;
        size_t written = 0;
        pollfd file{to.get(), POLLOUT, 0};
        while (written < bytes.size() && ::poll(&file, 1, 20000) > 0) {
            const ssize_t count = ::write(to.get(), &bytes[written], bytes.size() - written);
            if (count < 0 && errno != EAGAIN)
                return false;
            written += static_cast<size_t>(std::max<ssize_t>(count, 0));
        }
        return written == bytes.size();
    }

    /// A frame of the module with data for a program or, on channel 0, a message.
    void send(int channel, const string& bytes, int control = gsm0710::Uih) {
        radio.sendFrame(
            {static_cast<uint8_t>(channel), static_cast<uint8_t>(control), false, bytes});
    }

    /// Notes it as "0:EF[E3 05]", data for the program that it is for as well.
    bool note(const RadioFrame& frame) {
        const bool isData = frame.channel > 0 && frame.control == gsm0710::Uih;
        terminal.journal().note("mux", std::to_string(frame.channel) + ":" +
                                           hex(string(1, static_cast<char>(frame.control))) +
                                           (frame.data.empty() ? "" : "[" + hex(frame.data) + "]"));
        const std::lock_guard<std::mutex> held(mutex);
        if (isData)
            data[frame.channel] += frame.data;
        return isData || isDeaf;
    }

    string received(int channel) {
        const std::lock_guard<std::mutex> held(mutex);
        return data[channel];
    }

    /// The frames that the module has received.
    string text() { return terminal.journal().history("mux"); }
    void clear() { terminal.journal().clear(); }

    bool soonReceived(const string& expected) {
        return soon([&] { return text().size() >= expected.size(); }) && text() == expected;
    }

    /// The processor time this process uses in `duration`.
    static std::chrono::microseconds cpuTimeIn(std::chrono::milliseconds duration) {
        const sim::HostTime hostTime;
        const std::clock_t before = std::clock();
        std::this_thread::sleep_for(duration);
        return std::chrono::microseconds(std::clock() - before);
    }

    sim::RadioModule& radio = terminal.radio();
    std::unique_ptr<Gsm0710Mux> mux = std::make_unique<Gsm0710Mux>();
    std::atomic<bool> isDeaf{false};  // the module does not see frames

private:
    std::mutex mutex;
    string data[64];  // guarded by mutex
};

TEST_F(Gsm0710MuxTest, DataOfAProgramLeavesInFramesOf31OctetsAndComesBackOnItsChannel) {
    start();
    const io::FileDescriptor first = program(1), second = program(2);
    const string sent = pattern(100);
    ASSERT_TRUE(write(first, sent) && soon([&] { return received(1).size() >= 100; }));
    string expected;
    for (size_t at = 0; at < 100; at += 31)
        expected += (at ? ", 1:EF[" : "1:EF[") + hex(sent.substr(at, 31)) + "]";
    EXPECT_EQ(text(), expected);

    // Whatever the module sends: of any length, on any channel, of a kind nobody knows, damaged.
    const string good = test::frameOf(1, test::Uih, "good");
    for (const int channel : {3, 4, 5, 63}) {
        send(channel, "nobody's");
        send(channel, "nobody's", gsm0710::Ui);
        send(channel, "", 0xFF);
    }
    send(2, "");
    send(2, pattern(127));
    send(2, "and ", gsm0710::Ui);
    for (const string& damage :
         {good.substr(0, good.size() - 1) + "?", good.substr(0, 6), string(9000, '\xF9'),
          string(9000, 'x'), octets("F9 07 EF FF") + string(129, 'y'),
          octets("F9 03 3F 09 E4 06 06 F1 3F 01 2A F9"), octets("F9 F9 07 EF FE FF FF")}) {
        radio.transmit(damage, 0ms);
        radio.transmit(string(130, 'z'), 0ms);  // what the beginning of a frame may claim
        radio.transmit(good, 0ms);
        EXPECT_EQ(readFrom(first.get(), 4), "good") << hex(damage.substr(0, 16));
    }
    send(2, "the end");
    EXPECT_EQ(readFrom(second.get(), 138), pattern(127) + "and the end");
}

TEST_F(Gsm0710MuxTest, MessagesAndFramesAreAnsweredAsThePeerOfTheModuleDoes) {
    start();
    const struct {
        int channel, control;
        string data, answer;
        const char* what;
    } exchanges[] = {
        {0, 0xEF, octets("23 07 01 02 03"), "0:EF[21 07 01 02 03]", "test"},
        {0, 0xEF, octets("23 FF") + string(40, 'x'),
         "0:EF[21 FF " + hex(string(29, 'x')) + "], 0:EF[" + hex(string(11, 'x')) + "]", "long"},
        {0, 0xEF, octets("21 07 01 02 03"), "", "response"},
        {0, 0xEF, "", "", "no message"},
        {0, 0xEF, octets("E3 05 07 0D"), "", "modem status"},
        {0, 0xEF, octets("A3 01"), "0:EF[11 00 A3]", "flow control on"},
        {0, 0xEF, octets("02 42 A3 01"), "0:EF[11 00 02 42 A3]", "a type of three octets"},
        {3, 0x43, "", "3:1F", "DISC of a closed channel"},
        {3, 0x3F, "", "3:73", "SABM"},
        {3, 0x53, "", "3:73", "DISC of an open channel"},
        {63, 0x3F, "", "63:73", "SABM of a channel that no program has"},
        {63, 0x53, "", "63:73", "DISC of it"},
        {63, 0x53, "", "63:1F", "which is closed now"},
        {1, 0x0F, "", "", "DM of an open channel"},
        {1, 0x43, "", "1:1F", "which is closed now"},
        {0, 0x2F, "junk", "0:73", "SABM with data"}};
    for (const auto& exchange : exchanges) {
        clear();
        send(exchange.channel, exchange.data, exchange.control);
        send(0, octets("23 01"));  // answered last
        const string expected =
            (exchange.answer.empty() ? "" : exchange.answer + ", ") + "0:EF[21 01]";
        EXPECT_TRUE(soonReceived(expected)) << exchange.what << ": " << text();
    }
}

TEST_F(Gsm0710MuxTest, TheModuleMayRefuseOrEndMultiplexingAndTheEngineStartsAgain) {
    const struct {
        int control;
        string data, answer;
    } ends[] = {{0xEF, octets("C3 01"), "0:EF[C1 01]"},  // close-down
                {0xEF, octets("C3"), "0:EF[C1]"},        // ... without its length
                {0x43, "", "0:73"},
                {0x0F, "", ClosingOfTwo}};
    const long descriptors = test::openDescriptors();
    radio.refuseChannel(0);
    ASSERT_TRUE(startMultiplexing());
    EXPECT_TRUE(soon([&] { return text().find("0:53") != string::npos; })) << text();
    stopAndRestartModule();
    radio.refuseChannel(0, false);
    radio.refuseChannel(2);  // the others work
    for (const auto& end : ends) {
        start();
        const io::FileDescriptor held = program(1);
        send(1, "works");
        EXPECT_EQ(readFrom(held.get(), 5), "works");
        isDeaf = true;
        send(0, end.data, end.control);
        if (end.control == 0x0F)
            send(0, "", 0x0F);  // one for the open channel 0 only closes it
        pollfd port{held.get(), 0, 0};
        EXPECT_TRUE(soon([&] { return ::poll(&port, 1, 0) > 0 && (port.revents & POLLHUP); }))
            << end.answer;
        EXPECT_TRUE(soonReceived(end.answer)) << text();
        EXPECT_FALSE(startOnly()) << "the line is still held";
        stopAndRestartModule();
        EXPECT_EQ(text(), end.answer);
        isDeaf = false;
    }
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(Gsm0710MuxTest, AStopAmidTheSwitchTakesTheModuleBackToCommands) {
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(startMultiplexing());
        stop();
        EXPECT_TRUE(soon([&] { return !radio.isMultiplexing(); })) << "it was left multiplexing";
    }
    start();
}

TEST_F(Gsm0710MuxTest, SuspendClosesItAndTheWakeUpBuildsItUpAgain) {
    terminal.journal().watch([](const sim::Journal::Entry& entry) {
        if (entry.text.rfind("woken", 0) == 0)  // before the engine starts anew
            sim::Clock::get().setSpeed(SlowTime);
    });
    start();
    io::FileDescriptor first = program(1);
    const io::FileDescriptor second = program(2);  // held all the time
    for (int round = 0; round < 2; ++round) {
        clear();
        EXPECT_TRUE(power().setPowerMode(POWER_SUSPEND));
        EXPECT_EQ(terminal.power().suspends(), round + 1);
        EXPECT_TRUE(soonReceived("1:53, 0:53, " + string(OpeningOfTwo))) << text();
        terminal.clock().setSpeed(1);
        first.reset();
        first = program(1);
        send(1, "awake");
        EXPECT_EQ(readFrom(first.get(), 5), "awake");
        EXPECT_FALSE(write(second, "?"));
    }
    const io::FileDescriptor again = program(2);
    ASSERT_TRUE(write(again, "still here"));
    EXPECT_TRUE(soon([&] { return received(2) == "still here"; }));
}

TEST_F(Gsm0710MuxTest, AClosedPortCostsNothingAndAnUnreadOneTheOthersASecondOnce) {
    terminal.faults().fail("open", "/dev/ptyp0", EBUSY, 0, 2);  // it is tried until it works
    start();
    ASSERT_TRUE(soon([] { return io::FileDescriptor(::open("/dev/ttyp0", O_RDWR)).isOpen(); }));
    const io::FileDescriptor first = program(1);
    io::FileDescriptor second = program(2);
    ASSERT_TRUE(write(second, "last words"));
    second.reset();
    EXPECT_TRUE(soon([&] { return received(2) == "last words"; }));
    EXPECT_LT(cpuTimeIn(1000ms), 50ms);  // 5 percent of a core

    const string flood = pattern(31 * 2000);
    const auto sendFlood = [&](bool isRead = false) {
        for (size_t at = 0; at < flood.size(); at += 31)
            send(2, flood.substr(at, 31));
        send(1, "x");
        EXPECT_TRUE(!isRead || readFrom(second.get(), flood.size()) == flood);
        EXPECT_EQ(readFrom(first.get(), 1), "x");
    };
    sendFlood();  // nobody is there for this, and it is no business of the next program's
    second = program(2);
    terminal.clock().setSpeed(SlowTime / 10);  // of the second that it has
    sendFlood(true);
    terminal.clock().setSpeed(1);
    EXPECT_GE(test::elapsedMs(sendFlood), 500);
    EXPECT_LT(test::shortestMs(900, sendFlood), 900);
    string taken;
    for (string more = "?"; !more.empty(); taken += more)
        more = readFrom(second.get(), 4096, 300ms);
    ASSERT_GT(taken.size(), 4000U);
    EXPECT_TRUE(taken.compare(0, 4000, flood, 0, 4000) == 0) << "missing before it was full";
    send(2, "here again");
    EXPECT_EQ(readFrom(second.get(), 10), "here again");
    ASSERT_TRUE(write(second, "and mine"));
    EXPECT_TRUE(soon([&] { return received(2) == "last wordsand mine"; }));
    radio.line().hangUp();
    EXPECT_LT(cpuTimeIn(200ms), 50ms) << "a line that is gone is not read without pause";
}

TEST_F(Gsm0710MuxTest, WhileTheLineTakesNothingTheWayBackIsOpenAndStopComesBack) {
    start();
    const io::FileDescriptor first = program(1), second = program(2);
    const string bytes = pattern(1000), answer = "mux: 0:EF[21 0D " + hex("answer") + "]";
    string written;
    for (const bool stops : {false, true}) {
        const Block blocked = block(radio.line());
        pollfd port{first.get(), POLLOUT, 0};
        while (::poll(&port, 1, 200) > 0) {  // until the port is full as well
            const ssize_t count = ::write(first.get(), bytes.data(), bytes.size());
            ASSERT_GT(count, 0);
            written += bytes.substr(0, static_cast<size_t>(count));
        }
        for (int i = 0; i < 100; ++i)  // more than there is room for
            send(0, octets("23 0D") + "answer");
        send(2, "the way back");
        EXPECT_EQ(readFrom(second.get(), 12), "the way back");
        if (stops) {
            EXPECT_LT(cpuTimeIn(500ms), 400ms);
            EXPECT_LT(simulated([&] { stop(); }), 10s);
            break;
        }
        blocked->set_value();
        EXPECT_TRUE(soon([&] { return received(1) == written; })) << "not whole or in order";
        for (const string& line : takeLines())
            EXPECT_TRUE(line == answer || line[5] != '0') << line;
    }
    EXPECT_FALSE(write(first, bytes)) << "it sees a hang-up";
}

}  // namespace
