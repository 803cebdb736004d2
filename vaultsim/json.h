// JSON with its members in the order of the service.
#pragma once

#include <nlohmann/json.hpp>

namespace vaultsim {

using Json = nlohmann::ordered_json;

}  // namespace vaultsim
