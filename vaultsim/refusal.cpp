#include "vaultsim/refusal.h"

#include <stdexcept>

namespace vaultsim {

Answer JsonAnswer(int status, const Json& body)
{
    // The body may quote bytes of the request that aren't UTF-8.
    return {status,
            body.dump(-1, ' ', false, Json::error_handler_t::replace),
            {"Content-Type: application/json; charset=utf-8"}};
}

Answer TextAnswer(int status, const std::string& text)
{
    return {status, text, {"Content-Type: text/plain; charset=utf-8"}};
}

Answer ErrorAnswer(int status, const std::string& code, const std::string& message, const std::string& inner)
{
    Json error = {{"code", code}, {"message", message}};
    if (!inner.empty())
        error["innererror"] = {{"code", inner}};
    return JsonAnswer(status, {{"error", error}});
}

Answer OauthErrorAnswer(int status, const std::string& error, const std::string& description)
{
    return JsonAnswer(status, {{"error", error}, {"error_description", description}});
}

Answer ForbiddenAnswer(const std::string& inner)
{
    const std::string caller =
        "Caller: appid=c2b60e34-8a0b-4f5e-a6f3-91d1f5a2ce08;oid=8e6f1f0a-2c47-4b7d-93ab-51f0c7d2e9b4";
    const std::string place = "\r\nVault: contoso-keys;location=westeurope";
    const std::pair<const char*, std::string> rows[] = {
        {"ForbiddenByRbac",
         "Caller is not authorized to perform action on resource.\r\nIf role assignments, deny assignments or role "
         "definitions were changed recently, please observe propagation time.\r\n" +
             caller + "\r\nAction: 'Microsoft.KeyVault/vaults/keys/read'" + place},
        {"ForbiddenByPolicy",
         "The user, group or application '" + caller.substr(8) +
             "' does not have keys list permission on key vault 'contoso-keys;location=westeurope'. For help resolving "
             "this issue, please see https://go.microsoft.com/fwlink/?linkid=2125287"},
        {"ForbiddenByFirewall",
         "Client address is not authorized and caller is not a trusted service.\r\nClient address: 203.0.113.7\r\n" +
             caller + place},
        {"ForbiddenByConnection",
         "Public network access is disabled and request is not from a trusted service nor via an approved private "
         "link.\r\n" +
             caller + place},
    };
    for (const auto& [code, message] : rows) {
        if (inner == code)
            return ErrorAnswer(403, "Forbidden", message, inner);
    }
    throw std::invalid_argument("unknown inner code: " + inner);
}

Answer DefaultErrorAnswer(int status)
{
    switch (status) {
        case 401:
            return ErrorAnswer(status, "Unauthorized", "AKV10000: Request is missing a Bearer or PoP token.");
        case 403:
            return ErrorAnswer(status, "Forbidden", "The caller does not have permission for the operation.");
        case 404:
            return ErrorAnswer(status, "KeyNotFound", "Key not found.");
        case 409:
            return ErrorAnswer(status, "Conflict", "Key is currently being deleted.", "ObjectIsBeingDeleted");
        case 429:
            return ErrorAnswer(status, "Throttled",
                               "Request was not processed because too many requests were received. Reason: "
                               "VaultRequestTypeLimitReached");
        default:
            return status >= 500 ? ErrorAnswer(status, "InternalServerError", "The service met an internal error.")
                                 : ErrorAnswer(status, "BadParameter", "The request is not valid.");
    }
}

Refusal BadParameter(const std::string& message)
{
    return Refusal(ErrorAnswer(400, "BadParameter", message));
}

Refusal Forbidden(const std::string& message, const std::string& inner)
{
    return Refusal(ErrorAnswer(403, "Forbidden", message, inner));
}

Refusal NotFound(const std::string& code, const std::string& message)
{
    return Refusal(ErrorAnswer(404, code, message));
}

Refusal Conflict(const std::string& message, const std::string& inner)
{
    return Refusal(ErrorAnswer(409, "Conflict", message, inner));
}

}  // namespace vaultsim
