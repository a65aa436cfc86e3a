#include "io/Media.h"

#include "support/TerminalTest.h"

namespace {

using std::string;

constexpr int WriteBit = 0x40000000;
constexpr int Read = 1;
constexpr int Write = 1 | WriteBit;
constexpr char Below[] = "/mnt/mmc/log.txt";

struct MediaTest : test::TerminalTest {
    MediaTest() : entry(Media::mountTable[0]) { reset(); }
    ~MediaTest() override { reset(); }

    void reset() {
        entry.mode = 1;
        entry.readers = entry.writers = 0;
        Media::mountEnable();
    }

    /// "readers/writers".
    string uses() const {
        return std::to_string(entry.readers) + "/" + std::to_string(entry.writers);
    }

    Media::Entry& entry;
};

TEST_F(MediaTest, TheFirstFittingLineOfTheMountsDecidesTheState) {
    const string card = "/dev/mmcblk0p1 /mnt/mmc vfat ";
    const struct {
        string mounts;
        int state;
    } cases[] = {{"", 0},
                 {card + "ro 0 0\n", 1},
                 {card + "rw,relatime,fmask=0022 0 0", 2},
                 {card + "noatime,rw 0 0\n", -1},
                 {card + "rwx 0 0\n", -1},
                 {card + "r\n", -1},
                 {card + ",ro 0 0\n", -1},
                 {"/dev/mmcblk0p1 /mnt/mmc vfat\n", 0},
                 {"\n \n/mnt/mmc\n" + card + "ro\n", 1},
                 {"/dev/x /mnt/mmcx vfat ro 0 0\n/dev/x /mnt/mm vfat ro 0 0\n", 0},
                 {"/dev/x / vfat rw 0 0\n", 0},
                 {"tmpfs /mnt tmpfs rw 0 0\n" + card + "ro 0 0\n", 2},
                 {card + "ro 0 0\n" + card + "rw 0 0\n", 1},
                 {card + "ro," + string(400, 'x') + "\n", 1},
                 {string(1000, 'x') + "\n" + card + "rw 0 0\n", 2},
                 {string(64, 'd') + " /mnt/mmc vfat ro\n", 1},
                 {string(65, 'd') + " /mnt/mmc vfat ro\n", 0},  // the rest counts as the next field
                 {string(195, 'x') + card + "ro\n", 1},         // ... and here as the next line
                 {string(180, ' ') + "/dev/x /mnt/mmc vfat ro\n", 0},
                 {string("\0\0 /mnt/mmc vfat ro\n", 20) + card + "ro\n", 1},
                 {string(5000, '\n'), 0}};
    for (const auto& tried : cases) {
        terminal.files().write("/proc/mounts", tried.mounts);
        EXPECT_EQ(Media::getMediaState(entry), tried.state) << tried.mounts;
        EXPECT_EQ(Media::getMediaState(1), tried.state);
    }
    terminal.files().remove("/proc/mounts");
    EXPECT_EQ(Media::getMediaState(entry), -1);
    EXPECT_EQ(Media::getMediaState(2), -1);
}

TEST_F(MediaTest, TheCardIsReadOnlyExceptWhileItIsWritten) {
    EXPECT_EQ(Media::mountMedia("/tmp/elsewhere", true), 0);
    EXPECT_EQ(Media::mountMedia("/mnt/mmcx", true), 0);
    EXPECT_EQ(Media::mountMedia(nullptr, true), 0);
    EXPECT_EQ(take("card"), "");
    EXPECT_EQ(Media::mountMedia(Below, false), Read);
    EXPECT_EQ(take("card"), "mount rw") << "a first mount is writable";
    EXPECT_TRUE(Media::unmountMedia(Read));
    EXPECT_EQ(take("card"), "remount ro");
    EXPECT_EQ(Media::mountMedia("/mnt/mmc", false), Read);
    EXPECT_EQ(take("card"), "") << "enough for a reader";

    EXPECT_EQ(Media::mountMedia(Below, true), Write);
    EXPECT_EQ(Media::mountMedia(Below, true), Write);
    EXPECT_EQ(uses(), "1/2");
    EXPECT_FALSE(Media::unmountMedia(Read)) << "writers remain";
    EXPECT_FALSE(Media::unmountMedia(Write));
    EXPECT_EQ(take("card"), "remount rw");
    EXPECT_TRUE(Media::unmountMedia(Write));
    EXPECT_EQ(take("card"), "remount ro");
    EXPECT_TRUE(Media::unmountMedia(Write)) << "without a writer: done again";
    EXPECT_EQ(uses(), "0/0");
}

TEST_F(MediaTest, AFailedMountCountsNothingAndAFailedRemountHasCounted) {
    terminal.card().setInserted(false);
    EXPECT_EQ(Media::mountMedia(Below, true), -1);
    terminal.card().setInserted(true);
    terminal.faults().fail("mount", "/mnt/mmc", EIO, 1);
    EXPECT_EQ(Media::mountMedia(Below, true), Write);
    EXPECT_EQ(uses(), "0/1");
    EXPECT_FALSE(Media::unmountMedia(Write));
    EXPECT_EQ(uses(), "0/0");
    EXPECT_EQ(terminal.card().state(), sim::MemoryCard::State::ReadWrite);
    EXPECT_TRUE(Media::unmountMedia(Write));
    terminal.faults().fail("mount", "/mnt/mmc", EROFS);
    EXPECT_EQ(Media::mountMedia(Below, true), -1);
    EXPECT_EQ(uses(), "0/0");

    EXPECT_TRUE(Media::unmountAll());
    terminal.files().remove("/proc/mounts");  // unknown: tried like a card that is not mounted
    EXPECT_EQ(Media::mountMedia(Below, false), Read);
    EXPECT_EQ(uses(), "1/0");
}

TEST_F(MediaTest, UnmountingAllForgetsTheUsesUnlessTheSystemRefuses) {
    entry.readers = entry.writers = 3;
    EXPECT_TRUE(Media::unmountAll());
    EXPECT_EQ(uses() + take("card"), "0/0") << "nothing was mounted";
    ASSERT_EQ(Media::mountMedia(Below, true), Write);
    FILE* const file = fopen(Below, "w");
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(Media::unmountAll());
    EXPECT_EQ(uses(), "0/1");
    EXPECT_FALSE(Media::unmountMedia(Write)) << "cannot be made read-only either";
    fclose(file);
    EXPECT_TRUE(Media::unmountAll());
    EXPECT_EQ(take("card"), "mount rw, unmount");
    terminal.files().remove("/proc/mounts");
    EXPECT_FALSE(Media::unmountAll()) << "tried without knowing";
}

TEST_F(MediaTest, NothingIsMountedWhileThatIsDisabled) {
    Media::mountDisable();
    EXPECT_EQ(Media::mountMedia(Below, false), -1);
    EXPECT_EQ(Media::mountMedia("/tmp/elsewhere", false), -1);
    Media::mountEnable();
    EXPECT_EQ(Media::mountMedia(Below, false), Read);
    Media::mountDisable();
    EXPECT_TRUE(Media::unmountMedia(Read)) << "a use can still end";
    EXPECT_EQ(uses(), "0/0");
}

TEST_F(MediaTest, AMediumOfModeZeroIsUnmountedWhileReadersRemainAndElseMadeReadOnly) {
    entry.mode = 0;
    ASSERT_EQ(Media::mountMedia(Below, false), Read);
    ASSERT_EQ(Media::mountMedia(Below, false), Read);
    EXPECT_TRUE(Media::unmountMedia(Read));
    EXPECT_FALSE(Media::unmountMedia(Read)) << "no longer mounted";
    EXPECT_EQ(take("card"), "mount rw, unmount");
    ASSERT_EQ(Media::mountMedia(Below, true), Write);
    EXPECT_TRUE(Media::unmountMedia(Write));
    EXPECT_EQ(take("card"), "mount rw, remount ro");
    entry.mode = 2;
    EXPECT_FALSE(Media::unmountMedia(Read));
}

TEST_F(MediaTest, UsesFromManyThreadsAllEnd) {
    const auto use = [](bool write) {
        for (int round = 0; round < 40; ++round) {
            const int handle = Media::mountMedia(Below, write);
            EXPECT_EQ(handle, write ? Write : Read);
            Media::getMediaState(1);
            Media::unmountMedia(handle);
        }
    };
    auto writer = test::inBackground([&] { use(true); });
    auto reader = test::inBackground([&] { use(false); });
    use(true);
    writer.get();
    reader.get();
    EXPECT_EQ(uses(), "0/0");
    EXPECT_TRUE(Media::unmountMedia(Write));
    EXPECT_EQ(Media::getMediaState(1), Media::ReadOnly);
}

}  // namespace
