// The registry editor's text: what its values are worth, and which line is wrong.
#include "kelvaroctl/registry_text.h"

#include <gtest/gtest.h>

using namespace kelvaroctl;

namespace {

constexpr char kHead[] =
    "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\r\n";

RegistryText Parse(const std::string& text)
{
    return ParseRegistryText(Bytes(text.begin(), text.end()));
}

TEST(RegistryTextTest, ValuesOfEveryForm)
{
    const struct {
        const char* line;
        const char* name;
        DWORD type;
        Bytes bytes;
    } rows[] = {
        {"\"Number\"=dword:0000000a", "Number", REG_DWORD, {10, 0, 0, 0}},
        {"\"Number\"=dword:FF", "Number", REG_DWORD, {255, 0, 0, 0}},
        {"\"Text\"=\"a\\\\b\\\"c\"", "Text", REG_SZ, {'a', 0, '\\', 0, 'b', 0, '"', 0, 'c', 0, 0, 0}},
        {"\"Text\"=\"\"", "Text", REG_SZ, {0, 0}},
        {"\"q\\\"=\\\\\"=\"x\"", "q\"=\\", REG_SZ, {'x', 0, 0, 0}},
        {"\"Bytes\"=hex:", "Bytes", REG_BINARY, {}},
        {"\"Bytes\"=hex:0a,FF", "Bytes", REG_BINARY, {0x0A, 0xFF}},
        {"  \"Text\"=hex(2):61,\\\r\n  00,00,\\\r\n  00  ", "Text", REG_EXPAND_SZ, {0x61, 0, 0, 0}},
        {"\"Text\"=\"\xC3\xA9\xF0\x9F\x94\x91\"", "Text", REG_SZ, {0xE9, 0, 0x3D, 0xD8, 0x11, 0xDD, 0, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const RegistryText text = Parse(std::string(kHead) + "; comment\r\n" + row.line);
        ASSERT_EQ(1u, text.entries.size());
        EXPECT_EQ(5u, text.entries[0].line);
        EXPECT_EQ("HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro", text.entries[0].key);
        EXPECT_EQ(row.name, text.entries[0].name);
        EXPECT_FALSE(text.entries[0].remove);
        EXPECT_EQ(row.type, text.entries[0].value.type);
        EXPECT_EQ(row.bytes, text.entries[0].value.bytes);
    }
    EXPECT_TRUE(Parse(std::string(kHead) + "\"Gone\"=-").entries[0].remove);
}

TEST(RegistryTextTest, TheLineThatIsWrongIsNamed)
{
    const struct {
        const char* name;
        std::string text;
        const char* message;
    } rows[] = {
        {"empty", "", "line 1: this is no export"},
        {"old form", "REGEDIT4\n", "line 1: this is no export"},
        {"value before a key", "Windows Registry Editor Version 5.00\n\"a\"=\"b\"\n", "line 2: a value stands before"},
        {"open key", std::string(kHead) + "[HKEY_LOCAL_MACHINE", "line 4: a key must stand between"},
        {"removed key", std::string(kHead) + "[-HKEY_LOCAL_MACHINE]", "line 4: the line removes a whole key"},
        {"default value", std::string(kHead) + "@=\"x\"", "line 4: the key's default value"},
        {"bare name", std::string(kHead) + "a=\"x\"", "line 4: this is neither"},
        {"open name", std::string(kHead) + "\"a", "line 4: a quoted text is not closed"},
        {"no equals sign", std::string(kHead) + "\"a\"", "line 4: a value's name must be followed"},
        {"no data", std::string(kHead) + "\"a\"=", "line 4: the data must be"},
        {"open text", std::string(kHead) + "\"a\"=\"b\n\"", "line 4: a quoted text is not closed"},
        {"backslash at the end", std::string(kHead) + "\"a\"=\"b\\", "line 4: in a quoted text"},
        {"unknown escape", std::string(kHead) + "\"a\"=\"b\\n\"", "line 4: in a quoted text"},
        {"something behind", std::string(kHead) + "\"a\"=\"b\"c", "line 4: something follows"},
        {"empty number", std::string(kHead) + "\"a\"=dword:", "line 4: dword:"},
        {"long number", std::string(kHead) + "\"a\"=dword:000000001", "line 4: dword:"},
        {"blank in a number", std::string(kHead) + "\"a\"=dword:00 1", "line 4: dword:"},
        {"no hexadecimal digit", std::string(kHead) + "\"a\"=dword:g", "line 4: dword:"},
        {"open type", std::string(kHead) + "\"a\"=hex(2:00", "line 4: hex("},
        {"no colon", std::string(kHead) + "\"a\"=hex00", "line 4: hex must be"},
        {"half a byte", std::string(kHead) + "\"a\"=hex:00,\\\n0", "line 4: the bytes must be"},
        {"two commas", std::string(kHead) + "\"a\"=hex:00,,00", "line 4: the bytes must be"},
        {"cut bytes", std::string(kHead) + "\n\"a\"=hex:00,\\", "line 5: the bytes end"},
        {"no UTF-8", std::string(kHead) + "\"a\"=\"\xC3(\"", "not well-formed UTF-8"},
        {"half a character", std::string("\xFF\xFEW\0i", 5), "ends inside a UTF-16 character"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            Parse(row.text);
            ADD_FAILURE() << "accepted";
        } catch (const Failure& failure) {
            EXPECT_NE(std::string::npos, std::string(failure.what()).find(row.message)) << failure.what();
            EXPECT_EQ(ExitCode::Usage, failure.exit());
        }
    }
}

}  // namespace
