// The program: command line in, exit code out.
#pragma once

#include <string>
#include <vector>

namespace kelvaroctl {

// arguments: UTF-8, without the program's name.
int RunTool(const std::vector<std::string>& arguments);

}  // namespace kelvaroctl
