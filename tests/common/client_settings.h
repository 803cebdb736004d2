// Settings for the vault that the simulator begins with.
#pragma once

#include "tests/common/test_root.h"

// Settings of both hives for client credentials against the vault Simulator::kVault, with plain keys.
void WriteClientSettings(TestRoot& root);
