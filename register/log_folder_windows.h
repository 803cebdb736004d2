// The provider's log folder: Zandrel\Kelvaro\Logs below ProgramData.
#pragma once

#include "register/registration.h"
#include "register/security_windows.h"

namespace kelvaro_register {

// Returns its path and creates what is missing of it. Ordinary users may create folders in ProgramData, so a folder of
// theirs, or one that leads elsewhere, is refused with RefusedStep.
WideText PrepareLogFolder();

bool HasLogFolder();

// Removes its folders that are empty.
void RemoveLogFolder();

std::string DescribeLogFolder();

}  // namespace kelvaro_register
