// Runs this program as a child process, which can be killed. Each system has its own source, chosen by the build.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

namespace kelvaroctl {

struct ChildResult {
    bool ended = false;  // within the limit
    int exit = -1;       // its exit code, if it has ended by itself
    std::string out;     // its standard output
};

// Runs this program with `arguments`, in UTF-8. The process is killed at the limit, and when this one ends.
ChildResult RunChild(const std::vector<std::string>& arguments, DWORD limitMs);

// Windows: an argument as the C runtime reads it from a command line.
std::string QuotedArgument(const std::string& argument);

}  // namespace kelvaroctl
