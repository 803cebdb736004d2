// encrypt and decrypt: small files against RSA keys of the vault.
#pragma once

#include <CLI/CLI.hpp>

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

void AddEncryptCommands(CLI::App& app, Tool& tool);

}  // namespace kelvaroctl
