#include "support/base64.h"

#include <gtest/gtest.h>

#include "support/guards.h"
#include "support/log.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/test_root.h"

using Bytes = std::vector<BYTE>;

static Bytes Counting(size_t size)
{
    Bytes bytes(size);
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<BYTE>(i * 7 + 249);
    return bytes;
}

static std::string Encode(const Bytes& bytes)
{
    const MallocPtr<WCHAR> text(KVCKelvaro_ToBase64(bytes.data(), static_cast<DWORD>(bytes.size())));
    return text ? Narrow(text.get()) : "(none)";
}

// The same text as the services write it: other alphabet, no fill.
static std::string UrlForm(std::string text)
{
    while (!text.empty() && text.back() == '=')
        text.pop_back();
    for (char& ch : text)
        ch = ch == '+' ? '-' : ch == '/' ? '_' : ch;
    return text;
}

static Bytes DecodeNew(const std::string& text)
{
    BYTE* block = nullptr;
    DWORD size = 0;
    if (!KVCKelvaro_FromBase64(Wide(text).c_str(), &block, &size, 1) || !block)
        return {};
    const MallocPtr<BYTE> owner(block);
    EXPECT_EQ(0, block[size]) << "two zero bytes stand behind the data";
    EXPECT_EQ(0, block[size + 1]);
    return Bytes(block, block + size);
}

TEST(Base64Test, EncodesWithFillAndWithoutLineEnds)
{
    EXPECT_EQ("/w==", Encode({0xFF}));
    EXPECT_EQ("/+8=", Encode({0xFF, 0xEF}));
    EXPECT_EQ("++++", Encode({0xFB, 0xEF, 0xBE}));
    EXPECT_EQ(std::string::npos, Encode(Counting(500)).find_first_of("\r\n"));
}

TEST(Base64Test, AllDecodersTakeBothAlphabets)
{
    for (size_t size = 1; size < 80; size++) {
        const Bytes bytes = Counting(size);
        const std::string standard = Encode(bytes);
        for (const std::string& text : {standard, UrlForm(standard)}) {
            EXPECT_EQ(bytes, DecodeNew(text)) << text;
            Bytes room(size);
            DWORD cb = static_cast<DWORD>(size);
            EXPECT_NE(0, Kelvaro_FromBase64(Wide(text).c_str(), room.data(), &cb)) << text;
            EXPECT_EQ(bytes, room);
            room.assign(size, 0);
            cb = static_cast<DWORD>(size);
            EXPECT_NE(0, BldBinFromBase64(Wide(text).c_str(), room.data(), &cb)) << text;
            EXPECT_EQ(bytes, room);
        }
    }
}

TEST(Base64Test, TheThreeWaysOfCallingTheGeneralDecoder)
{
    const TextString text = Wide("AQIDBA");
    BYTE* out = nullptr;
    DWORD size = 0;
    EXPECT_EQ(1, KVCKelvaro_FromBase64(text.c_str(), &out, &size, 0));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(nullptr, out);

    BYTE room[4] = {9, 9, 9, 9};
    out = room;
    size = 3;
    EXPECT_EQ(0, KVCKelvaro_FromBase64(text.c_str(), &out, &size, 0));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(9, room[0]) << "nothing is written into a buffer that is too small";
    EXPECT_EQ(1, KVCKelvaro_FromBase64(text.c_str(), &out, &size, 1));
    EXPECT_EQ(4, room[3]);
}

TEST(Base64Test, TheBoundOfTheLocalCopyIsARefusal)
{
    const std::string longest(kBase64TextLimit, 'A');
    EXPECT_EQ(kBase64TextLimit / 4 * 3, DecodeNew(longest).size());
    EXPECT_TRUE(DecodeNew(longest + "A").empty());
    Bytes room(4096);
    DWORD cb = 4096;
    EXPECT_EQ(0, Kelvaro_FromBase64(Wide(longest + "AAAA").c_str(), room.data(), &cb));
    // The decoder of thumbprints has no bound.
    cb = 4096;
    EXPECT_NE(0, BldBinFromBase64(Wide(longest + "AAAA").c_str(), room.data(), &cb));
    EXPECT_EQ((kBase64TextLimit + 4) / 4 * 3, cb);
}

TEST(Base64Test, FailuresAreLoggedAtTheDecodersOwnLevels)
{
    TestRoot root;
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    LogAttach();
    BYTE room[8];
    DWORD cb = sizeof(room);
    EXPECT_EQ(0, Kelvaro_FromBase64(TEXT("*no*"), room, &cb));
    BYTE* out = nullptr;
    EXPECT_EQ(0, KVCKelvaro_FromBase64(TEXT("*no*"), &out, &cb, 1));
    EXPECT_EQ(nullptr, out);
    LogLevel = 0;
    EXPECT_TRUE(root.Logged("Kelvaro_FromBase64 CryptStringToBinary Failed", 1));
    EXPECT_TRUE(root.Logged("KVCKelvaro_FromBase64 CryptStringToBinaryW 1 Failed", 10));
}

TEST(Base64Test, WithoutMemoryTheDecodersFailCleanly)
{
    BYTE* out = nullptr;
    DWORD cb = 0;
    {
        const AllocFault fault(0, true);
        EXPECT_EQ(0, KVCKelvaro_FromBase64(TEXT("AQID"), &out, &cb, 1));
        EXPECT_EQ(nullptr, KVCKelvaro_ToBase64(reinterpret_cast<const BYTE*>("abc"), 3));
    }
    const AllocFault fault(1, true);
    EXPECT_EQ(1, KVCKelvaro_FromBase64(TEXT("AQID"), &out, &cb, 1)) << "the block of the answer alone cannot be had";
    EXPECT_EQ(nullptr, out);
}
