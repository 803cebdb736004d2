// The settings of a hive as they are shown: what is stored, what counts, and never a secret.
#pragma once

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// "set" while the secret stands in clear, "protected", or "not set".
std::string SecretState(const SettingsHive& hive);

// One member and one row of columns for each value; `state` holds the notes that the module keeps for itself.
struct SettingsReport {
    Json settings = Json::object();
    Json state = Json::object();
    std::vector<std::vector<std::string>> settingRows;
    std::vector<std::vector<std::string>> stateRows;
};
SettingsReport ReportSettings(const SettingsHive& hive);

}  // namespace kelvaroctl
