// Deletion, the deleted areas, recovery and purge, of keys and of certificates.
#pragma once

#include "vaultsim/request.h"

namespace vaultsim {

// With the vault locked: throw a Refusal with status 409 where the name belongs to an object that is deleted or being
// deleted.
void RequireFreeKeyName(Vault& vault, const std::string& name);
void RequireFreeCertificateName(Vault& vault, const std::string& name);

Answer DeleteKey(const VaultRequest& request);
Answer GetDeletedKey(const VaultRequest& request);
Answer ListDeletedKeys(const VaultRequest& request);
Answer RecoverKey(const VaultRequest& request);
Answer PurgeKey(const VaultRequest& request);

Answer DeleteCertificate(const VaultRequest& request);
Answer GetDeletedCertificate(const VaultRequest& request);
Answer ListDeletedCertificates(const VaultRequest& request);
Answer RecoverCertificate(const VaultRequest& request);
Answer PurgeCertificate(const VaultRequest& request);

}  // namespace vaultsim
