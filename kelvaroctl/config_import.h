// Imports settings from an export of the registry editor: all of them or none.
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

// content: the whole file. Throws a usage failure that names the first bad line.
std::vector<SettingChange> CheckImport(std::string_view content);

// Makes all changes. If one fails, undoes the others and rethrows the failure.
void ApplyChanges(const std::vector<SettingChange>& changes);

}  // namespace kelvaroctl
