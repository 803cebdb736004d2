// The program's commands, its output and its exit codes.
#pragma once

#include <string>
#include <vector>

#include "register/module_files.h"

namespace kelvaro_register {

enum ExitCode : int {
    kDone = 0,
    kNotInstalled = 1,  // status: not ready; install: no module that fits; a check failed
    kUsage = 2,
    kRefused = 3,  // by Windows
};

// Where the router looks for the module; first for programs of the system's own kind.
using ModulePlaces = std::vector<ModulePlace>;

// arguments: UTF-8, without the program's name. Appends to `output`, for the caller to print. Returns an ExitCode.
int RunRegister(const std::vector<std::string>& arguments, const CngCalls& calls, const ModulePlaces& places,
                std::string* output);

}  // namespace kelvaro_register
