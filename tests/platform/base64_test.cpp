#include <gtest/gtest.h>

#include "tests/platform/platform_root.h"

namespace {

constexpr DWORD kOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;

std::string LastErrorText()
{
    return "error " + std::to_string(GetLastError());
}

// The text or "error N"; a buffer that is one too small is refused on the way.
std::string Encoded(const std::string& bytes, DWORD flags)
{
    const auto encode = [&](WCHAR* text, DWORD* size) {
        return CryptBinaryToStringW(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()),
                                    flags, text, size);
    };
    DWORD needed = 0;
    if (!encode(nullptr, &needed))
        return LastErrorText();
    std::u16string text(needed, u'?');
    DWORD size = needed - 1;
    EXPECT_EQ(ErrorOf(encode(text.data(), &size)), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, needed);
    EXPECT_EQ(text, std::u16string(needed, u'?'));
    EXPECT_TRUE(encode(text.data(), &size));
    EXPECT_EQ(size + 1, needed);
    EXPECT_EQ(text.back(), 0);
    return ToUtf8(text.substr(0, size));
}

// The same the other way round; `count` 0 for a text up to its terminator.
std::string Decoded(const std::string& text, DWORD flags, DWORD count = 0)
{
    const auto decode = [&, wide = ToUtf16(text)](std::string* bytes, DWORD* size) {
        return CryptStringToBinaryW(wide.c_str(), count, flags,
                                    bytes == nullptr ? nullptr : reinterpret_cast<BYTE*>(bytes->data()), size, nullptr,
                                    nullptr);
    };
    DWORD needed = 0;
    if (!decode(nullptr, &needed))
        return LastErrorText();
    std::string bytes(needed, '?');
    DWORD size = needed == 0 ? 0 : needed - 1;
    EXPECT_EQ(decode(&bytes, &size), needed == 0);
    EXPECT_EQ(bytes, std::string(needed, '?'));
    EXPECT_EQ(size, needed);
    EXPECT_TRUE(decode(&bytes, &size));
    EXPECT_EQ(size, needed);
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
        EXPECT_EQ(Encoded("a", flags), "error 87");
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
    const std::string armoured = "note\n-----BEGIN CERTIFICATE-----\nYWJj\n-----END CERTIFICATE-----\n";
    EXPECT_EQ(Decoded(armoured, CRYPT_STRING_BASE64_ANY), "abc");
    EXPECT_EQ(Decoded(armoured, CRYPT_STRING_BASE64), refused);
    EXPECT_EQ(Decoded("-----BEGIN X-----\nYWJj\n", CRYPT_STRING_BASE64_ANY), refused);
    EXPECT_EQ(Decoded("YWJj", 0), "error 87");
    EXPECT_EQ(Decoded("YWJj!!", CRYPT_STRING_BASE64_ANY, 4), "abc") << "a counted text";
}
