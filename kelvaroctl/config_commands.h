// config show, set, unset, import: the settings of both hives.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddConfigCommands(CLI::App& app, Tool& tool);

}  // namespace kelvaroctl
