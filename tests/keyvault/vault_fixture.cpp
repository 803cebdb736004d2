#include "tests/keyvault/vault_fixture.h"

#include <cstdio>
#include <fstream>
#include <iterator>

using nlohmann::json;

static std::string Encode(const Bytes& bytes, const char* lastTwo, bool fill)
{
    const std::string alphabet =
        std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789") + lastTwo;
    std::string text;
    uint32_t bits = 0;
    int count = 0;
    for (const BYTE byte : bytes) {
        bits = bits << 8 | byte;
        for (count += 8; count >= 6; count -= 6)
            text += alphabet[bits >> (count - 6) & 63];
    }
    if (count)
        text += alphabet[bits << (6 - count) & 63];
    while (fill && text.size() % 4)
        text += '=';
    return text;
}

std::string Base64(const Bytes& bytes)
{
    return Encode(bytes, "+/", true);
}

std::string Base64Url(const Bytes& bytes)
{
    return Encode(bytes, "-_", false);
}

std::string ReadServiceSample(const std::string& name)
{
    std::ifstream file(std::string(KELVARO_TEST_DATA) + "/service/" + name + ".json", std::ios::binary);
    EXPECT_TRUE(file) << name;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string OrNone(const WCHAR* text)
{
    return text ? Narrow(text) : "(NULL)";
}

std::string Hex(SECURITY_STATUS status)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08lx", static_cast<unsigned long>(static_cast<DWORD>(status)));
    return text;
}

void VaultTest::SetUp()
{
    ClientTest::SetUp();
    client = NewClient();
    ASSERT_TRUE(client);
    call.reset(KVCBeginCall(client.get()));
    ASSERT_TRUE(call);
    ASSERT_EQ(1, KVCAuthenticate(call.get()));
    sim.ClearJournal();
    root.ClearLog();
    clock.ClearWaits();
}

void VaultTest::TearDown()
{
    call.reset();
    client.reset();
    ClientTest::TearDown();
}

void VaultTest::Answer(const std::string& path, int status, const json& body, int times, int skip)
{
    sim.Fault({{"path", path},
               {"host", ".vault.azure.net"},
               {"action", "status"},
               {"status", status},
               {"body", body},
               {"times", times},
               {"skip", skip}});
}

void VaultTest::Throttle(const std::string& path, int times, int skip)
{
    Answer(path, 429, ReadServiceSample("error-429-throttled"), times, skip);
}

Strings VaultTest::LinesUpTo(int level) const
{
    Strings lines;
    for (const std::string& line : root.LogLines()) {
        const size_t blank = line.rfind(' ');
        if (blank != std::string::npos && line.find("KVCDoWebCall") != 0 && std::atoi(line.c_str() + blank) <= level)
            lines.push_back(line);
    }
    return lines;
}

Strings VaultTest::Bodies()
{
    Strings bodies;
    for (const json& request : sim.Journal()) {
        if (request.value("host", "").find(".vault.azure.net") != std::string::npos)
            bodies.push_back(request.value("body", ""));
    }
    return bodies;
}
