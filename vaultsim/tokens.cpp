#include "vaultsim/tokens.h"

#include <algorithm>

#include "vaultsim/base64url.h"
#include "vaultsim/key_material.h"
#include "vaultsim/refusal.h"
#include "vaultsim/signature.h"
#include "vaultsim/text.h"
#include "vaultsim/x509.h"

namespace vaultsim {

namespace {

Json ParseSegment(const std::string& segment)
{
    const Json json = Json::parse(FromBase64(segment).value_or(""), nullptr, false);
    return json.is_object() ? json : Json::object();
}

}  // namespace

Tokens::Tokens(std::string tenant) : tenant_(std::move(tenant)), key_(GenerateRsa(2048)), keyId_(RandomHex(27)) {}

std::string Tokens::Sign(const Json& claims) const
{
    const Json header = {{"typ", "JWT"}, {"alg", "RS256"}, {"x5t", keyId_}, {"kid", keyId_}};
    const std::string text = ToBase64Url(header.dump()) + "." + ToBase64Url(claims.dump());
    return text + "." + ToBase64Url(SignDigest(key_.get(), *FindSignatureAlgorithm("RS256"), Hash("SHA256", text)));
}

Json Tokens::Issue(const std::string& clientId, const TokenSettings& settings) const
{
    const int64_t now = Now();
    const int64_t notBefore = now - 300;
    const int64_t expires = now + settings.lifetimeSeconds;
    Json claims = {{"aud", kVaultResource},
                   {"iss", "https://sts.windows.net/" + tenant_ + "/"},
                   {"iat", notBefore},
                   {"nbf", notBefore},
                   {"exp", expires},
                   {"aio", RandomHex(32)},
                   {"appid", clientId},
                   {"appidacr", "1"},
                   {"idp", "https://sts.windows.net/" + tenant_ + "/"},
                   {"idtyp", "app"},
                   {"oid", settings.oid},
                   {"sub", settings.oid},
                   {"tid", tenant_},
                   {"uti", RandomHex(22)},
                   {"ver", "1.0"}};
    for (const std::string& member : settings.omit)
        claims.erase(member);
    Json answer = {{"token_type", settings.tokenType},
                   {"expires_in", std::to_string(settings.lifetimeSeconds)},
                   {"ext_expires_in", std::to_string(settings.lifetimeSeconds)},
                   {"expires_on", std::to_string(expires)},
                   {"not_before", std::to_string(notBefore)},
                   {"resource", kVaultResource},
                   {"access_token", Sign(claims)}};
    for (const std::string& member : settings.omit)
        answer.erase(member);
    return answer;
}

std::string Tokens::ProblemOf(const std::string& token) const
{
    const std::vector<std::string> parts = Split(token, '.');
    if (parts.size() != 3 || ParseSegment(parts[0]).value("alg", "") != "RS256")
        return "AKV10001: The token is not a signed JWT.";
    const std::string signature = FromBase64(parts[2]).value_or("");
    if (!VerifyDigest(key_.get(), *FindSignatureAlgorithm("RS256"), Hash("SHA256", parts[0] + "." + parts[1]),
                      signature))
        return "AKV10002: The signature of the token is not valid.";
    const Json claims = ParseSegment(parts[1]);
    const std::string audience = claims.value("aud", "");
    if (audience != kVaultResource)
        return std::string("AKV10022: Invalid audience. Expected ") + kVaultResource + ", found: " + audience + ".";
    if (claims.value("nbf", int64_t{0}) > Now() || claims.value("exp", int64_t{0}) <= Now())
        return "AKV10003: The lifetime of the token is over or has not begun.";
    return "";
}

void Tokens::Check(const Call& call) const
{
    const std::string value = call.Header("Authorization").value_or("");
    const size_t blank = value.find(' ');
    const bool bearer = blank != std::string::npos && EqualsNoCase(value.substr(0, blank), "Bearer");
    const std::string problem =
        bearer ? ProblemOf(value.substr(blank + 1)) : "AKV10000: Request is missing a Bearer or PoP token.";
    if (problem.empty())
        return;
    Answer answer = ErrorAnswer(401, "Unauthorized", problem);
    SetHeader(answer, "WWW-Authenticate: Bearer authorization=\"https://login.windows.net/" + tenant_ +
                          "\", resource=\"" + kVaultResource + "\"");
    throw Refusal(answer);
}

}  // namespace vaultsim
