// POST /keys/NAME/VERSION/OPERATION: sign, verify, encrypt, decrypt.
#pragma once

#include "vaultsim/request.h"

namespace vaultsim {

Answer OperateKey(const VaultRequest& request);

}  // namespace vaultsim
