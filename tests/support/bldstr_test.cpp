#include "support/bldstr.h"

#include <gtest/gtest.h>

#include "support/guards.h"
#include "support/log.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/test_root.h"

class BldStrTest : public testing::Test {
  protected:
    void SetUp() override
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 2);
        LogAttach();
    }
    void TearDown() override { LogLevel = 0; }

    TestRoot root;
};

// What must hold after every operation.
static void ExpectWhole(const BldStr* str, const std::string& text)
{
    ASSERT_NE(nullptr, str->cStr);
    EXPECT_EQ(text, Narrow(str->cStr));
    EXPECT_EQ(Wide(text).size(), str->length);
    EXPECT_LE(2 * (str->length + 1), str->capacity);
}

TEST_F(BldStrTest, GrowsToTheExactSizeAndOnlyWhenItMust)
{
    const BldStrPtr str(BldStrNew(4));
    EXPECT_EQ(10u, str->capacity);
    ExpectWhole(str.get(), "");
    EXPECT_EQ(1, BldStrCat(str.get(), TEXT("abcd")));
    EXPECT_EQ(10u, str->capacity);
    EXPECT_EQ(1, BldStrCat(str.get(), TEXT("efg")));
    EXPECT_EQ(16u, str->capacity);
    EXPECT_EQ(1, BldStrCat(str.get(), TEXT("")));
    EXPECT_EQ(16u, str->capacity);
    ExpectWhole(str.get(), "abcdefg");
}

TEST_F(BldStrTest, ReplacingKeepsTheBlockForShorterTexts)
{
    const BldStrPtr str(BldStrNewStr(TEXT("abcdef")));
    EXPECT_EQ(14u, str->capacity);
    EXPECT_EQ(1, BldStrReplace(str.get(), TEXT("xy")));
    EXPECT_EQ(14u, str->capacity);
    ExpectWhole(str.get(), "xy");
    EXPECT_EQ(1, BldStrReplace(str.get(), TEXT("1234567890")));
    EXPECT_EQ(22u, str->capacity);
    ExpectWhole(str.get(), "1234567890");
    // A part of its own text.
    EXPECT_EQ(1, BldStrReplace(str.get(), str->cStr + 4));
    ExpectWhole(str.get(), "567890");
}

TEST_F(BldStrTest, RemovesEveryOccurrence)
{
    const BldStrPtr str(BldStrNewStr(TEXT("-a--b-c-")));
    BldStrRemove(str.get(), '-');
    ExpectWhole(str.get(), "abc");
    BldStrRemove(str.get(), 'x');
    ExpectWhole(str.get(), "abc");
}

TEST_F(BldStrTest, NullArgumentsAreRefusedAndLogged)
{
    const BldStrPtr empty(BldStrNewStr(TEXT("")));
    EXPECT_EQ(2u, empty->capacity);
    ExpectWhole(empty.get(), "");
    EXPECT_EQ(0, BldStrCat(nullptr, TEXT("a")));
    EXPECT_EQ(0, BldStrCat(empty.get(), nullptr));
    EXPECT_EQ(0, BldStrReplace(empty.get(), nullptr));
    EXPECT_EQ(nullptr, BldStrNewStr(nullptr));
    EXPECT_EQ(nullptr, BldStrNewStrFromAscii(nullptr));
    EXPECT_EQ((std::vector<std::string>{"BldStrFree BldStrCat pstr or stradd NULL 2",
                                        "BldStrFree BldStrCat pstr or stradd NULL 2", "BldStrReplace NULL 2",
                                        "BldStrNewStr NULL str 1", "BldStrNewStrFromAscii NULL str 1"}),
              root.LogLines());
}

TEST_F(BldStrTest, ByteTextsComeInTheDefaultCodePage)
{
    const BldStrPtr str(BldStrNewStrFromAscii("plain text"));
    EXPECT_EQ(22u, str->capacity);
    ExpectWhole(str.get(), "plain text");
}

TEST_F(BldStrTest, WithoutMemoryNothingIsLostAndNothingWrittenThrough)
{
    LogLevel = 0;
    for (size_t failAt = 0; failAt < 2; failAt++) {
        const AllocFault fault(failAt, true);
        EXPECT_EQ(nullptr, BldStrNewStr(TEXT("some text"))) << failAt;
    }
    for (size_t failAt = 0; failAt < 2; failAt++) {
        const AllocFault fault(failAt, true);
        EXPECT_EQ(nullptr, BldStrNewStrFromAscii("some text")) << failAt;
    }
    BldStr* hollow = nullptr;
    {
        const AllocFault fault(1, true);
        hollow = BldStrNew(100);
    }
    ASSERT_NE(nullptr, hollow);
    EXPECT_EQ(0, BldStrCat(hollow, TEXT("a")));
    BldStrFree(hollow);

    const BldStrPtr str(BldStrNewStr(TEXT("kept")));
    const AllocFault fault(0, true);
    EXPECT_EQ(0, BldStrCat(str.get(), TEXT(" and more")));
    EXPECT_EQ(0, BldStrReplace(str.get(), TEXT("a longer text")));
    ExpectWhole(str.get(), "kept");
}
