// The provider's settings keys, one for each kind of program, and its log folder. All functions throw RefusedStep.
#pragma once

#include <string>

namespace kelvaro_register {

// Creates the keys and the folder for the system and administrators only. Existing ones get the same access unless an
// administrator has set one. A folder that administrators don't own is refused. Log settings get defaults.
void PrepareSettings();

// Save, restore and delete a copy of the settings. Only a complete copy is restored.
void SaveSettings();
void RestoreSettings();
void ForgetSettings();

// The kinds of programs whose settings have the client secret in clear text: "64-bit programs"; empty for none.
std::string ClearSecrets();

// The kinds of programs whose settings ordinary users can read or change; empty for none.
std::string OpenSettings();

// Lines for an administrator: what exists, and whether ordinary users may read or change it.
std::string DescribeSettings();

}  // namespace kelvaro_register
