#include "gsm/Gsm0710Frame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>

namespace {

TEST(Gsm0710FrameTest, ControlIsComparedWithoutThePollBit) {
    Gsm0710Frame frame;
    EXPECT_TRUE(frame.matchControl(0));
    for (const uint8_t type : std::initializer_list<uint8_t>{0x2F, 0x63, 0x0F, 0x43, 0xEF, 0x03}) {
        for (const int poll : {0x00, 0x10}) {
            frame.control = static_cast<unsigned char>(type | poll);
            EXPECT_TRUE(frame.matchControl(type));
            EXPECT_FALSE(frame.matchControl(type ^ 0x80));
            EXPECT_FALSE(frame.matchControl(type | 0x10)) << "no type has the bit";
        }
    }
}

TEST(Gsm0710FrameTest, AMessageIsComparedWithoutItsCommandBitAndNeedsData) {
    Gsm0710Frame frame;
    EXPECT_EQ(frame.data, nullptr);
    EXPECT_FALSE(frame.matchCmdType(0));
    frame.data.reset(new unsigned char[1]);
    frame.length = 1;
    for (const uint8_t type : std::initializer_list<uint8_t>{0x11, 0x21, 0xC1, 0xE1}) {
        for (const int command : {0x00, 0x02}) {
            frame.data[0] = static_cast<unsigned char>(type | command);
            EXPECT_TRUE(frame.matchCmdType(type));
            EXPECT_FALSE(frame.matchCmdType(type ^ 0x40));
        }
    }
}

TEST(Gsm0710FrameTest, TheNumbersAreThoseOnTheLine) {
    constexpr struct {
        int number, onTheLine;
    } Numbers[] = {{gsm0710::Flag, 0xF9},
                   {gsm0710::PollFinal, 0x10},
                   {gsm0710::Sabm, 0x2F},
                   {gsm0710::Ua, 0x63},
                   {gsm0710::Dm, 0x0F},
                   {gsm0710::Disc, 0x43},
                   {gsm0710::Uih, 0xEF},
                   {gsm0710::Ui, 0x03},
                   {gsm0710::NonSupported, 0x11},
                   {gsm0710::Test, 0x21},
                   {gsm0710::CloseDown, 0xC1},
                   {gsm0710::ModemStatus, 0xE1},
                   {gsm0710::CommandResponseBit, 0x02},
                   {gsm0710::ExtensionBit, 0x01},
                   {gsm0710::ReadyToCommunicate | gsm0710::ReadyToReceive, 0x0C},
                   {gsm0710::MaxSentLength, 31}};
    for (const auto& number : Numbers)
        EXPECT_EQ(number.number, number.onTheLine);
    EXPECT_STREQ(gsm0710::ProbeCommand, "AT\r");
    EXPECT_STREQ(gsm0710::MultiplexCommand, "AT+CMUX=0\r");
}

}  // namespace
