// The provider's log folder: Zandrel\Kelvaro\Logs below ProgramData.
#pragma once

#include <set>

#include "register/registration.h"
#include "register/security_windows.h"

namespace kelvaro_register {

// Returns its path and creates what is missing of it. Ordinary users may create folders in ProgramData, so a folder of
// theirs, or one that leads elsewhere, is refused with RefusedStep.
WideText PrepareLogFolder();

bool HasLogFolder();

// Removes its folders that are empty.
void RemoveLogFolder();

// Lines for an administrator: who may use that folder, and who may write to the others of `inUse`.
std::string DescribeLogFolders(const std::set<WideText>& inUse);

}  // namespace kelvaro_register
