// Who may read the machine's settings: the access list of the key on Windows, modes of folders and files on Linux. One
// body a system, chosen by the build. Every function throws a configuration failure when the platform refuses.
#pragma once

#include <string>
#include <vector>

namespace kelvaroctl {

struct SettingsAccess {
    std::vector<std::string> readers;  // accounts and groups that may read or change them
    bool open = false;                 // ordinary users are among them, or will be once the key is made
};
SettingsAccess ReadSettingsAccess();

// Leaves the settings to the administrators, and lets `accounts` read them, whoever could before. Creates the settings
// key if there is none. Throws a usage failure for an unknown account.
void ProtectSettings(const std::vector<std::string>& accounts);

}  // namespace kelvaroctl
