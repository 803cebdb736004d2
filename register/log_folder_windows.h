// The provider's log folder: Zandrel\Kelvaro\Logs below ProgramData.
#pragma once

#include <set>

#include "register/registration.h"
#include "register/security_windows.h"

namespace kelvaro_register {

// Creates the missing parts of the folder and returns its path. Ordinary users may create folders in ProgramData, so a
// folder owned by one of them, or a link, is refused with RefusedStep.
WideText PrepareLogFolder();

bool HasLogFolder();

// Removes its folders that are empty.
void RemoveLogFolder();

// Lines for an administrator: who may use that folder, and who may write to the other folders in `inUse`.
std::string DescribeLogFolders(const std::set<WideText>& inUse);

}  // namespace kelvaro_register
