// A certificate of the store as the tool shows it, and the module's record of the certificates that it considers in
// step with the vault: SHA-1 hashes in the settings. The module only adds to it.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/personal_store.h"
#include "kelvaroctl/tool.h"

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

// record: the text.
Json CertificateObject(const StoredCertificate& certificate, const std::string& record);
std::vector<std::string> CertificateRow(const StoredCertificate& certificate, const std::string& record);

// As a member and a row of the answer.
void AddCertificate(const StoredCertificate& certificate, const std::string& record, Answer* answer);

}  // namespace kelvaroctl
