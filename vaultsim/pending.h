// Creating certificates: the policy, the pending request, the merge.
#pragma once

#include "vaultsim/request.h"

namespace vaultsim {

Answer CreateCertificate(const VaultRequest& request);
Answer GetPending(const VaultRequest& request);
Answer DeletePending(const VaultRequest& request);
Answer MergeCertificate(const VaultRequest& request);

}  // namespace vaultsim
