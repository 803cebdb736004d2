// Settings from an export of the registry editor: all of them, or none.
#pragma once

#include <string_view>
#include <vector>

#include "kelvaroctl/setting_table.h"
#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

// One value that an import sets or removes.
struct SettingChange {
    HKEY hive;
    const Setting* setting;
    bool remove;
    RawValue value;
};

// content: a whole file. Throws a usage failure that names the first line that is wrong.
std::vector<SettingChange> JudgeImport(std::string_view content);

// Makes all changes. When one fails those already made are taken back, and the failure is thrown on.
void ApplyChanges(const std::vector<SettingChange>& changes);

}  // namespace kelvaroctl
