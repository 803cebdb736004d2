#include "tests/keyvault/client_fixture.h"

#include <algorithm>

Waits RetryWaits(size_t count)
{
    Waits waits;
    for (DWORD wait = 1000; waits.size() < count; wait = std::min<DWORD>(2 * wait, 64000))
        waits.push_back(wait);
    return waits;
}

std::string Repeat(const std::string& text, size_t times)
{
    return times ? text + Repeat(text, times - 1) : "";
}

std::string TextOf(const WCHAR* text)
{
    return text ? Narrow(text) : "(NULL)";
}

std::string TextOf(const BldStr* str)
{
    return TextOf(str ? KVCText(str) : nullptr);
}

Strings CallerLines(const json& request)
{
    Strings lines;
    for (const std::string line : request.at("headers")) {
        const std::string name = line.substr(0, line.find(':'));
        if (name != "Connection" && name != "User-Agent" && name != "Content-Length" && name != "Host")
            lines.push_back(line);
    }
    return lines;
}

std::string HeaderOf(const json& request, const std::string& name)
{
    for (const std::string line : request.at("headers")) {
        if (line.compare(0, name.size() + 2, name + ": ") == 0)
            return line.substr(name.size() + 2);
    }
    return "";
}

void ExpectLinesAndId(const json& request, Strings lines)
{
    const std::string id = HeaderOf(request, "client-request-id");
    EXPECT_TRUE(id.size() == 36 && std::count(id.begin(), id.end(), '-') == 4) << id;
    lines.push_back("client-request-id: " + id);
    EXPECT_EQ(lines, CallerLines(request));
}

ClientPtr ClientTest::NewClient(const Identity& identity)
{
    return ClientPtr(KVCNew(Wide(identity.vault).c_str(), identity.authn, Wide(identity.tenant).c_str(),
                            Wide(identity.clientId).c_str(), Wide(identity.secret).c_str(), TEXT("cert-id"), 1, 1, 0));
}

std::vector<json> ClientTest::Requests(const std::string& part)
{
    std::vector<json> found;
    for (const json& request : sim.Journal()) {
        if (request.value("target", "").find(part) != std::string::npos)
            found.push_back(request);
    }
    return found;
}

std::set<std::string> ClientTest::Posts()
{
    std::set<std::string> posts;
    for (const json& request : Requests()) {
        if (request.value("method", "") == "POST")
            posts.insert(request.value("target", "") + " " + request.value("body", ""));
    }
    return posts;
}

Strings ClientTest::LinesUpTo(int level) const
{
    Strings lines;
    for (const std::string& line : root.LogLines()) {
        const size_t blank = line.rfind(' ');
        if (blank != std::string::npos && line.find("KVCDoWebCall") != 0 && std::atoi(line.c_str() + blank) <= level)
            lines.push_back(line);
    }
    return lines;
}

void VaultTest::SetUp()
{
    ClientTest::SetUp();
    client = NewClient();
    ASSERT_TRUE(client);
    call.reset(KVCBeginCall(client.get()));
    ASSERT_EQ(1, KVCAuthenticate(call.get())) << root.WholeLog();
    sim.ClearJournal();
    root.ClearLog();
}
