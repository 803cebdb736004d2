// What Ctrl-C leaves behind: nothing. The program still ends by the signal.
#pragma once

#include <filesystem>

namespace kelvaroctl {

// From now on, an interruption ends the terminal's line and removes the file named below.
void CleanUpWhenInterrupted();

// An unfinished output file; an empty path for none.
void RemoveWhenInterrupted(const std::filesystem::path& file);

}  // namespace kelvaroctl
