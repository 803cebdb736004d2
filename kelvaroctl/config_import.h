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

// Makes all changes or none, in one registry transaction. On a machine without such transactions one by one: if one
// fails, undoes the others as far as the system lets it. Throws the failure of the platform.
void ApplyChanges(const std::vector<SettingChange>& changes);

}  // namespace kelvaroctl
