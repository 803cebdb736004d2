// Settings from an export of the registry editor: all of them, or none.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/registry_text.h"
#include "kelvaroctl/setting_table.h"

namespace kelvaroctl {

// One value that an import sets or takes away.
struct SettingChange {
    HKEY hive;
    const Setting* setting;
    bool remove;
    RawValue value;
};

// Judges a whole text. Throws a usage failure that names the line of the first thing that is wrong.
std::vector<SettingChange> JudgeImport(const RegistryText& text);

// Makes all changes. When one fails those already made are taken back, and the failure is thrown on.
void ApplyChanges(const std::vector<SettingChange>& changes);

}  // namespace kelvaroctl
