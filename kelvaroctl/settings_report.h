// Formats the settings of a hive: stored and effective values, but never a secret.
#pragma once

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// "set" while the secret is in clear text, "protected", or "not set".
std::string SecretState(const SettingsHive& hive);

// One member and one row for each value. `state`: the module's own.
struct SettingsReport {
    Json settings = Json::object();
    Json state = Json::object();
    std::vector<std::vector<std::string>> settingRows;
    std::vector<std::vector<std::string>> stateRows;
};
SettingsReport ReportSettings(const SettingsHive& hive);

}  // namespace kelvaroctl
