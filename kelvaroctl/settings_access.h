// Who can read the machine's settings: the key's access list on Windows, modes of folders and files on Linux. Each
// system has its own source, chosen by the build. Every function throws a configuration failure if the platform reports
// an error.
#pragma once

#include <string>
#include <vector>

namespace kelvaroctl {

struct SettingsAccess {
    std::vector<std::string> readers;  // accounts and groups that can read or change them
    bool open = false;                 // ordinary users can, or could once the key is created
};
SettingsAccess ReadSettingsAccess();

// Gives administrators full control; apart from them only `accounts` can read the settings. Creates the settings key
// if there is none. Throws a usage failure for an unknown account.
void ProtectSettings(const std::vector<std::string>& accounts);

}  // namespace kelvaroctl
