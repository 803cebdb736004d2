#include "platform/linux/registry_file.h"

#include <gtest/gtest.h>

namespace {

constexpr char16_t kRoot[] = u"HKEY_LOCAL_MACHINE";
const std::string kHead = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\K]\n";

std::string Rewritten(const std::string& content)
{
    RegistryHive hive;
    EXPECT_TRUE(ParseRegistryFile(content, kRoot, &hive)) << content;
    return std::string(std::string_view(FormatRegistryFile(hive, kRoot)));
}

}  // namespace

TEST(RegistryFile, ATextThatAHiveCannotHoldIsDamaged)
{
    const struct {
        const char* lines;
        bool good;
    } rows[] = {
        {"", true},
        {"\"x\"=\"contoso\" ; our vault", true},
        {"[hkey_local_machine]", true},
        {"\"x\"=\"a", false},
        {"\"x\"=-", false},
        {"[-HKEY_LOCAL_MACHINE\\Software\\other]", false},
        {"[HKEY_CURRENT_USER\\Software\\K]", false},
        {"[HKEY_LOCAL_MACHINES\\K]", false},
    };
    for (const auto& row : rows) {
        RegistryHive hive;
        EXPECT_EQ(ParseRegistryFile(kHead + row.lines, kRoot, &hive), row.good) << row.lines;
    }
}

TEST(RegistryFile, KeysAndValuesAreMergedWithoutRegardToCase)
{
    EXPECT_EQ(
        Rewritten(kHead +
                  "\"\u00E4\u03C9\u044F\"=dword:1\n\"\u00C4\u03A9\u042F\"=dword:2\n\"\u00DF\"=\"\"\n\"ss\"=\"\"\n"),
        kHead + "\"\u00C4\u03A9\u042F\"=dword:00000002\n\"\u00DF\"=\"\"\n\"ss\"=\"\"\n");
    EXPECT_EQ(Rewritten(kHead + "\"x\"=dword:1\n\"X\"=dword:2\n[hkey_local_machine\\SOFTWARE\\k]\n; y\n\"y\"=\"\""),
              kHead + "\"X\"=dword:00000002\n; y\n\"y\"=\"\"\n");
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
