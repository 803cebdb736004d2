#include "support/text.h"

#include <gtest/gtest.h>

#include <set>

#include "support/heap.h"
#include "support/random_uuid.h"
#include "tests/common/test_root.h"

TEST(TextTest, ComposesNumbersAndCutsAtTheBuffersEnd)
{
    WCHAR room[64];
    TextWriter(room, 64)
        .Number(-2147483648LL)
        .Text(TEXT(" "))
        .Hex(0x80090026)
        .Text(TEXT(" "))
        .Padded(7, 2)
        .Text(TEXT(" "))
        .Hex(0);
    EXPECT_EQ("-2147483648 80090026 07 0", Narrow(room));
    WCHAR small[6];
    TextWriter cut(small, 6);
    cut.Text(TEXT("abc")).Text(static_cast<const WCHAR*>(nullptr)).Bytes("tail");
    EXPECT_EQ("abc(N", Narrow(small));
    EXPECT_EQ(5u, cut.length());
}

TEST(TextTest, ComparesAndCopies)
{
    EXPECT_TRUE(TextEqualNoCase(TEXT("sha256"), TEXT("SHA256")));
    EXPECT_FALSE(TextEqualNoCase(TEXT("SHA25"), TEXT("SHA256")));
    EXPECT_TRUE(TextContains(TEXT("ECDH_P384"), TEXT("384")));
    EXPECT_FALSE(TextContains(nullptr, TEXT("384")));
    WCHAR room[4];
    EXPECT_TRUE(TextCopy(room, 4, TEXT("abc")));
    EXPECT_FALSE(TextCopy(room, 4, TEXT("abcd")));
    EXPECT_EQ(0, room[0]);
}

TEST(UuidTest, IsLowerCaseInItsFormAndFreshEachTime)
{
    std::set<std::string> seen;
    for (int i = 0; i < 100; i++) {
        WCHAR text[kUuidTextChars];
        NewUuidText(text);
        const std::string uuid = Narrow(text);
        ASSERT_EQ(36u, uuid.size());
        for (size_t at = 0; at < uuid.size(); at++) {
            if (at == 8 || at == 13 || at == 18 || at == 23)
                EXPECT_EQ('-', uuid[at]);
            else
                EXPECT_NE(std::string::npos, std::string("0123456789abcdef").find(uuid[at])) << uuid;
        }
        EXPECT_TRUE(seen.insert(uuid).second);
    }
}

// In a 32-bit process the size would wrap to 16 bytes.
TEST(HeapTest, ABlockThatNoProcessCanAddressIsRefused)
{
    EXPECT_EQ(nullptr, HeapAllocSized(0, uint64_t{1} << 62 | 16));
}
