#include "vaultsim/service.h"

#include "vaultsim/certificates.h"
#include "vaultsim/deletion.h"
#include "vaultsim/key_operations.h"
#include "vaultsim/keys.h"
#include "vaultsim/pending.h"
#include "vaultsim/request.h"

namespace vaultsim {

namespace {

constexpr char kSignInHost[] = "login.microsoftonline.com";
constexpr const char* kApiVersions[] = {"2016-10-01", "7.0"};

// In a pattern, "*" matches any segment and "?" any or none; other words match themselves.
struct Route {
    const char* method;
    std::vector<std::string> pattern;
    Answer (*operation)(const VaultRequest& request);
};

const Route kRoutes[] = {
    {"GET", {"keys"}, List<Keys>},
    {"GET", {"keys", "*", "?"}, Get<Keys>},
    {"POST", {"keys", "*", "create"}, CreateKey},
    {"POST", {"keys", "*", "*", "*"}, OperateKey},
    {"DELETE", {"keys", "*"}, Delete<Keys>},
    {"GET", {"deletedkeys"}, ListDeleted<Keys>},
    {"GET", {"deletedkeys", "*"}, GetDeleted<Keys>},
    {"POST", {"deletedkeys", "*", "recover"}, Recover<Keys>},
    {"DELETE", {"deletedkeys", "*"}, Purge<Keys>},
    {"GET", {"certificates"}, List<Certificates>},
    {"GET", {"certificates", "*", "pending"}, GetPending},
    {"GET", {"certificates", "*", "?"}, Get<Certificates>},
    {"POST", {"certificates", "*", "create"}, CreateCertificate},
    {"POST", {"certificates", "*", "pending", "merge"}, MergeCertificate},
    {"DELETE", {"certificates", "*", "pending"}, DeletePending},
    {"DELETE", {"certificates", "*"}, Delete<Certificates>},
    {"GET", {"deletedcertificates"}, ListDeleted<Certificates>},
    {"GET", {"deletedcertificates", "*"}, GetDeleted<Certificates>},
    {"POST", {"deletedcertificates", "*", "recover"}, Recover<Certificates>},
    {"DELETE", {"deletedcertificates", "*"}, Purge<Certificates>},
};

bool Matches(const std::vector<std::string>& pattern, const std::vector<std::string>& segments)
{
    const size_t least = pattern.size() - (pattern.back() == "?" ? 1 : 0);
    if (segments.size() < least || segments.size() > pattern.size())
        return false;
    for (size_t i = 0; i < segments.size(); i++) {
        if (pattern[i] != "*" && pattern[i] != "?" && pattern[i] != segments[i])
            return false;
    }
    return true;
}

const Route& FindRoute(const Call& call)
{
    for (const Route& route : kRoutes) {
        if (call.method == route.method && Matches(route.pattern, call.segments))
            return route;
    }
    throw BadParameter("Method " + call.method + " does not allow operation '" + call.segments.back() + "'");
}

std::string CheckApiVersion(const Call& call)
{
    const std::optional<std::string> version = call.Query("api-version");
    if (!version || version->empty())
        throw BadParameter("api-version must be specified");
    for (const char* known : kApiVersions) {
        if (*version == known)
            return *version;
    }
    throw BadParameter("The specified version (" + *version +
                       ") is not recognized. Consider using the latest supported version (7.0).");
}

// The header lines that every answer of the vault has.
void AddServiceHeaders(const Call& call, Answer& answer)
{
    for (const char* line : {"Cache-Control: no-cache", "Pragma: no-cache", "x-ms-keyvault-region: westeurope",
                             "x-ms-keyvault-service-version: 1.1.0.872", "X-Content-Type-Options: nosniff",
                             "Strict-Transport-Security: max-age=31536000;includeSubDomains"})
        SetHeader(answer, line);
    SetHeader(answer, "x-ms-request-id: " + RandomUuid());
    const std::optional<std::string> id = call.Header("client-request-id");
    if (id && EqualsNoCase(call.Header("return-client-request-id").value_or(""), "true"))
        SetHeader(answer, "client-request-id: " + *id);
}

}  // namespace

Answer Service::HandleVault(const Call& call, const Settings& settings) const
{
    VaultRequest request{call, vaults_.FindHost(call.host), "", settings};
    if (!request.vault)
        return TextAnswer(400, "no such vault: " + call.host);
    Answer answer = AnswerOf([&] {
        tokens_.Check(call);
        request.apiVersion = CheckApiVersion(call);
        return FindRoute(call).operation(request);
    });
    AddServiceHeaders(call, answer);
    return answer;
}

Answer Service::Handle(const Call& call) const
{
    const Settings settings = settings_.Get();
    const bool signIn = call.host == kSignInHost;
    if (!signIn || settings.latency.signIn)
        pauser_.Sleep(settings.latency.ms);
    return signIn ? AnswerOf([&] { return signIn_.Handle(call); }) : HandleVault(call, settings);
}

}  // namespace vaultsim
