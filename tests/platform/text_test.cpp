// Code pages and Base64.
#include "tests/common/row.h"
#include "tests/platform/platform_root.h"

namespace {

std::u16string Widened(const std::string& bytes, DWORD flags = 0)
{
    const int length = static_cast<int>(bytes.size());
    std::u16string text(static_cast<size_t>(MultiByteToWideChar(CP_ACP, flags, bytes.data(), length, nullptr, 0)),
                        u'?');
    const int size = static_cast<int>(text.size());
    EXPECT_EQ(size == 0 ? 0 : MultiByteToWideChar(CP_ACP, flags, bytes.data(), length, text.data(), size), size);
    return text;
}

std::string Narrowed(const std::u16string& text)
{
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<size_t>(size), '?');
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, text.data(), length, bytes.data(), size, nullptr, nullptr), size);
    return bytes;
}

std::string Decoded(const std::string& text, DWORD flags)
{
    std::string bytes;
    const DWORD error = ReadInTwoCalls(&bytes, ERROR_MORE_DATA, [&](char* out, DWORD* size) {
        return CryptStringToBinaryW(ToUtf16(text).c_str(), 0, flags, reinterpret_cast<BYTE*>(out), size, nullptr,
                                    nullptr);
    });
    return error == 0 ? bytes : ErrorText();
}

}  // namespace

TEST(CodePage, BrokenSequencesBecomeOneReplacementForEachPart)
{
    const Row<const char*, const char16_t*, bool> rows[] = {
        {"plain", u"plain"},
        {"\xC3\xA4\xDF\xBF\xE0\xA0\x80", u"\u00E4\u07FF\u0800"},
        {"\xE2\x82\xAC\xEF\xBF\xBD", u"\u20AC\uFFFD"},
        {"\xF0\x9F\x94\x91\xF4\x8F\xBF\xBF", u"\U0001F511\U0010FFFF"},
        {"a\x80z", u"a\uFFFDz", true},
        {"\xC3(", u"\uFFFD(", true},
        {"\xE2\x82", u"\uFFFD", true},
        {"\xC0\xAF", u"\uFFFD\uFFFD", true},                      // over-long
        {"\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD", true},            // over-long
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", true},            // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD", true},  // above the last
        {"\xF0\x9F\x94\xF0\x9F\x94", u"\uFFFD\uFFFD", true}};
    for (const auto& [bytes, text, broken] : rows) {
        EXPECT_EQ(Widened(bytes), text);
        SetLastError(0);
        EXPECT_EQ(Widened(bytes, MB_ERR_INVALID_CHARS), broken ? u"" : text);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(broken ? ERROR_NO_UNICODE_TRANSLATION : 0)) << bytes;
        if (!broken) {
            EXPECT_EQ(Narrowed(text), bytes);
        }
    }
    const char16_t lone[] = {u'a', 0xD83D, u'b', 0xDD11, 0};
    EXPECT_EQ(Narrowed(lone),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
}

TEST(Base64, ReadsWhatWindowsReadsAndRefusesTheRest)
{
    const std::string refused = "error D";
    const std::string armoured = "note\n-----BEGIN CERTIFICATE-----\nYWJj\n-----END CERTIFICATE-----\n";
    const Row<std::string, std::string> rows[] = {
        {" Y\tW\r\nJj \n", "abc"}, {"YQ= =\r\n", "a"}, {"", ""},          {"YQ", refused},   {"YWJjZ", refused},
        {"YQ==YQ==", refused},     {"Y===", refused},  {"====", refused}, {"-_-_", refused}, {"YW*j", refused},
        {"YWJ\xC3\xA4", refused},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(Decoded(text, CRYPT_STRING_BASE64), expected) << text;
        EXPECT_EQ(Decoded(text, CRYPT_STRING_BASE64_ANY), expected) << text;
    }
    EXPECT_EQ(Decoded(armoured, CRYPT_STRING_BASE64_ANY), "abc");
    EXPECT_EQ(Decoded(armoured, CRYPT_STRING_BASE64), refused);
    EXPECT_EQ(Decoded("-----BEGIN X-----\nYWJj\n", CRYPT_STRING_BASE64_ANY), refused);
}
