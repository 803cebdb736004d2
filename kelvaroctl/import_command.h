// keys import: what the provider makes of a private key in a file.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// keys: the command that it becomes a part of.
void AddImportCommand(CLI::App& keys, Tool& tool);

}  // namespace kelvaroctl
