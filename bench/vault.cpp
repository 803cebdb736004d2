#include "bench/vault.h"

#include <strings.h>

#include "tests/common/client_settings.h"

namespace bench {

Vault::Vault()
{
    sim_.Reset();
    sim_.AddKey(Simulator::kVault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 2048}});
    sim_.AddKey(Simulator::kVault, {{"name", "p256"}, {"kty", "EC"}, {"crv", "P-256"}});
    WriteClientSettings(root_);
    LogAt(0);
}

// The header fields that every HTTP client adds.
static bool IsOwnField(const std::string& line)
{
    for (const char* name : {"Host:", "Content-Length:", "Connection:"}) {
        if (strncasecmp(line.c_str(), name, strlen(name)) == 0)
            return true;
    }
    return false;
}

std::vector<Recorded> Vault::Requests()
{
    std::vector<Recorded> requests;
    for (const nlohmann::json& entry : sim_.Journal()) {
        Recorded request;
        request.method = entry.at("method");
        request.url = "https://" + entry.at("host").get<std::string>() + entry.at("target").get<std::string>();
        for (const std::string line : entry.at("headers")) {
            if (!IsOwnField(line))
                request.headers.push_back(line);
        }
        request.body = entry.at("body");
        requests.push_back(request);
    }
    return requests;
}

}  // namespace bench
