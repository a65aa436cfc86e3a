// The text of INI files, on the memory card.

#include "config/IniFile.h"
#include "io/Media.h"
#include "support/Resources.h"
#include "support/TerminalTest.h"

namespace {

using namespace std::string_literals;
using std::string;

constexpr char Path[] = "/mnt/mmc/settings.ini";

/// The whole model, an item in angle brackets each.
string contents(const IniFile& ini) {
    string all;
    for (unsigned comment = 0; comment < ini.GetNumHeaderComments(); ++comment)
        all += "<;" + ini.GetHeaderComment(comment) + ">";
    for (unsigned key = 0; key < ini.GetNumKeys(); ++key) {
        all += "<[" + ini.GetKeyName(key) + ">";
        for (unsigned comment = 0; comment < ini.GetNumKeyComments(key); ++comment)
            all += "<;" + ini.GetKeyComment(key, comment) + ">";
        for (unsigned value = 0; value < ini.GetNumValues(key); ++value)
            all += "<" + ini.GetValueName(key, value) + "|" + ini.GetValue(key, value, "") + ">";
    }
    return all;
}

struct IniFileTextTest : test::TerminalTest {
    ~IniFileTextTest() override { Media::unmountAll(); }

    bool read(const string& text) {
        terminal.card().writeFile("settings.ini", text);
        return ini.ReadFile();
    }

    IniFile ini{Path};
};

TEST_F(IniFileTextTest, TheFirstSpecialCharacterOfALineDecidesAndNothingIsTrimmed) {
    const string v254(254, 'v');
    const struct {
        string text;
        string expected;  // in the model
        bool result;
    } cases[] = {
        {"# note\r\n[S]\r\nk=v;c\n", "<; note><[S><k|v;c>", true},
        {"a;b=c", "<;b=c>", false},
        {"\n\r\n\r\n\nnothing special\n", "", false},
        {"name = value \n", "<[><name | value >", true},
        {"x=1\nX=2\nx =3\n", "<[><x|2><x |3>", true},
        {"before[ A ]after]\t\nx=[b];#=", "<[ A ]after><x|[b];#=>", true},
        {"[a;b=c#]\nx=1", "<[a;b=c#><x|1>", true},
        {"[A]\n;one\nx=1\n# two\n[B]\n;three\n", "<[A><;one><; two><x|1><[B><;three>", true},
        {"[A]\nx=1\n[b]\n[a]\n;c\nx=2\ny=3\n", "<[A><;c><x|2><y|3><[b><[a>", true},
        // line ends
        {"x=1\r\r\ny=2\r", "<[><x|1\r><y|2>", true},
        {"x=1\ry=2\r[A]\r", "<[><x|1\ry=2\r[A]>", true},
        // refused at the first character that does not print; what comes before stays
        {"\xEF\xBB\xBF[A]\n", "", false},
        {"[A]\nx=1\n\ty=2\nz=3\n", "<[A><x|1>", false},
        // NUL is a character as any other
        {"[A\0B]\nx\0=\0y;\n"s, "<[A\0B><x\0|\0y;>"s, true},
        // longer lines are several
        {"x=" + v254 + "w=z\r\n", "<[><x|" + v254.substr(1) + "><vw|z>", true},
        {"x=" + v254.substr(1) + "\r\ny=1", "<[><x|" + v254.substr(1) + "><y|1>", true},
        {";" + v254 + "[B]\n", "<;" + v254 + "><[B>", true},
        {"[" + v254 + "]\n", "", false},
        {"x=" + v254.substr(1) + "\x7F\n", "<[><x|" + v254.substr(1) + ">", false},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.text));
        ini.Reset();
        EXPECT_EQ(read(one.text), one.result);
        EXPECT_EQ(contents(ini), one.expected);
    }
    EXPECT_EQ(Media::mountTable[0].readers + Media::mountTable[0].writers, 0);
}

TEST_F(IniFileTextTest, AFileIsAddedToWhatIsThereAndTheTextWrittenIsExact) {
    EXPECT_TRUE(read("[A]\nx=1\n"));
    EXPECT_TRUE(read("; for a key that is not there\ny=2\n[a]\nx=3\n;c\n[B]\n"));
    EXPECT_EQ(contents(ini), "<[A><;c><x|3><[><y|2><[a><[B>");
    ini.AddHeaderComment("h");
    EXPECT_TRUE(ini.WriteFile());
    EXPECT_EQ(terminal.card().readFile("settings.ini"),
              ";h\r\n\r\n[A]\r\n;c\r\nx=3\r\n\r\n[]\r\ny=2\r\n\r\n[a]\r\n\r\n[B]\r\n\r\n");
}

TEST_F(IniFileTextTest, AFileThatCannotBeUsedGivesFalseAndKeepsTheModel) {
    const long descriptors = test::openDescriptors();
    ini.SetValue("K", "x", "1", true);
    for (const char* path : {"/mnt/mmc/missing/settings.ini", "/proc/self"}) {
        ini.SetPath(path);
        EXPECT_FALSE(ini.WriteFile() || ini.ReadFile()) << path;
        EXPECT_EQ(contents(ini), "<[K><x|1>") << path;
    }
    ini.SetPath("/dev/full");
    EXPECT_TRUE(ini.WriteFile()) << "an error after the open goes unnoticed";
    EXPECT_EQ(Media::mountTable[0].readers + Media::mountTable[0].writers, 0);
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

}  // namespace
