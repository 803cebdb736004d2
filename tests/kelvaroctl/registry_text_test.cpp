// The registry editor's text: what its values mean, and which line is wrong.
#include "platform/registry_text.h"

#include <gtest/gtest.h>

#include "kelvaroctl/text.h"
#include "tests/common/data_rows.h"

using namespace kelvaroctl;

namespace {

constexpr char kHead[] =
    "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\r\n";

RegistryText Parse(const std::string& content)
{
    RegistryText text;
    RegistryTextProblem problem;
    EXPECT_TRUE(ParseRegistryText(content, &text, &problem))
        << content << "\nline " << problem.line << ": " << problem.what;
    return text;
}

// "NAME TYPE: bytes in hexadecimal" of each value, divided by "; ".
std::string Values(const RegistryText& text)
{
    std::string values;
    for (const RegistryTextKey& key : text.keys) {
        for (const RegistryValue& value : key.values)
            values += (values.empty() ? "" : "; ") + ToNarrow(value.name) + " " +
                      (value.removed ? "removed" : std::to_string(value.type)) + ":" +
                      HexText(Bytes(value.data.begin(), value.data.end()));
    }
    return values;
}

TEST(RegistryTextTest, ValuesOfEveryForm)
{
    for (const std::string& line : SectionLines("registry_lines.txt")) {
        const TextRow row(line);
        const RegistryText text = Parse(kHead + ("; comment\r\n" + row.text));
        EXPECT_EQ(Values(text), row.words) << line;
        EXPECT_EQ(ToNarrow(text.keys[0].path), "HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro");
        EXPECT_EQ(text.keys[0].values[0].line, 5u) << line;
        EXPECT_EQ(ToNarrow(text.keys[0].values[0].comments), "; comment\n");
    }
    EXPECT_TRUE(Parse(std::string(kHead) + "[-HKEY_CURRENT_USER\\a]").keys[1].removed);
}

TEST(RegistryTextTest, EveryEncodingReadsTheSame)
{
    const std::string unix = "Windows Registry Editor Version 5.00\n[a]\n\"x\"=\"\xE2\x82\xAC\"\n";
    std::string windows;
    for (const char c : unix)
        windows += c == '\n' ? "\r\n" : std::string(1, c);
    const WideText wide = ToWide("\xEF\xBB\xBF" + windows);
    const std::string utf16(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(WCHAR));
    for (const std::string& content : {unix, windows, unix.substr(0, unix.size() - 1), "\xEF\xBB\xBF" + windows, utf16})
        EXPECT_EQ(Values(Parse(content)), "x 1:ac200000");
}

TEST(RegistryTextTest, TheFirstWrongLineIsNamed)
{
    RegistryText text;
    for (const std::string& line : SectionLines("registry_lines.txt")) {
        const TextRow row(line);
        RegistryTextProblem problem;
        ASSERT_FALSE(ParseRegistryText(row.text[0] == '=' ? row.text.substr(1) : kHead + row.text, &text, &problem))
            << line;
        EXPECT_EQ(problem.line, std::stoul(row.words)) << line;
        EXPECT_NE(std::string(problem.what).find(row.words.substr(2)), std::string::npos) << line << problem.what;
    }
    RegistryTextProblem problem;
    EXPECT_FALSE(ParseRegistryText(kHead + std::string("\"x\"=\"\0\"", 7), &text, &problem)) << "a zero byte";
}

}  // namespace
