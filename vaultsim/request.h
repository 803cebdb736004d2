// An authorized call on a vault, and what the operations read from it.
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

    // The name in the path; throws a Refusal if it isn't a valid one.
    const std::string& Name() const;
    // The body, a JSON object; throws a Refusal if it is anything else.
    Json Body() const;
};

// Members of a body. They throw a Refusal if the member has another type.
bool ReadBool(const Json& object, const char* member, bool otherwise);
std::string ReadText(const Json& object, const char* member, const std::string& otherwise = "");
std::optional<int64_t> ReadNumber(const Json& object, const char* member);  // a number, or a string of digits
Json ReadObject(const Json& object, const char* member);                    // {} when missing
std::vector<std::string> ReadTexts(const Json& object, const char* member);
std::string ReadBytes(const Json& object, const char* member);  // Base64 of either kind; required
Tags ReadTags(const Json& object);
void ReadAttributes(const Json& object, Attributes& attributes);

}  // namespace vaultsim
