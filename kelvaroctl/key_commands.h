// keys list, show, export, and properties: the keys of the vault and their public halves.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddKeyCommands(CLI::App& app, Tool& tool);

}  // namespace kelvaroctl
