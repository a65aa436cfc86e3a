#include "config/IniFile.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

using std::string;

class IniFileTest : public testing::Test {
protected:
    IniFile ini{"/nowhere"};
};

TEST_F(IniFileTest, NamesAreFoundInAnyCaseUnlessToldOtherwise) {
    EXPECT_TRUE(ini.SetValue("NET", "apn", "internet", true));
    EXPECT_EQ(ini.GetValue("Net", "APN", "x"), "internet");
    EXPECT_TRUE(ini.SetValue("net", "aPn", "other", false));
    EXPECT_EQ(ini.CheckCase("\xC4 Net[0]"), "\xC4 net[0]");
    for (const char* similar : {"NE", "NETS", "", "NE\n"})
        EXPECT_EQ(ini.FindKey(similar), IniFile::NotFound) << similar;

    ini.SetCaseInsensitive(false);
    EXPECT_EQ(ini.CheckCase("Net"), "Net");
    EXPECT_EQ(ini.GetValue("Net", "apn", "x") + ini.GetValue("NET", "APN", "x"), "xx");
    EXPECT_EQ(ini.GetValue("NET", "apn", "x"), "other");
    ini.SetValue("Net", "apn", "third", true);
    EXPECT_EQ(ini.FindKey("Net"), 1U);
}

TEST_F(IniFileTest, ValuesAreCreatedOnlyOnDemandAndOtherwiseReplaced) {
    EXPECT_FALSE(ini.SetValue("A", "b", "1", false));
    EXPECT_EQ(ini.GetNumKeys(), 0U);
    EXPECT_TRUE(ini.SetValue("A", "b", "1", true));
    EXPECT_FALSE(ini.SetValue("A", "c", "2", false));
    EXPECT_EQ(ini.GetNumValues("A"), 1U);
    EXPECT_FALSE(ini.SetValue(0, 0, "4")) << "false although it is done";
    EXPECT_FALSE(ini.SetValue(0, 1, "5") || ini.SetValue(1, 0, "5"));
    EXPECT_EQ(ini.GetValue(0, 0, "x"), "4");
}

TEST_F(IniFileTest, KeysKeepTheirOrderAndALookUpFindsTheFirstOfAName) {
    for (const char* name : {"A", "a", "B"})
        ini.AddKeyName(name);
    EXPECT_TRUE(ini.SetValue("a", "x", "1", true) && ini.SetValue("A", "y", "2", true) &&
                ini.SetValue("A", "z", "3", true) && ini.SetValue("B", "x", "4", true));
    EXPECT_EQ(ini.GetNumValues(1), 0U);
    EXPECT_TRUE(ini.DeleteValue("A", "Y"));
    EXPECT_FALSE(ini.DeleteValue("A", "y") || ini.DeleteValue("C", "x"));
    EXPECT_EQ(ini.GetValueName("A", 1) + ini.GetValue(0, 1, ""), "z3");
    EXPECT_TRUE(ini.DeleteKey("A"));
    EXPECT_FALSE(ini.DeleteKey("C"));
    EXPECT_EQ(ini.GetKeyName(0), "a") << "the second of that name";
    EXPECT_EQ(ini.GetValue("B", "x", ""), "4");
    ini.AddHeaderComment("h");
    ini.Reset();
    EXPECT_EQ(ini.GetNumKeys() + ini.GetNumHeaderComments(), 0U);
    EXPECT_EQ(ini.GetPath(), "/nowhere");
}

TEST_F(IniFileTest, CommentsBelongToTheHeadOrToAKey) {
    for (const char* text : {"one", "two", "three"})
        ini.AddHeaderComment(text);
    EXPECT_TRUE(ini.DeleteHeaderComment(1));
    EXPECT_FALSE(ini.DeleteHeaderComment(2));
    EXPECT_EQ(ini.GetHeaderComment(1) + ini.GetHeaderComment(2), "three");

    ini.AddKeyName("K");
    EXPECT_TRUE(ini.AddKeyComment("k", "one") && ini.AddKeyComment(0, "two"));
    EXPECT_TRUE(ini.DeleteKeyComment("K", 0));
    EXPECT_FALSE(ini.DeleteKeyComment(0, 1));
    EXPECT_EQ(ini.GetKeyComment("k", 0), "two");
    EXPECT_TRUE(ini.DeleteKeyComments("K"));
    EXPECT_EQ(ini.GetNumKeyComments(0), 0U);
}

TEST_F(IniFileTest, WhatIsNotThereGivesItsFallback) {
    ini.SetValue("A", "b", "1", true);
    for (const unsigned id : {1U, IniFile::NotFound}) {
        EXPECT_EQ(ini.GetKeyName(id), "");
        EXPECT_EQ(ini.GetNumValues(id), 0U);
        EXPECT_EQ(ini.FindValue(id, "b"), IniFile::NotFound);
        EXPECT_EQ(ini.GetValueName(0, id) + ini.GetValueName(id, 0), "");
        EXPECT_EQ(ini.GetValue(0, id, "d") + ini.GetValue(id, 0, "d"), "dd");
        EXPECT_EQ(ini.GetNumKeyComments(id), 0U);
        EXPECT_EQ(ini.GetKeyComment(0, id) + ini.GetKeyComment(id, 0), "");
        EXPECT_FALSE(ini.AddKeyComment(id, "c"));
        EXPECT_FALSE(ini.DeleteKeyComment(id, 0) || ini.DeleteKeyComments(id));
    }
    EXPECT_FALSE(ini.AddKeyComment("X", "c") || ini.DeleteKeyComment("X", 0) ||
                 ini.DeleteKeyComments("X"));
}

TEST_F(IniFileTest, NumbersAreReadFromTheStartOfAValue) {
    const struct {
        const char* value;
        int integer;
        double real;
    } cases[] = {
        {"12abc", 12, 12},
        {"", 0, 0},
        {" -7", -7, -7},
        {"010", 10, 10},
        {"1.5e2", 1, 150},
        {"99999999999", INT_MAX, 99999999999.0},
        {"-99999999999999999999", INT_MIN, -1e20},
    };
    for (const auto& one : cases) {
        ini.SetValue("A", "n", one.value, true);
        EXPECT_EQ(ini.GetValueI("A", "n", 7), one.integer) << one.value;
        EXPECT_DOUBLE_EQ(ini.GetValueF("A", "n", 7), one.real) << one.value;
    }
    EXPECT_EQ(ini.GetValueI("A", "missing", INT_MIN), INT_MIN);
    EXPECT_DOUBLE_EQ(ini.GetValueF("A", "missing", 0.12345678), 0.123457);
    EXPECT_DOUBLE_EQ(ini.GetValueF("A", "missing", -1.7e308), -1.7e308);
}

TEST_F(IniFileTest, NumbersAreStoredAsText) {
    EXPECT_FALSE(ini.SetValueI("A", "i", 1, false) || ini.SetValueF("A", "f", 1, false));
    EXPECT_TRUE(ini.SetValueI("A", "i", INT_MIN, true) && ini.SetValueF("A", "f", 2.5, true));
    EXPECT_EQ(ini.GetValue("A", "i", "") + ini.GetValue("A", "f", ""), "-21474836482.500000");
    EXPECT_TRUE(ini.SetValueF("A", "f", -1.7e308, false));
    EXPECT_EQ(ini.GetValue("A", "f", "").size(), 317U);
}

TEST_F(IniFileTest, FormattedValuesFitOrAreRefused) {
    int x = 0, y = 0;
    EXPECT_TRUE(ini.SetValueV("A", "size", "%dx%d", 320, 240));
    EXPECT_EQ(ini.GetValueV("A", "size", "%dx%d", &x, &y), 2);
    EXPECT_EQ(x * 1000 + y, 320240);
    EXPECT_EQ(ini.GetValueV("A", "size", "%d-%d", &x, &y), 1);
    EXPECT_EQ(ini.GetValueV("A", "missing", "%d", &x), EOF);

    EXPECT_TRUE(ini.SetValueV("A", "long", "%s", string(511, 'x').c_str()));
    EXPECT_FALSE(ini.SetValueV("A", "long", "%s", string(512, 'y').c_str()));
    EXPECT_FALSE(ini.SetValueV("A", "long", "%*d", 1 << 20, 1));
    EXPECT_EQ(ini.GetValue("A", "long", ""), string(511, 'x'));
    EXPECT_FALSE(ini.SetValueV("B", "b", "%s", string(9999, 'z').c_str()));
    EXPECT_EQ(ini.GetNumKeys(), 1U) << "nothing is created either";
}

}  // namespace
