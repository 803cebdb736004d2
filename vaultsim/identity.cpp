#include "vaultsim/identity.h"

#include <unistd.h>

#include "vaultsim/files.h"
#include "vaultsim/refusal.h"
#include "vaultsim/text.h"

namespace vaultsim {

namespace {

constexpr char kMetadataVersion[] = "2018-02-01";
constexpr char kArcVersion[] = "2020-06-01";

Refusal InvalidRequest(const std::string& description)
{
    return Refusal(OauthErrorAnswer(400, "invalid_request", description));
}

}  // namespace

Identity::Identity(const Options& options, const Tokens& tokens, const SettingsBox& settings, Counts& counts,
                   std::string secretDirectory)
    : options_(options),
      tokens_(tokens),
      settings_(settings),
      counts_(counts),
      secretDirectory_(std::move(secretDirectory))
{
}

void Identity::CheckRequest(const Call& call, const char* apiVersion) const
{
    if (call.segments != std::vector<std::string>{"metadata", "identity", "oauth2", "token"})
        throw Refusal(OauthErrorAnswer(404, "not_found", "The requested page was not found"));
    if (call.method != "GET")
        throw Refusal(OauthErrorAnswer(405, "invalid_request", "Method not allowed"));
    if (!EqualsNoCase(call.Header("Metadata").value_or(""), "true"))
        throw InvalidRequest("Required metadata header not specified");
    if (!call.Query("api-version"))
        throw InvalidRequest("Required query variable 'api-version' is missing");
    if (call.Query("api-version") != apiVersion)
        throw InvalidRequest(std::string("Invalid api-version. Expected ") + apiVersion);
    if (!call.Query("resource"))
        throw InvalidRequest("Required query variable 'resource' is missing");
    if (call.Query("resource") != kVaultResource)
        throw Refusal(OauthErrorAnswer(400, "invalid_resource", "The resource principal was not found in the tenant"));
    // No client_id: the machine's own identity.
    if (!EqualsNoCase(call.Query("client_id").value_or(options_.clientId), options_.clientId))
        throw InvalidRequest("Identity not found");
}

Answer Identity::Token(const Call& call)
{
    counts_.signIns++;
    const std::string clientId = call.Query("client_id").value_or(options_.clientId);
    Json answer = tokens_.Issue(clientId, settings_.Get().tokens);
    answer["client_id"] = clientId;
    return JsonAnswer(200, answer);
}

Answer Identity::HandleMetadata(const Call& call)
{
    CheckRequest(call, kMetadataVersion);
    return Token(call);
}

Answer Identity::Challenge()
{
    const std::string secret = RandomHex(64);
    const std::string file = secretDirectory_ + "/" + RandomUuid() + ".key";
    WriteFile(file, secret, 0600);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        secrets_[secret] = file;
    }
    Answer answer = OauthErrorAnswer(401, "unauthorized_client", "Missing or invalid Basic Authorization header");
    SetHeader(answer, "WWW-Authenticate: Basic realm=" + settings_.Get().arcRealmPrefix + file);
    return answer;
}

bool Identity::TakeSecret(const std::string& secret)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = secrets_.find(secret);
    if (found == secrets_.end())
        return false;
    unlink(found->second.c_str());
    secrets_.erase(found);
    return true;
}

Answer Identity::HandleArc(const Call& call)
{
    CheckRequest(call, kArcVersion);
    const std::string authorization = call.Header("Authorization").value_or("");
    if (authorization.substr(0, 6) != "Basic " || !TakeSecret(authorization.substr(6)))
        return Challenge();
    return Token(call);
}

}  // namespace vaultsim
