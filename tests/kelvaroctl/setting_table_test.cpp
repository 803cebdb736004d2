// Numbers as they are typed, and texts on their way to a terminal.
#include "kelvaroctl/setting_table.h"

#include <gtest/gtest.h>

using namespace kelvaroctl;

namespace {

TEST(SettingTableTest, NumbersAsTheyAreTyped)
{
    const struct {
        const char* text;
        std::optional<DWORD> number;
    } rows[] = {
        {"0", 0},
        {"10", 10},
        {"0x10", 16},
        {"0XfF", 255},
        {"4294967295", 0xFFFFFFFF},
        {"0xFFFFFFFF", 0xFFFFFFFF},
        {"4294967296", {}},
        {"", {}},
        {"0x", {}},
        {" 1", {}},
        {"1 ", {}},
        {"+1", {}},
        {"-1", {}},
        {"1e3", {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.number, ParseNumber(row.text)) << row.text;
}

TEST(SettingTableTest, SecretsThatSignInWouldMangle)
{
    const Setting& secret = *FindSetting("clientsecret");
    EXPECT_EQ("", TextWarning(secret, TEXT("abc~DEF.123_-")));
    for (const WCHAR* mangled : {TEXT("a&b"), TEXT("a+b"), TEXT("a%41"), TEXT("a b")}) {
        EXPECT_EQ("", TextProblem(secret, mangled));
        EXPECT_NE("", TextWarning(secret, mangled));
    }
    // Byte order marks, which nobody sees.
    EXPECT_NE("", TextProblem(secret, TEXT("\xFEFF") TEXT("abc")));
}

TEST(SettingTableTest, TextForATerminal)
{
    EXPECT_EQ("a\xC3\xA9 b", Printable("a\xC3\xA9 b"));
    EXPECT_EQ("\\x1b[2J\\x0a\\x7f\\x9b", Printable("\x1B[2J\n\x7F\xC2\x9B"));
    // Two bytes, one column.
    EXPECT_EQ("\xC3\xA9    b\nccc  d\n", Columns({{"\xC3\xA9", "b"}, {"ccc", "d"}}));
}

}  // namespace
