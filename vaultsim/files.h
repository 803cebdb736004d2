// Files of the simulator's directory.
#pragma once

#include <optional>
#include <string>

namespace vaultsim {

void MakeDirectory(const std::string& path);  // its parents too; mode 0700 if it is new; throws
void WriteFile(const std::string& path, const std::string& content, unsigned mode);  // throws
std::optional<std::string> ReadFile(const std::string& path);

}  // namespace vaultsim
