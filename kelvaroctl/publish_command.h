// certs publish: a certificate of the store into the vault.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddPublishCommand(CLI::App& certs, Tool& tool);

}  // namespace kelvaroctl
