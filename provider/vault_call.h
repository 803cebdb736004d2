// The start of every operation that talks to the vault.
#pragma once

#include "keyvault/kvc.h"

// Sets *call to a new call on `client` (may be NULL) with a valid token. The caller keeps it until the operation's last
// request to the vault. 0; NTE_INVALID_PARAMETER for a NULL client; NTE_NO_MEMORY, also for a token that was granted
// but couldn't be kept; SEC_E_LOGON_DENIED, logged at level 1 with the text signInFailure. Blocks for a sign-in if the
// token has expired.
SECURITY_STATUS BeginVaultCall(KVCClient* client, const WCHAR* signInFailure, KVCCall* call);
