// A call on a vault that has been let in, and what all operations read from it.
#pragma once

#include <memory>
#include <string>

#include "vaultsim/call.h"
#include "vaultsim/settings.h"
#include "vaultsim/vault.h"

namespace vaultsim {

struct VaultRequest {
    const Call& call;
    std::shared_ptr<Vault> vault;
    std::string apiVersion;
    Settings settings;

    std::string Url(const std::string& path) const { return "https://" + vault->host + path; }
    // The name in the path; throws a Refusal where it is none.
    const std::string& Name() const;
    // The entity, a JSON object; throws a Refusal where it is none.
    Json Body() const;
};

// Members of an entity. Throw a Refusal where the member is of another type.
bool ReadBool(const Json& object, const char* member, bool otherwise);
std::string ReadText(const Json& object, const char* member, const std::string& otherwise = "");
std::optional<int64_t> ReadNumber(const Json& object, const char* member);  // a number, or a text that is one
Json ReadObject(const Json& object, const char* member);                    // {} when missing
std::vector<std::string> ReadTexts(const Json& object, const char* member);
std::string ReadBytes(const Json& object, const char* member);  // Base64 of either kind; must be there
Tags ReadTags(const Json& object);
void ReadAttributes(const Json& object, Attributes& attributes);

}  // namespace vaultsim
