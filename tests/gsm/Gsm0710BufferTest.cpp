#include "gsm/Gsm0710Buffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "gsm/Gsm0710Frame.h"
#include "gsm/Octets.h"

namespace {

using std::string;
using test::fcsOf;
using test::frameOf;
using test::octets;
using test::Ui;
using test::Uih;
using test::unsignedOf;
using testing::ElementsAre;

constexpr unsigned Size = 4096;

/// Channel, control and data of a frame.
using Received = std::tuple<int, int, string>;

unsigned write(Gsm0710Buffer& buffer, const string& bytes) {
    return buffer.write(unsignedOf(bytes), static_cast<unsigned>(bytes.size()));
}

std::optional<Received> readOne(Gsm0710Buffer& buffer) {
    const std::unique_ptr<Gsm0710Frame> frame(buffer.read());
    if (!frame)
        return std::nullopt;
    EXPECT_EQ(frame->data != nullptr, frame->length != 0);
    const auto* const data = reinterpret_cast<const char*>(frame->data.get());
    return Received(frame->channel, frame->control, string(data ? data : "", frame->length));
}

/// Everything that is to be had, in the way of the engine.
std::vector<Received> readAll(Gsm0710Buffer& buffer) {
    std::vector<Received> frames;
    do {
        while (auto frame = readOne(buffer))
            frames.push_back(*frame);
    } while (buffer.resynchronize());
    return frames;
}

std::vector<Received> decode(const string& stream) {
    Gsm0710Buffer buffer;
    std::vector<Received> frames;
    for (size_t at = 0; at < stream.size(); at += 512) {
        write(buffer, stream.substr(at, 512));
        const std::vector<Received> more = readAll(buffer);
        frames.insert(frames.end(), more.begin(), more.end());
    }
    return frames;
}

/// A buffer whose next octet is stored at `position`.
Gsm0710Buffer bufferAt(unsigned position) {
    Gsm0710Buffer buffer;
    EXPECT_EQ(write(buffer, string(position, 'x')), std::min(position, Size - 1));
    EXPECT_EQ(buffer.read(), nullptr);
    return buffer;
}

TEST(Gsm0710BufferTest, TheCheckSumIsThatOfTheStandard) {
    EXPECT_EQ(Gsm0710Buffer::makeCheckSum(unsignedOf(octets("03 3F 01")), 3), 0x1C);
    EXPECT_EQ(Gsm0710Buffer::makeCheckSum(nullptr, 0), 0);
    // One octet at a time shows every entry of the table.
    for (int octet = 0; octet < 256; ++octet) {
        const string one(1, static_cast<char>(octet));
        EXPECT_EQ(Gsm0710Buffer::makeCheckSum(unsignedOf(one), 1),
                  static_cast<unsigned char>(fcsOf(one)));
    }
}

TEST(Gsm0710BufferTest, AFrameMayComeInTwoPiecesAndLieAcrossTheEnd) {
    for (const string& data : {string(), string("data"), string(31, '\xF9'), string(127, '\x7E')}) {
        const string frame = "\xF9\xF9" + frameOf(63, Uih, data);
        for (size_t cut = 0; cut < frame.size(); ++cut) {
            // So that the end of the storage lies at the cut as well.
            Gsm0710Buffer buffer = bufferAt(Size - static_cast<unsigned>(cut));
            write(buffer, frame.substr(0, cut));
            EXPECT_EQ(buffer.read(), nullptr) << "cut at " << cut;
            EXPECT_EQ(buffer.getAllocated(), cut) << "nothing is consumed before all is there";
            EXPECT_FALSE(buffer.resynchronize());
            write(buffer, frame.substr(cut));
            EXPECT_EQ(readOne(buffer), (Received{63, Uih, data})) << "cut at " << cut;
            EXPECT_EQ(buffer.getAllocated(), 0U);
        }
    }
}

TEST(Gsm0710BufferTest, OnlyWhatIsCheckedComesOut) {
    const string header = octets("07 EF 07"), uiHeader = octets("07 13 07");
    const string good = frameOf(1, Uih, "x");
    const std::vector<Received> last = {{1, Uih, "x"}};
    const struct {
        const char* what;
        string stream;
        std::vector<Received> frames;
    } cases[] = {
        {"SABM", octets("F9 03 3F 01 1C F9"), {{0, 0x3F, ""}}},
        {"noise between frames",
         "noise" + frameOf(1, 0x73, "") + "noise" + frameOf(2, 0x1F, ""),
         {{1, 0x73, ""}, {2, 0x1F, ""}}},
        {"a closing flag does not open as well",
         frameOf(1, Uih, "abc").substr(0, 9) + frameOf(2, Uih, "def").substr(1),
         {{1, Uih, "abc"}}},
        {"UI covers its data", frameOf(1, Ui | 0x10, "abc"), {{1, Ui | 0x10, "abc"}}},
        {"UI, sum of its header", '\xF9' + uiHeader + "abc" + fcsOf(uiHeader) + '\xF9', {}},
        {"UI without data", frameOf(1, Ui, ""), {{1, Ui, ""}}},
        {"UIH, sum of its data", '\xF9' + header + "abc" + fcsOf(header + "abc") + '\xF9', {}},
        {"a length of two octets", octets("F9 07 EF 06 00 41 41 41 41 F9") + good, last},
        {"... of more than fits", octets("F9 07 EF F8 FF") + good, last},
        // What has crashed others: data on a frame that carries none.
        {"data on SABM", octets("F9 03 3F 09 E4 06 06 F1 3F 01 2A F9") + good, last},
        {"... but well formed", frameOf(0, 0x3F, "junk"), {{0, 0x3F, "junk"}}}};
    for (const auto& each : cases)
        EXPECT_EQ(decode(each.stream), each.frames) << each.what;
}

/// One octet of a stream is lost, added or changed. What came whole before it comes out, and so
/// does everything from 127 octets behind the damaged frame on.
TEST(Gsm0710BufferTest, NoMoreIsMissingThanTheDamagedFrameAndWhatAFalseLengthClaims) {
    string stream;
    std::vector<Received> sent;
    std::vector<size_t> ends;
    for (int i = 0; i < 20; ++i) {
        const size_t length = std::vector<size_t>{31, 0, 127, 4, 64}[static_cast<size_t>(i % 5)];
        sent.emplace_back(i, Uih, string(length, static_cast<char>('0' + i)));
        stream += frameOf(i, Uih, std::get<string>(sent.back()));
        ends.push_back(stream.size());
    }
    ASSERT_EQ(decode(stream), sent);

    const auto check = [&](size_t at, const string& soiled) {
        const std::vector<Received> received = decode(soiled);
        const size_t damaged =
            static_cast<size_t>(std::upper_bound(ends.begin(), ends.end(), at) - ends.begin());
        const auto safe = static_cast<size_t>(
            std::upper_bound(ends.begin(), ends.end(), ends[damaged] + 129) - ends.begin());
        ASSERT_GE(received.size(), damaged + sent.size() - safe - 1);
        for (size_t i = 0; i < damaged; ++i)
            ASSERT_EQ(received[i], sent[i]);
        for (size_t i = 1; i < sent.size() - safe; ++i)
            ASSERT_EQ(received[received.size() - i], sent[sent.size() - i]);
    };
    for (size_t at = 0; at < ends[9]; ++at) {
        SCOPED_TRACE("damage at " + std::to_string(at));
        string soiled = stream;
        check(at, soiled.erase(at, 1));
        for (const char added : {'\xF9', '\x00', '\xFF'}) {
            soiled = stream;
            check(at, soiled.insert(at, 1, added));
        }
        for (int bit = 0; bit < 8; ++bit) {
            soiled = stream;
            soiled[at] = static_cast<char>(soiled[at] ^ 1 << bit);
            check(at, soiled);
        }
        if (HasFatalFailure())
            return;
    }
}

TEST(Gsm0710BufferTest, TheNumbersAreThoseOnTheLine) {
    EXPECT_THAT((std::vector<int>{gsm0710::Flag, gsm0710::PollFinal, gsm0710::Sabm, gsm0710::Ua,
                                  gsm0710::Dm, gsm0710::Disc, gsm0710::Uih, gsm0710::Ui}),
                ElementsAre(0xF9, 0x10, 0x2F, 0x63, 0x0F, 0x43, 0xEF, 0x03));
    EXPECT_THAT((std::vector<int>{gsm0710::NonSupported, gsm0710::Test, gsm0710::CloseDown,
                                  gsm0710::ModemStatus, gsm0710::CommandResponseBit}),
                ElementsAre(0x11, 0x21, 0xC1, 0xE1, 0x02));
}

}  // namespace
