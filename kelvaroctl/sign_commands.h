// sign and verify: files and digests against keys of the vault.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddSignCommands(CLI::App& app, Tool& tool);

}  // namespace kelvaroctl
