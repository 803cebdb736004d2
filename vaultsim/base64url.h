// Base64 in the two forms that the service uses.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vaultsim {

std::string ToBase64(std::string_view bytes);     // "+/", padded
std::string ToBase64Url(std::string_view bytes);  // "-_", not padded

// Accepts either form, padded or not; nullopt if the text isn't Base64.
std::optional<std::string> FromBase64(std::string_view text);

}  // namespace vaultsim
