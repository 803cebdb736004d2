#include "tests/keyvault/vault_fixture.h"

using nlohmann::json;

std::string OrNone(const WCHAR* text)
{
    return text ? Narrow(text) : "(NULL)";
}

void VaultTest::SetUp()
{
    ClientTest::SetUp();
    client = NewClient();
    ASSERT_TRUE(client);
    call.reset(KVCBeginCall(client.get()));
    ASSERT_TRUE(call);
    ASSERT_EQ(1, KVCAuthenticate(call.get())) << root.WholeLog();
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
