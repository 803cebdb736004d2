#include "tests/keyvault/client_fixture.h"

#include <algorithm>
#include <sstream>

Strings CallerLines(const nlohmann::json& request)
{
    Strings lines;
    for (const std::string line : request.at("headers")) {
        const std::string name = line.substr(0, line.find(':'));
        if (name != "Connection" && name != "User-Agent" && name != "Content-Length" && name != "Host")
            lines.push_back(line);
    }
    return lines;
}

std::string HeaderOf(const nlohmann::json& request, const std::string& name)
{
    for (const std::string line : request.at("headers")) {
        if (line.compare(0, name.size() + 2, name + ": ") == 0)
            return line.substr(name.size() + 2);
    }
    return "";
}

static bool IsUuid(const std::string& text)
{
    const std::string form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    return text.size() == form.size() && std::equal(text.begin(), text.end(), form.begin(), [](char ch, char place) {
               return place == '-' ? ch == '-' : std::string("0123456789abcdef").find(ch) != std::string::npos;
           });
}

void ExpectLinesAndId(const nlohmann::json& request, Strings lines)
{
    const std::string id = HeaderOf(request, "client-request-id");
    EXPECT_TRUE(IsUuid(id)) << id;
    lines.push_back("client-request-id: " + id);
    EXPECT_EQ(lines, CallerLines(request));
}

std::string ClientTest::Environment(const std::string& name)
{
    WCHAR value[2048] = {};
    GetEnvironmentVariableW(Wide(name).c_str(), value, 2048);
    return Narrow(value);
}

void ClientTest::SetUp()
{
    sim.Reset();
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), nullptr);
    SetLogging(10);
}

void ClientTest::TearDown()
{
    SetEnvironmentVariableW(TEXT("KELVARO_CONNECT_TO"), Wide(connectTo).c_str());
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), nullptr);
}

void ClientTest::SetLogging(DWORD level)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", level);
    LogAttach();
}

ClientPtr ClientTest::NewClient(const Identity& identity)
{
    return ClientPtr(KVCNew(Wide(identity.vault).c_str(), identity.authn, Wide(identity.tenant).c_str(),
                            Wide(identity.clientId).c_str(), Wide(identity.secret).c_str(), TEXT("cert-id"), 1, 1, 0));
}

int ClientTest::SignIn(const ClientPtr& client)
{
    const KVCCall call(KVCBeginCall(client.get()));
    return KVCAuthenticate(call.get());
}

int ClientTest::ListKeys(KVC* call)
{
    return SendToVault(call, VaultRequest());
}

int ClientTest::ListKeys(const ClientPtr& client)
{
    const KVCCall call(KVCBeginCall(client.get()));
    return KVCTakeHeldToken(call.get()) && ListKeys(call.get());
}

std::vector<nlohmann::json> ClientTest::Requests(const std::string& part)
{
    std::vector<nlohmann::json> found;
    for (const nlohmann::json& request : sim.Journal()) {
        if (request.at("target").get<std::string>().find(part) != std::string::npos)
            found.push_back(request);
    }
    return found;
}

std::set<std::string> ClientTest::Posts()
{
    std::set<std::string> posts;
    for (const nlohmann::json& request : sim.Journal()) {
        if (request.value("method", "") == "POST")
            posts.insert(request.value("target", "") + " " + request.value("body", ""));
    }
    return posts;
}

void ClientTest::Answer(const std::string& path, int status, const nlohmann::json& body, int times, int skip)
{
    sim.Fault(
        {{"path", path}, {"action", "status"}, {"status", status}, {"body", body}, {"times", times}, {"skip", skip}});
}

size_t ClientTest::LinesWith(const std::string& text) const
{
    const Strings lines = root.LogLines();
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

void ClientTest::AlsoConnect(const std::string& entry)
{
    SetEnvironmentVariableW(TEXT("KELVARO_CONNECT_TO"), Wide(connectTo + " " + entry).c_str());
}

std::string ClientTest::ConnectTarget(const std::string& from) const
{
    std::istringstream entries(connectTo);
    for (std::string entry; entries >> entry;) {
        const size_t at = entry.find(from);
        if (at != std::string::npos)
            return entry.substr(at + from.size());
    }
    return "";
}
