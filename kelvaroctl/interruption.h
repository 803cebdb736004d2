// What Ctrl-C leaves behind: nothing. The program still ends by the signal.
#pragma once

#include <filesystem>

#include "platform/platform.h"

namespace kelvaroctl {

// From now on, an interruption ends the terminal's line and restores what the functions below name.
void CleanUpWhenInterrupted();

// An unfinished output file, to be removed; an empty path for none.
void RemoveWhenInterrupted(const std::filesystem::path& file);

// A console and its mode; NULL for none.
void RestoreWhenInterrupted(HANDLE console, DWORD mode);

}  // namespace kelvaroctl
