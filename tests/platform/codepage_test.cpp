#include <gtest/gtest.h>

#include <string>

#include "tests/platform/platform_root.h"

namespace {

std::u16string Widened(const std::string& bytes, DWORD flags = 0)
{
    const int length = static_cast<int>(bytes.size());
    const int size = MultiByteToWideChar(CP_ACP, flags, bytes.data(), length, nullptr, 0);
    std::u16string text(static_cast<size_t>(size), u'?');
    if (size > 0) {
        EXPECT_EQ(MultiByteToWideChar(CP_ACP, flags, bytes.data(), length, text.data(), size), size);
    }
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

}  // namespace

TEST(CodePage, TextOfAllLengthsGoesBothWays)
{
    const struct {
        const char* bytes;
        const char16_t* text;
    } rows[] = {{"plain", u"plain"},
                {"\xC3\xA4\xDF\xBF", u"\u00E4\u07FF"},
                {"\xE2\x82\xAC\xEF\xBF\xBD", u"\u20AC\uFFFD"},
                {"\xF0\x9F\x94\x91\xF4\x8F\xBF\xBF", u"\U0001F511\U0010FFFF"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Widened(row.bytes), row.text);
        EXPECT_EQ(Widened(row.bytes, MB_ERR_INVALID_CHARS), row.text);
        EXPECT_EQ(Narrowed(row.text), row.bytes);
    }
}

TEST(CodePage, BrokenSequencesBecomeOneReplacementForEachPart)
{
    const struct {
        const char* name;
        std::string bytes;
        const char16_t* text;
    } rows[] = {{"a stray tail", "a\x80z", u"a\uFFFDz"},
                {"cut behind the first byte", "\xC3(", u"\uFFFD("},
                {"cut at the end", "\xE2\x82", u"\uFFFD"},
                {"an over-long form", "\xC0\xAF", u"\uFFFD\uFFFD"},
                {"an over-long form of three", "\xE0\x80\x80", u"\uFFFD\uFFFD\uFFFD"},
                {"a surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
                {"above the last", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
                {"two cut ones", "\xF0\x9F\x94\xF0\x9F\x94", u"\uFFFD\uFFFD"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Widened(row.bytes), row.text) << row.name;
        EXPECT_EQ(Widened(row.bytes, MB_ERR_INVALID_CHARS), u"") << row.name;
        EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_UNICODE_TRANSLATION}) << row.name;
    }
    const char16_t lone[] = {u'a', 0xD83D, u'b', 0xDD11, 0};
    EXPECT_EQ(Narrowed(lone),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD");
}

TEST(CodePage, SizesCountTheTerminatorWhenTheSourceHasOne)
{
    WCHAR wide[4] = {u'?', u'?', u'?', u'?'};
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0), 4);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 4), 4);
    EXPECT_EQ(wide[3], 0);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", 3, nullptr, 0), 3);
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(CP_ACP, 0, "abc", -1, wide, 3) != 0), DWORD{ERROR_INSUFFICIENT_BUFFER});

    char narrow[3];
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u20AC", -1, nullptr, 0, nullptr, nullptr), 4);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u20AC", 1, narrow, 3, nullptr, nullptr), 3);
    EXPECT_EQ(ErrorOf(WideCharToMultiByte(CP_ACP, 0, u"\u20AC", -1, narrow, 3, nullptr, nullptr) != 0),
              DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(CodePage, BadArgumentsAreRefused)
{
    WCHAR wide[4];
    char narrow[4];
    BOOL used = FALSE;
    const DWORD parameter = ERROR_INVALID_PARAMETER;
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(CP_ACP, 0, nullptr, 1, wide, 4) != 0), parameter) << "no source";
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(CP_ACP, 0, "a", 0, wide, 4) != 0), parameter);
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(CP_ACP, 0, "a", -2, wide, 4) != 0), parameter);
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(CP_ACP, 0, "a", 1, nullptr, 4) != 0), parameter) << "a size without a buffer";
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(1252, 0, "a", 1, wide, 4) != 0), parameter);
    EXPECT_EQ(ErrorOf(MultiByteToWideChar(CP_ACP, 0x10, "a", 1, wide, 4) != 0), DWORD{ERROR_INVALID_FLAGS});
    EXPECT_EQ(ErrorOf(WideCharToMultiByte(CP_ACP, 0x80, u"a", 1, narrow, 4, nullptr, nullptr) != 0),
              DWORD{ERROR_INVALID_FLAGS});
    EXPECT_EQ(ErrorOf(WideCharToMultiByte(CP_ACP, 0, u"a", 1, narrow, 4, "?", nullptr) != 0), parameter);
    EXPECT_EQ(ErrorOf(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, narrow, 4, nullptr, &used) != 0), parameter);
}
