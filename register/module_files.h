// The module's files: whether they stand where CNG looks for them, and whether programs of that place can load them.
#pragma once

#include <string>
#include <vector>

#include "register/registration.h"

namespace kelvaro_register {

constexpr WORD kMachineX86 = 0x014C;
constexpr WORD kMachineX64 = 0x8664;
constexpr WORD kMachineArm64 = 0xAA64;

// A folder in which the router of one kind of program looks.
struct ModulePlace {
    std::string programs;  // "64-bit programs"
    WideText folder;       // as this program must name it
    WideText shownFolder;  // as everybody else names it
    WORD machine;          // what its programs can load
};

enum class ModuleFit { Missing, Unreadable, NoModule, WrongMachine, Fits };

struct ModuleFile {
    ModuleFit fit = ModuleFit::Missing;
    WORD machine = 0;  // for WrongMachine and Fits
};

// Reads the header of the module's file in that folder.
ModuleFile LookAtModule(const ModulePlace& place);

// "x64"; a number for a machine without a name here.
std::string MachineName(WORD machine);

}  // namespace kelvaro_register
