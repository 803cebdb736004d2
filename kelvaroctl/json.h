// JSON objects whose members keep the order in which they were added.
#pragma once

#include <nlohmann/json.hpp>

namespace kelvaroctl {

using Json = nlohmann::ordered_json;

}  // namespace kelvaroctl
