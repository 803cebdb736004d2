// The module's note of the certificates that it takes to be in step with the vault: a list of SHA-1 hashes in the
// settings, to which it adds and from which it never takes away.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

// The text as it stands; a hash counts as known wherever its 40 digits are in it.
std::string ReadRecord(const SettingsHive& hive);
bool Knows(const std::string& record, const std::string& hash);
// In the order in which they were noted.
std::vector<std::string> HashesOf(const std::string& record);

// Makes the module look at these certificates again.
void ForgetHashes(const SettingsHive& hive, const std::vector<std::string>& hashes);
// Adds those that are missing.
void RememberHashes(const SettingsHive& hive, const std::vector<std::string>& hashes);

}  // namespace kelvaroctl
