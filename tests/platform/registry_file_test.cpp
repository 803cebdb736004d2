#include "platform/linux/registry_file.h"

#include <gtest/gtest.h>

#include "platform/linux/text.h"
#include "platform/linux/win_registry.h"

namespace {

constexpr char16_t kRoot[] = u"HKEY_LOCAL_MACHINE";
const std::string kHead = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\K]\n";

bool IsGood(const std::string& content)
{
    RegistryHive hive;
    return ParseRegistryFile(content, kRoot, &hive);
}

// "type: bytes in hexadecimal" of the value x that a line makes, or "damaged".
std::string ValueOf(const std::string& lines)
{
    RegistryHive hive;
    if (!ParseRegistryFile(kHead + lines, kRoot, &hive))
        return "damaged";
    const RegistryKey* key = hive.FindKey(u"software\\k");
    const RegistryValue* value = key == nullptr ? nullptr : key->FindValue(u"X");
    if (value == nullptr)
        return "missing";
    std::string text = std::to_string(value->type) + ":";
    for (const BYTE byte : value->data) {
        char digits[4];
        snprintf(digits, sizeof digits, " %02x", byte);
        text += digits;
    }
    return text;
}

std::string Rewritten(const std::string& content)
{
    RegistryHive hive;
    EXPECT_TRUE(ParseRegistryFile(content, kRoot, &hive)) << content;
    return FormatRegistryFile(hive, kRoot);
}

std::string AsUtf16(const std::string& content, const std::string& mark)
{
    std::string bytes = mark;
    for (const char16_t unit : ToUtf16(content)) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

}  // namespace

TEST(RegistryFile, ValuesOfAllForms)
{
    const struct {
        const char* lines;
        const char* expected;
    } rows[] = {
        {R"("x"="aB")", "1: 61 00 42 00 00 00"},
        {R"("x"="")", "1: 00 00"},
        {R"("x"="\\ \" ;=]")", "1: 5c 00 20 00 22 00 20 00 3b 00 3d 00 5d 00 00 00"},
        {"\"x\"=\"\xE2\x82\xAC\"", "1: ac 20 00 00"},
        {R"("x"=dword:0000000a)", "4: 0a 00 00 00"},
        {R"("x"=DWORD:FFfffffe)", "4: fe ff ff ff"},
        {R"("x"=hex:)", "3:"},
        {R"("x"=hex:01,aF)", "3: 01 af"},
        {"\"x\"=hex:01,\\\n  02,\\\r\n  03", "3: 01 02 03"},
        {R"("x"=hex(2):25,00,00,00)", "2: 25 00 00 00"},
        {R"("x"=hex(7):00,00)", "7: 00 00"},
        {R"("x"=hex(80000001):00)", "2147483649: 00"},
        {"  \"x\" = \"a\" ; a note", "1: 61 00 00 00"},
        {"\"x\"=dword:1\n\"X\"=dword:2", "4: 02 00 00 00"},
        {"; \"x\"=dword:1", "missing"},
        {"[HKEY_LOCAL_MACHINE\\Software\\other]\n\"x\"=\"a\"", "missing"},
        {"[hkey_local_machine\\software\\k]\n\"x\"=dword:3", "4: 03 00 00 00"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ValueOf(row.lines), row.expected) << row.lines;
}

TEST(RegistryFile, DamageIsNotGuessedAt)
{
    const char* rows[] = {
        "\"x\"=\"a",
        "\"x=\"a\"",
        "\"x\"",
        "\"x\"=",
        "\"x\"=a",
        "\"x\"=\"C:\\logs\"",
        "\"x\"=\"a\"b",
        "\"x\"=dword:",
        "\"x\"=dword:123456789",
        "\"x\"=dword:0g",
        "\"x\"=hex:1",
        "\"x\"=hex:01,",
        "\"x\"=hex:01 02",
        "\"x\"=hex:01,\\",
        "\"x\"=hex(:01",
        "\"x\"=hex():01",
        "\"x\"=-",
        "[-HKEY_LOCAL_MACHINE\\Software\\other]",
        "[HKEY_CURRENT_USER\\Software\\K]",
        "[HKEY_LOCAL_MACHINES\\K]",
        "[HKEY_LOCAL_MACHINE\\]",
        "[HKEY_LOCAL_MACHINE\\a",
        "text",
        "\"x\"=\"\x01\"",
        "\"x\"=\"\xFF\"",
    };
    for (const char* row : rows)
        EXPECT_EQ(ValueOf(row), "damaged") << row;
    EXPECT_FALSE(IsGood(""));
    EXPECT_FALSE(IsGood("REGEDIT4\n"));
    EXPECT_FALSE(IsGood("Windows Registry Editor Version 5.00\n\"x\"=\"a\"\n")) << "a value outside a key";
    EXPECT_FALSE(IsGood(kHead + std::string("\"x\"=\"\0\"", 7)));
}

TEST(RegistryFile, EncodingsAndLineEnds)
{
    const std::string unix = kHead + "\"x\"=\"\xE2\x82\xAC\"\n";
    std::string windows;
    for (const char c : unix)
        windows += c == '\n' ? "\r\n" : std::string(1, c);
    const std::string expected = Rewritten(unix);
    EXPECT_EQ(Rewritten(windows), expected);
    EXPECT_EQ(Rewritten("\xEF\xBB\xBF" + windows), expected);
    EXPECT_EQ(Rewritten(AsUtf16(windows, "\xFF\xFE")), expected);
    EXPECT_EQ(Rewritten(unix.substr(0, unix.size() - 1)), expected) << "the last line end may be missing";
    EXPECT_FALSE(IsGood(AsUtf16(windows, ""))) << "UTF-16 without its mark";
    EXPECT_FALSE(IsGood(AsUtf16(windows, "\xFF\xFE") + "a"));
}

TEST(RegistryFile, WrittenAsTheEditorWritesItAndReadBackTheSame)
{
    const std::string content =
        "Windows Registry Editor Version 5.00\n"
        "\n"
        "; who keeps this file\n"
        "[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n"
        "\"KeyVault\"=\"%G\"\n"
        "; ten is everything\n"
        "\"LoggingLevel\"=dword:0000000a\n"
        "\"LogfilePath\"=\"C:\\\\logs \\\"a\\\"\"\n"
        "@=hex:01,02\n"
        "\"many\"=hex(7):00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,\\\n"
        "  15,16,17,18,19,1a,1b,1c,1d,1e,1f\n"
        "\"tab\"=hex(1):09,00,00,00\n"
        "\"cut\"=hex(1):61\n"
        "\"unterminated\"=hex(1):61,00\n"
        "\"two texts\"=hex(1):61,00,00,00,62,00,00,00\n"
        "\"short\"=hex(4):01\n"
        "\n"
        "[HKEY_LOCAL_MACHINE]\n"
        "\n"
        "; the end\n";
    EXPECT_EQ(Rewritten(content), content);
}
