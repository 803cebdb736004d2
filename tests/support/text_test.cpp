// Texts: composing and comparing them, counted strings, Base64; UUIDs and the clock.
#include "support/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/base64.h"
#include "support/clock.h"
#include "support/guards.h"
#include "support/heap.h"
#include "support/random_uuid.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/base64.h"
#include "tests/common/wide_text.h"

using Bytes = std::vector<BYTE>;

namespace {

TEST(TextTest, ComposesNumbersAndCutsAtTheBuffersEnd)
{
    const TextView blank(TEXT(" "));
    WCHAR room[64];
    TextWriter(room, 64).Number(-2147483648LL).Text(blank).Hex(0x80090026).Text(blank).Padded(7, 2).Text(blank).Hex(0);
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
    EXPECT_FALSE(TextEqualNoCase(TEXT("SHA255"), TEXT("SHA256")));
    EXPECT_TRUE(TextEqualNoCase(TextView(TEXT("ab"), 1), TextView(TEXT("AC"), 1)));
    EXPECT_TRUE(TextContains(TEXT("ECDH_P384"), TEXT("384")));
    EXPECT_FALSE(TextContains(nullptr, TEXT("384")));
    WCHAR room[4];
    EXPECT_TRUE(TextCopy(room, 4, TEXT("abc")));
    EXPECT_FALSE(TextCopy(room, 4, TEXT("abcd")));
    EXPECT_EQ(0, room[0]);
}

// A 32-bit process would truncate the size to 16 bytes.
TEST(HeapTest, ABlockThatCannotBeAddressedIsRefused)
{
    EXPECT_EQ(nullptr, HeapAllocSized(0, uint64_t{1} << 62 | 16));
}

// Without memory the platform can't format the text, so the module does.
TEST(RandomUuidTest, IsOfVersion4AndNewEachTime)
{
    std::set<std::string> seen;
    for (const size_t failAt : {SIZE_MAX, SIZE_MAX, size_t{0}, size_t{0}}) {
        WCHAR text[kUuidTextChars];
        {
            const AllocFault fault(failAt);
            NewUuidText(text);
        }
        std::string form = Narrow(text);
        EXPECT_TRUE(seen.insert(form).second && form[14] == '4' && strchr("89ab", form[19])) << form;
        std::replace_if(form.begin(), form.end(), isxdigit, 'x');
        EXPECT_EQ("xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", form);
    }
}

TEST(ClockTest, ReadsTheTimeAndSleeps)
{
    const uint64_t before = ClockTickMs();
    ClockSleep(20);
    EXPECT_LT(before, ClockTickMs());
    EXPECT_LT(std::abs(int64_t{time(nullptr)} - ClockUnixTime()), 60);
}

// What must hold after every operation. capacity: in bytes.
void ExpectWhole(const BldStr* str, const std::string& text, DWORD capacity)
{
    ASSERT_NE(nullptr, str->cStr);
    EXPECT_EQ(text, Narrow(str->cStr));
    EXPECT_EQ(Wide(text).size(), str->length);
    EXPECT_EQ(capacity, str->capacity);
}

TEST(BldStrTest, GrowsToTheExactSizeAndOnlyWhenItMust)
{
    // A secret is moved in another way.
    for (const bool secret : {false, true}) {
        const BldStrPtr str(BldStrNew(4));
        if (secret)
            BldStrMarkSecret(str.get());
        ExpectWhole(str.get(), "", 10);
        EXPECT_EQ(1, BldStrCat(str.get(), TEXT("abcd")));
        ExpectWhole(str.get(), "abcd", 10);
        EXPECT_EQ(1, BldStrCat(str.get(), TEXT("efg")));
        EXPECT_EQ(1, BldStrCat(str.get(), TEXT("")));
        ExpectWhole(str.get(), "abcdefg", 16);
        EXPECT_EQ(1, BldStrReplace(str.get(), TEXT("xy")));
        ExpectWhole(str.get(), "xy", 16);
        EXPECT_EQ(1, BldStrReplace(str.get(), TEXT("1234567890")));
        ExpectWhole(str.get(), "1234567890", 22);
        EXPECT_EQ(1, BldStrReplace(str.get(), str->cStr + 4)) << "a part of its own text";
        ExpectWhole(str.get(), "567890", 22);
        EXPECT_EQ(1, BldStrReplace(str.get(), TEXT("-a--b-c-"))) << "longer, but to a smaller block";
        BldStrRemove(str.get(), '-');
        BldStrRemove(str.get(), 'x');
        ExpectWhole(str.get(), "abc", 18);
    }
    ExpectWhole(BldStrPtr(BldStrNewStr(TEXT(""))).get(), "", 2);
    ExpectWhole(BldStrPtr(BldStrNewStrFromAscii("plain text")).get(), "plain text", 22);
}

TEST(BldStrTest, NullArgumentsAreRefused)
{
    const BldStrPtr empty(BldStrNewStr(TEXT("")));
    EXPECT_EQ(0, BldStrCat(nullptr, TEXT("a")));
    EXPECT_EQ(0, BldStrCat(empty.get(), nullptr));
    EXPECT_EQ(0, BldStrReplace(empty.get(), nullptr));
    EXPECT_EQ(nullptr, BldStrNewStr(nullptr));
    EXPECT_EQ(nullptr, BldStrNewStrFromAscii(nullptr));
    BldStrRemove(nullptr, 'x');
}

std::string Encode(const Bytes& bytes)
{
    const MallocPtr<WCHAR> text(KVCKelvaro_ToBase64(bytes.data(), static_cast<DWORD>(bytes.size())));
    return text ? Narrow(text.get()) : "(none)";
}

Bytes DecodeNew(const std::string& text)
{
    BYTE* block = nullptr;
    DWORD size = 0;
    if (!KVCKelvaro_FromBase64(Wide(text).c_str(), &block, &size, 1) || !block)
        return {};
    const MallocPtr<BYTE> owner(block);
    EXPECT_TRUE(block[size] == 0 && block[size + 1] == 0) << "two zero bytes follow the data";
    return Bytes(block, block + size);
}

TEST(Base64Test, BothAlphabets)
{
    for (size_t size = 1; size < 80; size++) {
        Bytes bytes(size);
        for (size_t i = 0; i < size; i++)
            bytes[i] = static_cast<BYTE>(i * 7 + 249);
        EXPECT_EQ(Base64(bytes), Encode(bytes));
        for (const std::string& text : {Base64(bytes), Base64Url(bytes)}) {
            EXPECT_EQ(bytes, DecodeNew(text)) << text;
            for (const auto decode : {Kelvaro_FromBase64, BldBinFromBase64}) {
                Bytes room(size);
                DWORD cb = static_cast<DWORD>(size);
                EXPECT_NE(0, decode(Wide(text).c_str(), room.data(), &cb)) << text;
                EXPECT_EQ(bytes, room);
            }
        }
    }
    EXPECT_EQ(std::string::npos, Encode(Bytes(500, 1)).find_first_of("\r\n"));
}

TEST(Base64Test, BadInputIsRefused)
{
    const std::string longest(kBase64TextLimit, 'A');
    EXPECT_EQ(kBase64TextLimit / 4 * 3, DecodeNew(longest).size());
    EXPECT_TRUE(DecodeNew(longest + "A").empty());
    Bytes room(4096);
    DWORD cb = 4096;
    EXPECT_EQ(0, Kelvaro_FromBase64(Wide(longest + "AAAA").c_str(), room.data(), &cb));
    // The thumbprint decoder has no limit.
    cb = 4096;
    EXPECT_NE(0, BldBinFromBase64(Wide(longest + "AAAA").c_str(), room.data(), &cb));
    EXPECT_EQ((kBase64TextLimit + 4) / 4 * 3, cb);
    EXPECT_EQ(0, Kelvaro_FromBase64(TEXT("*no*"), room.data(), &cb));
    BYTE* out = nullptr;
    EXPECT_EQ(0, KVCKelvaro_FromBase64(TEXT("*no*"), &out, &cb, 1));
    EXPECT_EQ(nullptr, out);
}

TEST(TextTest, WithoutMemoryATextStaysWhole)
{
    BldStr* hollow = nullptr;
    {
        const AllocFault fault(1, true);
        hollow = BldStrNew(100);
    }
    ASSERT_NE(nullptr, hollow);
    EXPECT_EQ(0, BldStrCat(hollow, TEXT("a")));
    BldStrRemove(hollow, 'x');
    BldStrFree(hollow);

    const BldStrPtr str(BldStrNewStr(TEXT("kept")));
    BYTE* out = nullptr;
    BYTE room[3];
    DWORD cb = sizeof(room);
    {
        const AllocFault fault(0, true);
        EXPECT_EQ(0, BldStrCat(str.get(), TEXT(" and more")));
        EXPECT_EQ(0, BldStrReplace(str.get(), TEXT("a longer text")));
        EXPECT_EQ(nullptr, BldStrNewStrFromAscii("some text"));
        EXPECT_EQ(nullptr, KVCKelvaro_ToBase64(reinterpret_cast<const BYTE*>("abc"), 3));
        EXPECT_EQ(0, KVCKelvaro_FromBase64(TEXT("AQID"), &out, &cb, 1));
        EXPECT_EQ(0, BldBinFromBase64(TEXT("AQID"), room, &cb));
    }
    ExpectWhole(str.get(), "kept", 10);
}

}  // namespace
