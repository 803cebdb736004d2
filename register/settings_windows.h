// What the machine keeps for the provider: the settings' keys, one for each kind of program, and the folder for its
// log.
//
// All throw RefusedStep.
#pragma once

#include <string>

namespace kelvaro_register {

// Makes the keys and the folder, for the system and the administrators alone. What is there already is closed to others
// unless an administrator has done so. A folder that is not the administrators' own is refused. Settings that say where
// to log are set where they are missing.
void PrepareSettings();

// Keeps a copy of the settings, puts them back as they were then, drops the copy. Without a whole copy nothing is put
// back.
void SaveSettings();
void RestoreSettings();
void ForgetSettings();

// The kinds of programs whose settings hold the client secret in clear: "64-bit programs"; empty for none.
std::string ClearSecrets();

// Lines for an administrator: what is there, and whether ordinary users may read or change it.
std::string DescribeSettings();

}  // namespace kelvaro_register
