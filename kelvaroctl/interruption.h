// Cleans up after Ctrl-C. The signal still ends the program.
#pragma once

#include <filesystem>

#include "platform/platform.h"

namespace kelvaroctl {

// From now on, an interruption undoes what the functions below name, and ends the line on standard error if that is a
// terminal.
void CleanUpWhenInterrupted(bool errorIsTerminal);

// An unfinished output file, to be removed; an empty path for none.
void RemoveWhenInterrupted(const std::filesystem::path& file);

// A console and its mode; NULL for none.
void RestoreWhenInterrupted(HANDLE console, DWORD mode);

}  // namespace kelvaroctl
