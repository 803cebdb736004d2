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

constexpr DWORD kOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;

std::string Encoded(const std::string& bytes, DWORD flags)
{
    std::u16string text;
    const DWORD error = ReadInTwoCalls(&text, ERROR_MORE_DATA, [&](WCHAR* out, DWORD* size) {
        return CryptBinaryToStringW(BytesOf(bytes), SizeOf(bytes), flags, out, size);
    });
    return error == 0 ? ToUtf8(text) : ErrorText();
}

// `count` 0 for a text up to its terminator.
std::string Decoded(const std::string& text, DWORD flags, DWORD count = 0)
{
    std::string bytes;
    const DWORD error = ReadInTwoCalls(&bytes, ERROR_MORE_DATA, [&](char* out, DWORD* size) {
        return CryptStringToBinaryW(ToUtf16(text).c_str(), count, flags, reinterpret_cast<BYTE*>(out), size, nullptr,
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

TEST(CodePage, SizesCountTheTerminatorWhenTheSourceHasOne)
{
    WCHAR wide[4] = {u'?', u'?', u'?', u'?'};
    char narrow[4];
    const auto result = [](int count) { return count != 0 ? count : -static_cast<int>(GetLastError()); };
    const auto widen = [&](const char* text, int length, int room) {
        return result(MultiByteToWideChar(CP_ACP, 0, text, length, room == 0 ? nullptr : wide, room));
    };
    const auto narrowed = [&](int length, int room) {
        return result(
            WideCharToMultiByte(CP_ACP, 0, u"\u20AC", length, room == 0 ? nullptr : narrow, room, nullptr, nullptr));
    };
    EXPECT_EQ(widen("abc", -1, 0), 4);
    EXPECT_EQ(widen("abc", -1, 4), 4);
    EXPECT_EQ(wide[3], 0);
    EXPECT_EQ(widen("abc", 3, 0), 3);
    EXPECT_EQ(widen("abc", -1, 3), -ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(widen("a", 0, 4), -ERROR_INVALID_PARAMETER);
    EXPECT_EQ(narrowed(-1, 0), 4);
    EXPECT_EQ(narrowed(1, 3), 3);
    EXPECT_EQ(narrowed(-1, 3), -ERROR_INSUFFICIENT_BUFFER);
}

TEST(Base64, TextIsOneLine)
{
    const std::string line(48, 'a');
    const std::string text = Encoded(line, kOneLine);
    EXPECT_EQ(text, "YWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFhYWFh");
    EXPECT_EQ(Encoded("", kOneLine), "");
    EXPECT_EQ(Encoded(line + "a", kOneLine | CRYPT_STRING_NOCR), text + "YQ==");
    EXPECT_EQ(Encoded(line + "\xFB\xFF", kOneLine), text + "+/8=");
    for (const DWORD flags : {CRYPT_STRING_BASE64, DWORD{CRYPT_STRING_NOCRLF}, kOneLine | 4})
        EXPECT_EQ(Encoded("a", flags), "error 57");

    // More characters than a DWORD can count; only the size is asked for.
    DWORD size = 0;
    EXPECT_TRUE(CryptBinaryToStringW(BytesOf(text), 3221225469, kOneLine, nullptr, &size));
    EXPECT_EQ(size, 4294967293u);
    EXPECT_EQ(ErrorOf(CryptBinaryToStringW(BytesOf(text), 3221225470, kOneLine, nullptr, &size)),
              DWORD{ERROR_INVALID_PARAMETER});
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
    EXPECT_EQ(Decoded("YWJj", 0), "error 57");
    EXPECT_EQ(Decoded("YWJj!!", CRYPT_STRING_BASE64_ANY, 4), "abc") << "a counted text";
}
