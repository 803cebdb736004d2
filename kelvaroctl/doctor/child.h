// This program once more, as a process that can be ended. Each system has its own source, chosen by the build.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

namespace kelvaroctl {

struct ChildResult {
    bool ended = false;  // by itself, within the limit
    int exit = -1;       // then
    std::string out;     // its standard output
};

// Runs this program with `arguments`, in UTF-8. The process is ended at the limit, and when this one ends.
ChildResult RunChild(const std::vector<std::string>& arguments, DWORD limitMs);

}  // namespace kelvaroctl
