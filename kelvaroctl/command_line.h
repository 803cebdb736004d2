// The command line: options that all commands share, and the command that it names.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/command.h"

namespace kelvaroctl {

// arguments: UTF-8, without the program's name. shared: the options that all commands have. Returns the command's
// action; empty if the command line asked for help or the version, which is printed. Throws a usage failure.
std::function<Answer(Tool&)> ParseCommandLine(const std::vector<std::string>& arguments,
                                              const std::vector<Command>& commands,
                                              const std::vector<Argument>& shared);

}  // namespace kelvaroctl
