// The start of every operation that talks to the vault.
#pragma once

#include "keyvault/kvc.h"

// Puts a call record of `client` into *call and makes its token valid. client: may be NULL. The caller holds the record
// until the operation's last use of the vault, and drops it after a failure too. 0; NTE_INVALID_PARAMETER for a NULL
// client; NTE_NO_MEMORY, also for a token that was granted but couldn't be kept; SEC_E_LOGON_DENIED, logged at level 1
// with signInFailure as its text. Blocks for a sign-in when the token has expired.
SECURITY_STATUS BeginVaultCall(KVCClient* client, const WCHAR* signInFailure, KVCCall* call);
