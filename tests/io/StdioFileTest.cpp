#include "io/StdioFile.h"

#include <unistd.h>

#include <cstdio>

#include "foundation/Worker.h"
#include "io/Media.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::string_literals;
using std::string;

constexpr char Path[] = "/mnt/mmc/notes";

struct StdioFileTest : test::TerminalTest {
    StdioFileTest() : descriptors(test::openDescriptors()) {}
    ~StdioFileTest() override {
        Media::mountEnable();
        Media::unmountAll();
    }

    void expectNothingHeld() const {
        EXPECT_EQ(Media::mountTable[0].readers, 0);
        EXPECT_EQ(Media::mountTable[0].writers, 0);
        EXPECT_EQ(test::openDescriptors(), descriptors);
    }

    long descriptors;
    StdioFile file;
};

TEST_F(StdioFileTest, EachModeMountsTheCardAsItNeedsAndDoesWhatItsStdioModeDoes) {
    constexpr struct {
        int mode;
        bool opensMissing;
        const char* reads;  // of "old\n", right after the open
        bool writes;
        const char* contents;  // after writing "X"
    } Modes[] = {{StdioFile::Read, false, "old\n", false, "old\n"},
                 {StdioFile::Write, true, "", true, "X"},
                 {StdioFile::WriteAndRead, true, "", true, "X"},
                 {StdioFile::Append, true, "", true, "old\nX"},
                 {StdioFile::Update, false, "old\n", true, "old\nX"}};
    terminal.card().writeFile("notes", "old\n");
    for (const int mode : {5, -1}) {
        EXPECT_FALSE(file.open(Path, mode));
        expectNothingHeld();
    }
    EXPECT_EQ(take("card"), "mount rw, remount ro, remount rw, remount ro");
    for (const auto& mode : Modes) {
        SCOPED_TRACE(mode.mode);
        terminal.card().writeFile("notes", "old\n");
        const string missing = "/mnt/mmc/missing" + std::to_string(mode.mode);
        EXPECT_EQ(file.open(missing.c_str(), mode.mode), mode.opensMissing);
        EXPECT_EQ(file.close(), mode.opensMissing);
        expectNothingHeld();
        takeLines();
        ASSERT_TRUE(file.open(Path, mode.mode));
        EXPECT_EQ(Media::mountTable[0].readers, mode.mode == StdioFile::Read ? 1 : 0);
        EXPECT_EQ(Media::mountTable[0].writers, mode.mode == StdioFile::Read ? 0 : 1);
        EXPECT_EQ(file.readString(), mode.reads);
        file.getSize();  // a change from reading to writing needs a seek
        EXPECT_EQ(file.writeString("X"), mode.writes);
        EXPECT_TRUE(file.close());
        EXPECT_EQ(terminal.card().readFile("notes"), mode.contents);
        EXPECT_EQ(take("card"), mode.writes ? "remount rw, remount ro" : "remount ro");
        expectNothingHeld();
    }
}

TEST_F(StdioFileTest, WhatCannotBeOpenedLeavesNoUseBehind) {
    const auto refused = [&](const char* path, int mode) {
        EXPECT_FALSE(file.open(path, mode)) << path;
        EXPECT_FALSE(file.close());
        expectNothingHeld();
    };
    refused("/mnt/mmc/missing", StdioFile::Read);
    refused("/mnt/mmc/missing/deeper", StdioFile::Write);
    refused("", StdioFile::Read);
    refused(nullptr, StdioFile::Write);
    terminal.faults().fail("fopen", Path, ENOSPC);
    refused(Path, StdioFile::Write);
    terminal.faults().fail("mount", "/mnt/mmc", EROFS);
    refused(Path, StdioFile::Write);
    Media::mountDisable();
    refused("/proc/self/status", StdioFile::Read);
    Media::mountEnable();
    EXPECT_TRUE(file.open("/proc/self/status", StdioFile::Read)) << "on no medium";
    char name[6] = {};
    EXPECT_TRUE(file.readData(name, 5) == 5 && name == "Name:"s && file.close());
    Media::unmountAll();
    terminal.card().setInserted(false);
    refused(Path, StdioFile::Read);
}

TEST_F(StdioFileTest, LinesComeWholeUpTo255CharactersWithEveryByteKept) {
    const string a255(255, 'a');
    const struct {
        string text;
        std::vector<string> pieces;
    } cases[] = {{"", {}},
                 {"one\r\n\ntwo", {"one\r\n", "\n", "two"}},
                 {"a\0b\n\0\n\0"s, {"a\0b\n"s, "\0\n"s, "\0"s}},
                 {"\r\r\n\xFF\x80\n", {"\r\r\n", "\xFF\x80\n"}},
                 {a255 + "\n", {a255, "\n"}},
                 {string(254, 'a') + "\n", {string(254, 'a') + "\n"}},
                 {string(254, 'a') + "\r\n", {string(254, 'a') + "\r", "\n"}},
                 {a255 + a255, {a255, a255}}};
    for (const auto& one : cases) {
        terminal.card().writeFile("notes", one.text);
        ASSERT_TRUE(file.open(Path, StdioFile::Read));
        EXPECT_FALSE(file.isEOF());
        std::vector<string> pieces;
        for (string piece; !(piece = file.readString()).empty();)
            pieces.push_back(piece);
        EXPECT_TRUE(file.isEOF());
        EXPECT_EQ(pieces, one.pieces);
        EXPECT_EQ(file.getSize(), static_cast<int>(one.text.size()));
    }
}

TEST_F(StdioFileTest, ACancelledWorkerGivesBackWhatItHasOpen) {
    int ends[2] = {};
    ASSERT_EQ(::pipe(ends), 0);
    std::atomic<bool> isOpen{false};
    test::Worker reader([&](test::Worker&) {
        const string pipe = "/proc/self/fd/" + std::to_string(ends[0]);
        StdioFile onCard, onPipe;
        isOpen = onCard.open(Path, StdioFile::Write) && onPipe.open(pipe.c_str(), StdioFile::Read);
        EXPECT_EQ(onPipe.getSize(), -1);
        onPipe.readString();
    });
    ASSERT_TRUE(reader.start() && test::soon([&] { return isOpen.load(); }));
    EXPECT_TRUE(reader.terminate());
    EXPECT_EQ(take("card"), "mount rw, remount ro");
    ::close(ends[0]);
    ::close(ends[1]);
    expectNothingHeld();
}

}  // namespace
