// The program: what is asked, what is done about it, and what is said.
#pragma once

#include <string>
#include <vector>

#include "register/module_files.h"

namespace kelvaro_register {

enum ExitCode : int {
    kDone = 0,
    kNotInstalled =
        1,  // status: something is missing; install: there is no module to register; check-secret: one in clear
    kUsage = 2,
    kRefused = 3,  // by the router
};

// Where the router looks, its own kind of programs first.
using ModulePlaces = std::vector<ModulePlace>;

// arguments: UTF-8, without the program's name. Appends what is to be printed to `output`.
int RunRegister(const std::vector<std::string>& arguments, const CngCalls& calls, const ModulePlaces& places,
                std::string* output);

}  // namespace kelvaro_register
