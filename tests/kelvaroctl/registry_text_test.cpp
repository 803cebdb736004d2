// The registry editor's text: what its values mean, and which line is wrong.
#include "platform/registry_text.h"

#include <gtest/gtest.h>

#include "kelvaroctl/text.h"

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
    const std::pair<const char*, const char*> rows[] = {
        {R"("x"=dword:0000000a)", "x 4:0a000000"},
        {R"("x"=DWORD:FFfffffe)", "x 4:feffffff"},
        {R"("x"="aB")", "x 1:610042000000"},
        {R"("x"="")", "x 1:0000"},
        {R"("x"="\\ \" ;=]")",
         "x 1:5c00200022002000"
         "3b003d005d000000"},
        {R"("KeyVault"="b" ; our vault)", "KeyVault 1:62000000"},
        {"  \"x\" = \"a\"\t;a note", "x 1:61000000"},
        {R"("q\"=\\"="x")", "q\"=\\ 1:78000000"},
        {"\"x\"=\"\xC3\xA9\xF0\x9F\x94\x91\"", "x 1:e9003dd811dd0000"},
        {R"(@="a")", " 1:61000000"},
        {R"("x"=-)", "x removed:"},
        {R"("x"=hex:)", "x 3:"},
        {R"("x"=hex:01,aF)", "x 3:01af"},
        {"\"x\"=hex:01,\\\n  02,\\\r\n  03 ; a note", "x 3:010203"},
        {"  \"x\"=hex(2):25,\\\r\n  00,00,\\\r\n  00  ", "x 2:25000000"},
        {R"("x"=hex(80000001):00)", "x 2147483649:00"},
        {"\"x\"=dword:1\n; \"y\"=dword:3\n[other] ; a key\n\"X\"=dword:2", "x 4:01000000; X 4:02000000"}};
    for (const auto& [lines, values] : rows) {
        const RegistryText text = Parse(std::string(kHead) + "; comment\r\n" + lines);
        EXPECT_EQ(Values(text), values) << lines;
        EXPECT_EQ(ToNarrow(text.keys[0].path), "HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro");
        EXPECT_EQ(text.keys[0].values[0].line, 5u) << lines;
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
    const struct {
        const char* content;  // without kHead when it begins with '='
        size_t line;
        const char* problem;
    } rows[] = {{"=", 1, "not an export"},
                {"=REGEDIT4\n", 1, "not an export"},
                {"=Windows Registry Editor Version 5.00\n\"a\"=\"b\"\n", 2, "before the first key"},
                {"[HKEY_LOCAL_MACHINE", 4, "in brackets"},
                {"[]", 4, "in brackets"},
                {"[a\\]", 4, "in brackets"},
                {"[a\x01]", 4, "control"},
                {"[a]b", 4, "something follows"},
                {"a=\"x\"", 4, "neither"},
                {"\"a", 4, "closing quote"},
                {"\"a\"", 4, "followed by ="},
                {"\"a\"=", 4, "the data must be"},
                {"\"a\"=b", 4, "the data must be"},
                {"\"a\"=\"b\n\"", 4, "closing quote"},
                {"\"a\"=\"b\\", 4, "backslash"},
                {"\"a\"=\"C:\\logs\"", 4, "backslash"},
                {"\"a\"=\"b\x01\"", 4, "control"},
                {"\"a\"=\"b\"c", 4, "something follows"},
                {"\"a\"=-1", 4, "something follows"},
                {"\"a\"=dword:", 4, "dword:"},
                {"\"a\"=dword:000000001", 4, "dword:"},
                {"\"a\"=dword:00 1", 4, "something follows"},
                {"\"a\"=dword:0g", 4, "something follows"},
                {"\"a\"=hex(2:00", 4, "hex("},
                {"\"a\"=hex():00", 4, "hex("},
                {"\"a\"=hex00", 4, "colon"},
                {"\"a\"=hex:00,\\\n0", 4, "pairs"},
                {"\"a\"=hex:00,,00", 4, "pairs"},
                {"\"a\"=hex:00 00", 4, "pairs"},
                {"\n\"a\"=hex:00,", 5, "break off"},
                {"\n\"a\"=hex:00,\\", 5, "break off"},
                {"\"a\"=\"\xC3(\"", 0, "UTF-8"},
                {"=\xFF\xFEW", 0, "UTF-16"},
                {"=\xFF\xFEW\xD8W\xD8", 0, "UTF-16"}};
    for (const auto& row : rows) {
        const std::string content = row.content[0] == '=' ? row.content + 1 : std::string(kHead) + row.content;
        RegistryText text;
        RegistryTextProblem problem;
        ASSERT_FALSE(ParseRegistryText(content, &text, &problem)) << row.content;
        EXPECT_EQ(problem.line, row.line) << row.content;
        EXPECT_NE(std::string(problem.what).find(row.problem), std::string::npos) << row.content << problem.what;
    }
    RegistryText text;
    RegistryTextProblem problem;
    EXPECT_FALSE(ParseRegistryText(kHead + std::string("\"x\"=\"\0\"", 7), &text, &problem)) << "a zero byte";
}

}  // namespace
