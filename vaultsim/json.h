// JSON that keeps its members in the service's order.
#pragma once

#include <nlohmann/json.hpp>

namespace vaultsim {

using Json = nlohmann::ordered_json;

}  // namespace vaultsim
