// The manual page and the shells' completions, made from the table of commands.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/command.h"

namespace kelvaroctl {

std::string ManualPage(const std::vector<Command>& commands, const std::vector<Argument>& shared);
std::string BashCompletion(const std::vector<Command>& commands, const std::vector<Argument>& shared);
std::string ZshCompletion(const std::vector<Command>& commands, const std::vector<Argument>& shared);

}  // namespace kelvaroctl
