// certs list, install, publish, sync: certificates between the store and the vault.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddCertCommands(CLI::App& app, Tool& tool);

}  // namespace kelvaroctl
