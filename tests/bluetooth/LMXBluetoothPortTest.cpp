#include "bluetooth/LMXBluetoothPort.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/FedPort.h"

namespace {

using std::string;
using namespace std::string_literals;

using Port = test::FedPort<LMXBluetoothPort>;

constexpr int WaitMs = 1000;

/// A packet as it stands on the line, made here byte by byte.
string packet(char type, unsigned opcode, const string& payload) {
    const auto length = static_cast<unsigned>(payload.size());
    const string head{type, char(opcode), char(length), char(length >> 8)};
    return "\x02" + head + char(head[0] + head[1] + head[2]) + payload + "\x03";
}

/// What one read gives: "C 05 payload", or the error's number. The buffer has exactly that size.
string next(Port& port, unsigned bufferSize = 334) {
    std::vector<unsigned char> buffer(bufferSize);
    unsigned char type = '-', opcode = 0xEE;
    const int length = port.getPkt(&type, &opcode, buffer.data(), bufferSize, WaitMs);
    if (length < 0) {
        EXPECT_TRUE(type == '-' && opcode == 0xEE) << "given out by a packet that failed";
        return std::to_string(length);
    }
    EXPECT_EQ(buffer.at(static_cast<size_t>(length)), 3) << "the end byte follows the payload";
    return string{char(type), ' ', char(opcode), ' '} +
           string(buffer.begin(), buffer.begin() + length);
}

TEST(LMXBluetoothPortTest, RequestsAreFramedAndAnyPartThatIsNotTakenEndsThem) {
    const struct {
        unsigned char opcode;
        string first, second, line;
    } Cases[] = {{0x10, "", "", "\x02R\x10\0\0\x62\x03"s},
                 {0x0F, "\x01\x02\0"s, "ab", "\x02R\x0F\x05\0\x66\x01\x02\0ab\x03"s},
                 {0xFF, "", "z", "\x02R\xFF\x01\0\x52z\x03"s},
                 {0x31, string(300, 'p'), "", "\x02R\x31\x2C\x01\xAF" + string(300, 'p') + "\x03"},
                 {0x31, string(5, 'h'), string(328, 'r'),
                  "\x02R\x31\x4D\x01\xD0hhhhh" + string(328, 'r') + "\x03"}};
    for (const auto& [opcode, first, second, line] : Cases) {
        SCOPED_TRACE(line.substr(0, 10));
        const auto send = [&, code = opcode, &one = first, &two = second](Port& port) {
            return port.sendCmd(code, one.data(), unsigned(one.size()), two.data(),
                                unsigned(two.size()));
        };
        Port port;
        EXPECT_TRUE(send(port));
        EXPECT_EQ(port.written, line);
        for (const size_t room : {line.size() - 1, size_t{6}, size_t{5}, size_t{0}}) {
            Port full;
            full.room = room;
            EXPECT_EQ(send(full), room == line.size());
            EXPECT_EQ(full.written, line.substr(0, room)) << "nothing follows the lost part";
        }
    }
    Port port;
    const string payload(400, 'x');
    EXPECT_FALSE(port.sendCmd(1, payload.data(), 334, nullptr, 0));
    EXPECT_FALSE(port.sendCmd(1, payload.data(), 300, payload.data(), 34));
    EXPECT_FALSE(port.sendCmd(1, payload.data(), 10, payload.data(), UINT32_MAX - 5));
    EXPECT_EQ(port.writes, 0);
    EXPECT_TRUE(port.sendCmd(1, nullptr, 334, nullptr, 400)) << "null is empty";
    EXPECT_EQ(port.written, "\x02R\x01\0\0\x53\x03"s);
}

TEST(LMXBluetoothPortTest, APacketIsFoundCheckedAndLimitedByTheBuffer) {
    const string good = packet('C', '5', "pay");
    const struct {
        const char* what;
        string line;
        std::vector<string> results;
    } Cases[] = {
        {"empty payload", packet('i', '%', ""), {"i % ", "-1"}},
        {"two in one read",
         good + packet('i', 'd', "x\x02y\x03\x02z"),
         {"C 5 pay", "i d x\x02y\x03\x02z", "-1"}},
        {"the high byte is not checked",
         packet('i', 'd', string(300, '.')),
         {"i d " + string(300, '.')}},
        {"the most that fits", packet('i', 'd', string(333, '.')), {"i d " + string(333, '.')}},
        {"noise before it", "no\x02ise" + good, {"-1"}},
        {"noise and an end before it", "no\x02ise\x03" + good, {"C 5 pay"}},
        {"a start after no end", "\x05" + good, {"-1"}},
        {"a second start", "\x02" + good, {"-2", "-1"}},
        {"wrong end", good.substr(0, 9) + "\x04" + good + good, {"-3", "C 5 pay", "C 5 pay"}},
        {"wrong checksum", "\2C5\3\0\172pay\3"s + good, {"-4", "C 5 pay"}},
        {"longer than the buffer", packet('i', 'd', string(334, '.')) + good, {"-2", "C 5 pay"}},
        {"longest of all", "\2C5\377\377\167abc\3" + good, {"-2", "C 5 pay"}},
    };
    for (const auto& [what, line, results] : Cases) {
        for (const size_t piece : {line.size(), size_t{1}, size_t{4}}) {
            SCOPED_TRACE(what);
            Port port(line);
            port.pieceSize = piece;
            for (const string& result : results)
                EXPECT_EQ(next(port), result);
        }
    }

    Port ten(packet('i', 'd', "0123456789") + packet('i', 'd', "0123456789"));
    EXPECT_EQ(next(ten, 10), "-2");
    EXPECT_EQ(ten.left(), 11 + 17U) << "the payload stays in the line";
    EXPECT_EQ(next(ten, 11), "i d 0123456789");
}

TEST(LMXBluetoothPortTest, APacketCutAnywhereIsMissingAndTheNextOneIsFound) {
    const string good = packet('i', 'd', "p\x02\x52\x03y"), following = packet('C', '5', "ok");
    for (size_t cut = 0; cut < good.size(); ++cut) {
        Port port(good.substr(0, cut));
        EXPECT_EQ(next(port), "-1") << "cut at " << cut;
        EXPECT_EQ(port.waitedMs, WaitMs) << "one wait, for the byte that does not come";
        port.feed(following);
        EXPECT_EQ(next(port), "C 5 ok") << "cut at " << cut;
    }

    struct : Port {
        bool isInputPending(int) override { return true; }
        int readData(void* byte, unsigned) override { return *static_cast<char*>(byte) = 'n', 1; }
    } noise;
    EXPECT_EQ(next(noise), "-1") << "though there is always a byte";
}

}  // namespace
