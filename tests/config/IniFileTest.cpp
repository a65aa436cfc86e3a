#include "config/IniFile.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using std::string;

struct IniFileTest : testing::Test {
    IniFile ini{"/nowhere"};
};

TEST_F(IniFileTest, KeysKeepTheirOrderAndALookUpFindsTheFirstOfAName) {
    EXPECT_FALSE(ini.SetValue("A", "b", "1", false)) << "created only on demand";
    for (const char* name : {"A", "a", "B"})
        ini.AddKeyName(name);
    EXPECT_TRUE(ini.SetValue("a", "x", "1", true) && ini.SetValue("A", "y", "2", true) &&
                ini.SetValue("A", "z", "3", true) && ini.SetValue("B", "x", "4", true));
    EXPECT_FALSE(ini.SetValue(0, 0, "5")) << "false although it is done";
    EXPECT_EQ(ini.GetValue("A", "x", ""), "5");
    EXPECT_EQ(ini.GetNumValues(1) + ini.GetNumValues("C"), 0U);
    EXPECT_TRUE(ini.DeleteValue("A", "Y"));
    EXPECT_FALSE(ini.DeleteValue("A", "y") || ini.DeleteValue("C", "x"));
    EXPECT_EQ(ini.GetValueName("A", 1) + ini.GetValueName("C", 1) + ini.GetValue(0, 1, ""), "z3");
    for (const unsigned id : {3U, IniFile::NotFound}) {
        EXPECT_EQ(ini.GetValue(0, id, "d") + ini.GetValue(id, 0, "d"), "dd");
        EXPECT_EQ(ini.GetKeyName(id) + ini.GetKeyComment(0, id) + ini.GetKeyComment(id, 0), "");
        EXPECT_FALSE(ini.AddKeyComment(id, "c") || ini.DeleteKeyComments(id));
    }
    EXPECT_TRUE(ini.DeleteKey("A"));
    EXPECT_FALSE(ini.DeleteKey("C"));
    EXPECT_EQ(ini.GetKeyName(0), "a") << "the second of that name";
}

TEST_F(IniFileTest, NumbersAreReadFromTheStartOfAValueAndStoredAsText) {
    const struct {
        const char* value;
        int integer;
        double real;
    } cases[] = {{"12abc", 12, 12},
                 {"", 0, 0},
                 {" -7", -7, -7},
                 {"010", 10, 10},
                 {"1.5e2", 1, 150},
                 {"99999999999", INT_MAX, 99999999999.0},
                 {"-99999999999999999999", INT_MIN, -1e20}};
    for (const auto& one : cases) {
        ini.SetValue("A", "n", one.value, true);
        EXPECT_EQ(ini.GetValueI("A", "n", 7), one.integer) << one.value;
        EXPECT_DOUBLE_EQ(ini.GetValueF("A", "n", 7), one.real) << one.value;
    }
    EXPECT_DOUBLE_EQ(ini.GetValueF("A", "missing", 0.12345678), 0.123457);
    EXPECT_TRUE(ini.SetValueF("A", "f", -1.7e308, true));
    EXPECT_EQ(ini.GetValue("A", "f", "").size(), 317U);

    int x = 0, y = 0;
    EXPECT_TRUE(ini.SetValueV("A", "size", "%dx%d", 320, 240));
    EXPECT_EQ(ini.GetValueV("A", "size", "%dx%d", &x, &y), 2);
    EXPECT_EQ(x * 1000 + y, 320240);
    EXPECT_TRUE(ini.SetValueV("A", "long", "%s", string(511, 'x').c_str()));
    EXPECT_FALSE(ini.SetValueV("A", "long", "%s", string(512, 'y').c_str()));
    EXPECT_EQ(ini.GetValue("A", "long", ""), string(511, 'x'));
}

TEST_F(IniFileTest, CaseCountsWhenAskedToAndCommentsGoByTheirNumber) {
    EXPECT_TRUE(ini.SetValue("Key", "Name", "1", true) && ini.IsCaseInsensitive());
    EXPECT_EQ(ini.CheckCase("NaMe"), "name");
    EXPECT_EQ(ini.FindValue(ini.FindKey("KEY"), "NAME"), 0U);
    ini.SetCaseInsensitive(false);
    EXPECT_EQ(ini.FindKey("KEY"), IniFile::NotFound);
    EXPECT_EQ(ini.FindValue(0, ini.CheckCase("NAME")), IniFile::NotFound);
    for (const char* comment : {"a", "b"}) {
        EXPECT_TRUE(ini.AddKeyComment("Key", comment));
        ini.AddHeaderComment(comment);
    }
    EXPECT_TRUE(ini.DeleteKeyComment("Key", 0) && ini.DeleteHeaderComment(0));
    EXPECT_FALSE(ini.DeleteKeyComment("Key", 1) || ini.DeleteHeaderComment(1));
    EXPECT_EQ(ini.GetKeyComment("Key", 0) + ini.GetHeaderComment(0) + ini.GetPath(), "bb/nowhere");
    EXPECT_TRUE(ini.GetNumKeyComments("Key") == 1 && ini.DeleteKeyComments("Key"));
    EXPECT_EQ(ini.GetNumKeyComments("Key") + ini.GetNumKeyComments("none"), 0U);
}

}  // namespace
