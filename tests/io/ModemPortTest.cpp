#include "io/ModemPort.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

#include "support/FedModemPort.h"

namespace {

using test::FedModemPort;

constexpr int ByteMs = 70;

TEST(ModemPortTest, AReadEndsWithTheLineOfAFinalResultCode) {
    constexpr struct {
        std::string_view input;
        int taken;
        int answer;
    } Cases[] = {{"AT\r\r\nOK\r\n", 9, 0},
                 {"\nOK\r\nmore", 5, 0},
                 {"ATD\r\r\nCONNECT\r\n~PPP", 15, 1},
                 {"AT\r\r\nRING\r\n\r\nOK\r\n", 11, 2},  // a ring ends whatever is being read
                 {"\r\nNO CARRIER\r\n", 14, 3},
                 {"\r\nERROR\r\n", 9, 4},
                 {"\r\nNO ANSWER\r\n", 13, 5},
                 {"\r\n+CMS ERROR: 500\r\n", 19, 6},
                 {"\r\n+CME ERROR:\n", 14, 7},  // only its beginning counts
                 {"\n\nOK\r\n", 6, 0},
                 {"AT+CPIN?\r\r\n+CPIN: SIM PIN\r\n\r\nOK\r\nRING", 33, 0},
                 // What is no such line is read to the silence that follows.
                 {"\r\nOKAY\r\n", 8, -1},
                 {"OK\r\n", 4, -1},  // the first line has no line feed before it
                 {"\r\nOK\n", 5, -1},
                 {"\r\n OK\r\n", 7, -1},
                 {"\r\nok\r\n", 6, -1},
                 {"\r\nNO CARRIER", 12, -1},
                 {"\r\n+CME ERRO\r: 1\r\n", 17, -1},
                 {"", 0, -1}};
    for (const auto& [input, taken, answer] : Cases) {
        SCOPED_TRACE(input);
        for (const auto preceding : {ModemPort::Error, ModemPort::None}) {
            FedModemPort port(input);
            port.lastAnswer = preceding;
            char buffer[128];
            std::memset(buffer, '#', sizeof buffer);  // no terminating NUL is added
            EXPECT_EQ(port.read(buffer, sizeof buffer - 1, ByteMs), taken);
            EXPECT_EQ(port.lastAnswer, answer);
            const auto size = static_cast<size_t>(taken);
            EXPECT_EQ(std::string(buffer, size + 1), std::string(input.substr(0, size)) + '#');
            EXPECT_EQ(port.waitedMs, answer < 0 ? ByteMs : 0);
        }
    }
}

TEST(ModemPortTest, AReadStopsAtItsSizeAndGoesOnBehindIt) {
    constexpr std::string_view Input = "AT\r\r\nOK\r\n";
    for (unsigned size = 0; size <= Input.size() + 1; ++size) {
        SCOPED_TRACE(size);
        FedModemPort port(Input);
        char buffer[16] = {};
        const bool fits = size >= Input.size();
        const unsigned taken = fits ? static_cast<unsigned>(Input.size()) : size;
        EXPECT_EQ(port.read(buffer, size, ByteMs), static_cast<int>(taken));
        EXPECT_EQ(port.lastAnswer, fits ? 0 : -1);
        EXPECT_EQ(buffer[taken], '\0');
        EXPECT_EQ(port.left(), Input.size() - taken);

        FedModemPort counting(Input);
        EXPECT_EQ(counting.read(nullptr, size, ByteMs),
                  static_cast<int>(std::min<size_t>(size, Input.size())));
        EXPECT_EQ(counting.lastAnswer, -1) << "what is only counted has no code";
        EXPECT_EQ(counting.waitedMs, size > Input.size() ? ByteMs : 0);
    }
}

/// A line whose reads fail although input is announced.
struct BrokenPort : FedModemPort {
    bool isInputPending(int) override { return true; }
    int readData(void*, unsigned int) override { return -1; }
};

TEST(ModemPortTest, ALineWhoseReadsFailEndsAReadWithAFullBufferOfNuls) {
    BrokenPort port;
    char buffer[32];
    std::memset(buffer, '\n', sizeof buffer);
    EXPECT_EQ(port.read(buffer, sizeof buffer, ByteMs), 32);
    EXPECT_EQ(port.lastAnswer, -1);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(32, '\0'));
}

TEST(ModemPortTest, TheEndOfACallIsSeenWhereverItIsCut) {
    constexpr struct {
        std::string_view input;
        int matches;
    } Cases[] = {{"\n\nNO CARRIER\r\n", 1},
                 {"\nNO CARRI\nNO CARRIER\r\n", 1},
                 {"\nNO CARRIER\r\r\n", 0},
                 {"NO CARRIER\r\n", 0},
                 {"\nNO CARRIER\r\nNO CARRIER\r\n", 1},  // its last line feed begins no other
                 {"\nNO CARRIER\r\n\nNO CARRIER\r\n", 2}};
    for (const auto& [input, matches] : Cases) {
        SCOPED_TRACE(input);
        FedModemPort port;
        int seen = 0;
        for (const char byte : input)
            seen += port.checkNoCarrier(byte) ? 1 : 0;
        EXPECT_EQ(seen, matches);
    }

    constexpr std::string_view Line = "\nNO CARRIER\r\n";
    for (size_t cut = 1; cut < Line.size(); ++cut) {
        FedModemPort port(Line.substr(0, cut));
        EXPECT_FALSE(port.waitNoCarrier());
        EXPECT_EQ(port.waitedMs, 49 * 100) << "the first of 50 waits has found input";
        port.feed(Line.substr(cut));
        port.feed("left");
        EXPECT_TRUE(port.waitNoCarrier()) << "cut at " << cut;
        EXPECT_EQ(port.left(), 4U);
    }
    FedModemPort silent;
    EXPECT_FALSE(silent.waitNoCarrier());
    EXPECT_EQ(silent.waitedMs, 50 * 100);
}

}  // namespace
