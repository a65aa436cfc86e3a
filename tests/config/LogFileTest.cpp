#include "config/LogFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

#include "config/RawLogFile.h"
#include "io/Media.h"
#include "support/TerminalTest.h"

namespace {

using std::string;

constexpr char Path[] = "/mnt/mmc/log";

class LogFileTest : public test::TerminalTest {
protected:
    LogFileTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
        terminal.clock().setWall(std::chrono::seconds(1299211567));
    }
    ~LogFileTest() override {
        Media::unmountAll();
        unsetenv("TZ");
        tzset();
    }

    string logged() { return terminal.card().readFile("log"); }

    /// What an action shows on standard output.
    template <class Action> static string shown(Action action) {
        testing::internal::CaptureStdout();
        action();
        return testing::internal::GetCapturedStdout();
    }

    LogFile log{Path};
    RawLogFile raw{Path};
};

TEST_F(LogFileTest, ALineHasTimeLevelTagAndMessageAndOnlyTheMessageIsShown) {
    const string longMessage(9999, 'x');
    const string echo = shown([&] {
        for (int level = -1; level < 6; ++level)
            EXPECT_TRUE(log.logPrintf(LogFile::LogLevel(level), level < 0 ? nullptr : "T",
                                      "100%%|%d", level));
        terminal.clock().setWall(std::chrono::seconds(1309211567));
        EXPECT_TRUE(log.logPrintf(LogFile::LEVEL_INFO, "", "%s", longMessage.c_str()));
        EXPECT_TRUE(raw.logPrintf("%s", "a\n|b") && raw.logPrintf("%s", ""));
    });
    string expectedEcho, expectedLog;
    const string levels[] = {"||", "D|T|", "I|T|", "W|T|", "E|T|", "C|T|", "|T|"};
    for (int level = -1; level < 6; ++level) {
        const string message = "100%|" + std::to_string(level);
        expectedEcho += "LOG: " + message + "\n";
        expectedLog += "2011-03-04T05:06:07+0100|" + levels[level + 1] + message + "\r\n";
    }
    EXPECT_EQ(echo, expectedEcho + "LOG: " + longMessage + "\nLOG: a\n|b\nLOG: \n");
    EXPECT_EQ(logged(),
              expectedLog + "2011-06-27T23:52:47+0200|I||" + longMessage + "\r\na\n|b\r\n\r\n");
}

TEST_F(LogFileTest, WithoutItsFileAMessageIsShownAllTheSame) {
    LogFile nowhere("/mnt/mmc/missing/log"), none(nullptr);
    terminal.faults().fail("fopen", Path, ENOSPC, 0, 2);
    EXPECT_EQ(shown([&] {
                  for (LogFile* file : {&nowhere, &none, &log})
                      EXPECT_FALSE(file->logPrintf(LogFile::LEVEL_ERROR, "T", "one"));
                  EXPECT_FALSE(raw.logPrintf("two"));
                  EXPECT_TRUE(raw.logPrintf("back"));
              }),
              "LOG: one\nLOG: one\nLOG: one\nLOG: two\nLOG: back\n");
    EXPECT_EQ(logged(), "back\r\n");
}

TEST_F(LogFileTest, AMessageThatCannotBeFormattedIsNeitherShownNorWritten) {
    constexpr wchar_t NoCharacter[] = {wchar_t(0xD800), 0};
    EXPECT_EQ(shown([&] {
                  EXPECT_FALSE(log.logPrintf(LogFile::LEVEL_INFO, "T", "%ls", NoCharacter));
                  EXPECT_FALSE(raw.logPrintf("%ls", NoCharacter));
              }),
              "");
    EXPECT_EQ(logged(), "");
    EXPECT_EQ(take("card"), "");
}

TEST_F(LogFileTest, TwoThreadsAppendWholeLines) {
    RawLogFile file(terminal.files().hostPath("/shared-log").c_str());
    const auto write = [&file](char letter) {
        for (int line = 0; line < 50; ++line)
            EXPECT_TRUE(file.logPrintf("%s", string(500, letter).c_str()));
    };
    shown([&] {
        std::thread other(write, 'y');
        write('x');
        other.join();
    });
    string text = terminal.files().read("/shared-log");
    EXPECT_EQ(text.size(), 100U * 502);
    for (; !text.empty(); text.erase(0, 502))
        EXPECT_EQ(text.substr(0, 502), string(500, text[0]) + "\r\n");
}

}  // namespace
