#include <gtest/gtest.h>

#include <vector>

#include "tests/platform/platform_root.h"

namespace {

constexpr DWORD kOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;

std::string Encoded(const std::string& bytes, DWORD flags)
{
    const BYTE* data = reinterpret_cast<const BYTE*>(bytes.data());
    const DWORD count = static_cast<DWORD>(bytes.size());
    DWORD needed = 0;
    EXPECT_TRUE(CryptBinaryToStringW(data, count, flags, nullptr, &needed));
    std::u16string text(needed, u'?');
    DWORD length = needed;
    EXPECT_TRUE(CryptBinaryToStringW(data, count, flags, text.data(), &length));
    EXPECT_EQ(length + 1, needed);
    EXPECT_EQ(text[length], 0);
    return ToUtf8(text.substr(0, length));
}

// The decoded bytes, or "error N".
std::string Decoded(const std::string& text, DWORD flags)
{
    const std::u16string wide = ToUtf16(text);
    DWORD size = 0;
    if (!CryptStringToBinaryW(wide.c_str(), 0, flags, nullptr, &size, nullptr, nullptr))
        return "error " + std::to_string(GetLastError());
    std::string bytes(size, '?');
    EXPECT_TRUE(
        CryptStringToBinaryW(wide.c_str(), 0, flags, reinterpret_cast<BYTE*>(bytes.data()), &size, nullptr, nullptr));
    EXPECT_EQ(size, bytes.size());
    return bytes;
}

}  // namespace

TEST(Base64, TextIsOneLine)
{
    std::string text;
    for (int i = 0; i < 16; i++)
        text += "YWFh";
    const std::string line(48, 'a');
    EXPECT_EQ(Encoded("", kOneLine), "");
    EXPECT_EQ(Encoded(line, kOneLine), text);
    EXPECT_EQ(Encoded(line + "a", kOneLine | CRYPT_STRING_NOCR), text + "YQ==");
    EXPECT_EQ(Encoded(line + "\xFB\xFF", kOneLine), text + "+/8=");
    DWORD size = 0;
    const BYTE* const huge = reinterpret_cast<const BYTE*>("asked for its size alone");
    EXPECT_TRUE(CryptBinaryToStringW(huge, 3221225469, kOneLine, nullptr, &size));
    EXPECT_EQ(size, 4294967293u);
    EXPECT_EQ(ErrorOf(CryptBinaryToStringW(huge, 3221225470, kOneLine, nullptr, &size)), DWORD{ERROR_INVALID_PARAMETER})
        << "more characters than a DWORD can count";
    for (const DWORD flags : {CRYPT_STRING_BASE64, DWORD{CRYPT_STRING_NOCRLF}, kOneLine | 4})
        EXPECT_EQ(ErrorOf(CryptBinaryToStringW(reinterpret_cast<const BYTE*>("a"), 1, flags, nullptr, &size)),
                  DWORD{ERROR_INVALID_PARAMETER});
}

TEST(Base64, TooSmallBuffersTellTheSizeNeeded)
{
    WCHAR text[4] = {u'?', u'?', u'?', u'?'};
    DWORD length = 4;
    EXPECT_EQ(ErrorOf(CryptBinaryToStringW(reinterpret_cast<const BYTE*>("abc"), 3, kOneLine, text, &length)),
              DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(length, 5u);
    EXPECT_EQ(text[0], u'?');

    BYTE bytes[2] = {0x11, 0x11};
    DWORD size = 2;
    EXPECT_EQ(ErrorOf(CryptStringToBinaryW(u"YWJj", 0, CRYPT_STRING_BASE64, bytes, &size, nullptr, nullptr)),
              DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(bytes[0], 0x11);
}

TEST(Base64, ReadsWhatWindowsReadsAndRefusesTheRest)
{
    const std::string refused = "error 13";
    const struct {
        const char* name;
        std::string text;
        std::string expected;
    } rows[] = {
        {"white space is skipped", " Y\tW\r\nJj \n", "abc"},
        {"padding apart", "YQ= =\r\n", "a"},
        {"no text", "", ""},
        {"padding missing", "YQ", refused},
        {"one character over", "YWJjZ", refused},
        {"padding in the middle", "YQ==YQ==", refused},
        {"three of padding", "Y===", refused},
        {"padding alone", "====", refused},
        {"the other alphabet", "-_-_", refused},
        {"a character outside", "YW*j", refused},
        {"a wide character", "YWJ\xC3\xA4", refused},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Decoded(row.text, CRYPT_STRING_BASE64), row.expected) << row.name;
        EXPECT_EQ(Decoded(row.text, CRYPT_STRING_BASE64_ANY), row.expected) << row.name;
    }
}

TEST(Base64, ArmouredTextIsFoundWhereItMayStand)
{
    const std::string text = "note\n-----BEGIN CERTIFICATE-----\nYWJj\n-----END CERTIFICATE-----\n";
    EXPECT_EQ(Decoded(text, CRYPT_STRING_BASE64_ANY), "abc");
    EXPECT_EQ(Decoded(text, CRYPT_STRING_BASE64), "error 13");
    EXPECT_EQ(Decoded(text, 0), "error 87");
    EXPECT_EQ(Decoded("-----BEGIN X-----\nYWJj\n", CRYPT_STRING_BASE64_ANY), "error 13");
    // A counted text ends where its count says.
    DWORD size = 0;
    EXPECT_TRUE(CryptStringToBinaryW(u"YWJj!!", 4, CRYPT_STRING_BASE64_ANY, nullptr, &size, nullptr, nullptr));
    EXPECT_EQ(size, 3u);
}
