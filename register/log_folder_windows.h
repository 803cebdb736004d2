// The folder for the provider's log: Zandrel\Kelvaro\Logs below the machine's folder for programs' data.
#pragma once

#include "register/registration.h"
#include "register/security_windows.h"

namespace kelvaro_register {

// Its path. Makes what is missing of it. Ordinary users may make folders in its parent's parent: one that they made, or
// that leads elsewhere, is refused with RefusedStep.
WideText PrepareLogFolder();

bool HasLogFolder();

// Takes the empty ones of its folders away.
void RemoveLogFolder();

std::string DescribeLogFolder();

}  // namespace kelvaro_register
