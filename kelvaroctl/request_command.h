// keys request: a certificate request of a vault key.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// keys: the command that it becomes a part of.
void AddRequestCommand(CLI::App& keys, Tool& tool);

}  // namespace kelvaroctl
