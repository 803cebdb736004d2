// provider show, algorithms: what the provider says of itself.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddProviderCommands(CLI::App& app, Tool& tool);

}  // namespace kelvaroctl
