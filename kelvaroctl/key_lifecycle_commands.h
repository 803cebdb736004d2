// keys create, delete: the commands that change what the vault holds.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// keys: the command that they become a part of.
void AddKeyLifecycleCommands(CLI::App& keys, Tool& tool);

}  // namespace kelvaroctl
