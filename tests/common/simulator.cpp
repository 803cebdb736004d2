#include "tests/common/simulator.h"

#include <stdexcept>

#include "platform/platform.h"
#include "tests/common/test_root.h"

using nlohmann::json;

Simulator& Simulator::Get()
{
    static Simulator instance;
    return instance;
}

Simulator::Simulator()
{
    Start();
    Control("PUT", "/arc", {{"realmPrefix", drive_}});
}

Simulator::~Simulator()
{
    Stop();
}

namespace {
// A WinHTTP handle that closes itself.
struct Handle {
    HINTERNET value;
    explicit Handle(HINTERNET handle) : value(handle)
    {
        if (!value)
            throw std::runtime_error("no connection to the simulator's control port: " +
                                     std::to_string(GetLastError()));
    }
    ~Handle() { WinHttpCloseHandle(value); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
};

std::string ReadAll(HINTERNET request)
{
    std::string all;
    for (;;) {
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(request, &available))
            throw std::runtime_error("control answer broke off");
        if (!available)
            return all;
        std::string piece(available, 0);
        DWORD read = 0;
        if (!WinHttpReadData(request, piece.data(), available, &read))
            throw std::runtime_error("control answer broke off");
        all.append(piece, 0, read);
    }
}

std::string Exchange(int port, const std::string& method, const std::string& path, std::string body)
{
    const Handle session(WinHttpOpen(TEXT("kelvaro-tests"), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr, nullptr, 0));
    const Handle connection(WinHttpConnect(session.value, TEXT("127.0.0.1"), static_cast<INTERNET_PORT>(port), 0));
    const Handle request(
        WinHttpOpenRequest(connection.value, Wide(method).c_str(), Wide(path).c_str(), nullptr, nullptr, nullptr, 0));
    const DWORD size = static_cast<DWORD>(body.size());
    if (!WinHttpSendRequest(request.value, TEXT("Content-Type: application/json\r\n"), static_cast<DWORD>(-1),
                            size ? body.data() : nullptr, size, size, 0) ||
        !WinHttpReceiveResponse(request.value, nullptr))
        throw std::runtime_error("control call " + method + " " + path + " failed: " + std::to_string(GetLastError()));
    DWORD status = 0;
    DWORD cb = sizeof(status);
    WinHttpQueryHeaders(request.value, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &status, &cb,
                        nullptr);
    std::string answer = ReadAll(request.value);
    if (status / 100 != 2)
        throw std::runtime_error("control call " + method + " " + path + ": " + std::to_string(status) + " " + answer);
    return answer;
}
}  // namespace

json Simulator::Control(const std::string& method, const std::string& path, const json& body)
{
    const std::string answer = Exchange(controlPort_, method, path, body.is_null() ? "" : body.dump());
    const json parsed = json::parse(answer, nullptr, false);
    return parsed.is_discarded() ? json(answer) : parsed;
}

void Simulator::Reset()
{
    Control("DELETE", "/faults");
    Control("PUT", "/latency", {{"ms", 0}});
    for (const char* listener : {"tls", "http", "arc"})
        Control("PUT", "/listener", {{"name", listener}, {"mode", "up"}});
    Control("PUT", "/certificate", {{"mode", "good"}});
    Control("PUT", "/tokens",
            {{"lifetimeSeconds", 3600}, {"oid", kObjectId}, {"omit", json::array()}, {"tokenType", "Bearer"}});
    Control("PUT", "/paging", {{"maxPage", 25}, {"emptyEvery", 0}, {"firstEmpty", false}});
    for (const auto& [vault, tier] : {std::pair(kVault, "premium"), std::pair(kStandardVault, "standard")}) {
        Control("DELETE", std::string("/vaults/") + vault);
        Control("PUT", std::string("/vaults/") + vault, {{"tier", tier}});
    }
    ClearJournal();
}

json Simulator::Journal()
{
    return Control("GET", "/journal")["requests"];
}

std::vector<std::string> Simulator::VaultRequests()
{
    std::vector<std::string> requests;
    for (const json& request : Journal()) {
        const std::string host = request.value("host", "");
        if (host.find(".vault.azure.net") != std::string::npos)
            requests.push_back(request.value("method", "") + " " + request.value("target", ""));
    }
    return requests;
}

void Simulator::ClearJournal()
{
    Control("DELETE", "/journal");
}

int Simulator::SignIns()
{
    return Control("GET", "/counts").value("signins", -1);
}

void Simulator::Fault(const json& fault)
{
    Control("POST", "/faults", fault);
}

void Simulator::AddKey(const std::string& vault, const json& key)
{
    Control("POST", "/vaults/" + vault + "/keys", key);
}

std::string Simulator::PublicKeyPem(const std::string& vault, const std::string& name)
{
    return Control("GET", "/vaults/" + vault + "/keys/" + name + "/pem").get<std::string>();
}
