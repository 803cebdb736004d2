// Base64 in the two forms that the service uses.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vaultsim {

std::string ToBase64(std::string_view bytes);     // "+/", filled up with "="
std::string ToBase64Url(std::string_view bytes);  // "-_", without fill

// Either form, with or without fill. Nothing where the text is no Base64.
std::optional<std::string> FromBase64(std::string_view text);

}  // namespace vaultsim
