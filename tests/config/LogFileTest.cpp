#include "config/LogFile.h"

#include <cstdlib>

#include "config/RawLogFile.h"
#include "io/Media.h"
#include "support/TerminalTest.h"

namespace {

using std::string;

constexpr char Path[] = "/mnt/mmc/log";

struct LogFileTest : test::TerminalTest {
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
    constexpr wchar_t NoCharacter[] = {wchar_t(0xD800), 0};
    terminal.faults().fail("fopen", Path, ENOSPC);
    EXPECT_EQ(shown([&] {
                  for (LogFile* file : {&nowhere, &none, &log})
                      EXPECT_FALSE(file->logPrintf(LogFile::LEVEL_ERROR, "T", "one"));
                  EXPECT_FALSE(RawLogFile("/mnt/mmc/missing/log").logPrintf("two"));
                  EXPECT_FALSE(raw.logPrintf("%ls", NoCharacter)) << "cannot be formatted";
                  EXPECT_FALSE(log.logPrintf(LogFile::LEVEL_INFO, "T", "%ls", NoCharacter));
                  EXPECT_TRUE(raw.logPrintf("back"));
              }),
              "LOG: one\nLOG: one\nLOG: one\nLOG: two\nLOG: back\n");
    EXPECT_EQ(logged(), "back\r\n");
}

}  // namespace
