#include "vaultsim/signin.h"

#include "vaultsim/refusal.h"
#include "vaultsim/text.h"

namespace vaultsim {

namespace {

Refusal Refused(int status, const std::string& error, int code, const std::string& message)
{
    const std::string time = UtcText(Now(), "%Y-%m-%d %H:%M:%SZ");
    const std::string trace = RandomUuid();
    const std::string correlation = RandomUuid();
    const std::string number = std::to_string(code);
    return Refusal(
        JsonAnswer(status, {{"error", error},
                            {"error_description", "AADSTS" + number + ": " + message + "\r\nTrace ID: " + trace +
                                                      "\r\nCorrelation ID: " + correlation + "\r\nTimestamp: " + time},
                            {"error_codes", {code}},
                            {"timestamp", time},
                            {"trace_id", trace},
                            {"correlation_id", correlation},
                            {"error_uri", "https://login.microsoftonline.com/error?code=" + number}}));
}

}  // namespace

void SignIn::CheckForm(const Call& call) const
{
    if (!EqualsNoCase(call.Header("Content-Type").value_or("").substr(0, 33), "application/x-www-form-urlencoded"))
        throw Refused(400, "invalid_request", 900144, "The request body must be a form.");
    if (!EqualsNoCase(call.segments[0], options_.tenant))
        throw Refused(400, "invalid_request", 90002, "Tenant '" + call.segments[0] + "' not found.");
    const std::map<std::string, std::string> form = ParseForm(call.body);
    for (const char* name : {"grant_type", "client_id", "resource"}) {
        if (form.count(name) == 0)
            throw Refused(400, "invalid_request", 900144,
                          std::string("The request body must contain the following parameter: '") + name + "'.");
    }
    if (form.at("grant_type") != "client_credentials")
        throw Refused(400, "unsupported_grant_type", 70003, "The app requested an unsupported grant type.");
    if (!EqualsNoCase(form.at("client_id"), options_.clientId))
        throw Refused(400, "unauthorized_client", 700016,
                      "Application with identifier '" + form.at("client_id") + "' was not found in the directory '" +
                          options_.tenant + "'.");
    if (form.at("resource") != kVaultResource)
        throw Refused(400, "invalid_resource", 500011,
                      "The resource principal named " + form.at("resource") + " was not found in the tenant.");
    if (form.count("client_secret") == 0)
        throw Refused(401, "invalid_client", 7000218,
                      "The request body must contain the following parameter: 'client_assertion' or 'client_secret'.");
    if (form.at("client_secret") != options_.clientSecret)
        throw Refused(401, "invalid_client", 7000215, "Invalid client secret is provided.");
    if (settings_.Get().secretExpired)
        throw Refused(401, "invalid_client", 7000222,
                      "The provided client secret keys for app '" + options_.clientId +
                          "' are expired. Visit the Azure portal to create new keys for your app: "
                          "https://aka.ms/NewClientSecret, or consider using certificate credentials for added "
                          "security: https://aka.ms/certCreds.");
}

Answer SignIn::Handle(const Call& call) const
{
    if (call.segments.size() != 3 || call.segments[1] != "oauth2" || call.segments[2] != "token")
        return TextAnswer(404, "Not Found");
    if (call.method != "POST")
        throw Refused(400, "invalid_request", 900561, "The endpoint only accepts POST requests.");
    CheckForm(call);
    counts_.signIns++;
    return JsonAnswer(200, tokens_.Issue(options_.clientId, settings_.Get().tokens));
}

}  // namespace vaultsim
