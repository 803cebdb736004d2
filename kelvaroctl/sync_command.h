// certs sync: the vault's new certificates into the machine's store.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddSyncCommand(CLI::App& certs, Tool& tool);

}  // namespace kelvaroctl
