#include "io/ModemPort.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/FedPort.h"

namespace {

using FedModemPort = test::FedPort<ModemPort>;

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

TEST(ModemPortTest, AReadStopsAtItsSizeAndWithoutABufferOnlyCounts) {
    constexpr std::string_view Input = "AT\r\r\nOK\r\n";
    for (unsigned size = 0; size <= Input.size() + 1; ++size) {
        const auto taken = static_cast<int>(std::min<size_t>(size, Input.size()));
        std::vector<char> room(size);
        for (char* const buffer : {room.data(), static_cast<char*>(nullptr)}) {
            FedModemPort port(Input);
            EXPECT_EQ(port.read(buffer, size, ByteMs), taken);
            EXPECT_EQ(port.lastAnswer, buffer && size >= Input.size() ? 0 : -1) << size;
            EXPECT_EQ(port.waitedMs, !buffer && size > Input.size() ? ByteMs : 0) << size;
        }
    }
}

TEST(ModemPortTest, ALineWhoseReadsFailEndsAReadWithAFullBufferOfNuls) {
    struct : FedModemPort {
        bool isInputPending(int) override { return true; }
        int readData(void*, unsigned int) override { return -1; }
    } port;
    char buffer[32];
    std::memset(buffer, '\n', sizeof buffer);
    EXPECT_EQ(port.read(buffer, sizeof buffer, ByteMs), 32);
    EXPECT_EQ(port.lastAnswer, -1);
    EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(32, '\0'));
}

TEST(ModemPortTest, TheEndOfACallIsSeenWhereverItIsCut) {
    constexpr std::string_view Line = "\nNO CARRIER\r\n";
    for (size_t cut = 1; cut < Line.size(); ++cut) {
        FedModemPort port(Line.substr(0, cut));
        EXPECT_FALSE(port.waitNoCarrier());
        EXPECT_EQ(port.waitedMs, 49 * 100) << "the first of 50 waits has found input";
        port.feed(Line.substr(cut));
        port.feed("left");
        EXPECT_TRUE(port.waitNoCarrier()) << "cut at " << cut;
        EXPECT_EQ(port.left(), 4U);
        FedModemPort again(std::string(Line.substr(0, cut)) + std::string(Line));
        EXPECT_TRUE(again.waitNoCarrier()) << "it starts over amid a part";
    }
    FedModemPort silent;
    EXPECT_FALSE(silent.waitNoCarrier());
    EXPECT_EQ(silent.waitedMs, 50 * 100);
}

}  // namespace
