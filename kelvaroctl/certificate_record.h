// The module's record of the certificates that it considers in step with the vault: SHA-1 hashes in the settings. The
// module adds to it and never removes any.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

// The record as text. A hash is known if its 40 digits occur anywhere in it.
std::string ReadRecord(const SettingsHive& hive);
bool Knows(const std::string& record, const std::string& hash);
// In the order in which they were recorded.
std::vector<std::string> HashesOf(const std::string& record);

// Makes the module check these certificates again.
void ForgetHashes(const SettingsHive& hive, const std::vector<std::string>& hashes);
// Adds those that are missing.
void RememberHashes(const SettingsHive& hive, const std::vector<std::string>& hashes);

}  // namespace kelvaroctl
