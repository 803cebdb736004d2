#include "provider/vault_call.h"

#include "provider/provider.h"

SECURITY_STATUS BeginVaultCall(KVCClient* client, const WCHAR* signInFailure, KVCCall* call)
{
    if (!client)
        return NTE_INVALID_PARAMETER;
    call->reset(KVCBeginCall(client));
    if (!*call)
        return NTE_NO_MEMORY;
    const KVCLogOnResult result = KVCLogOn(call->get());
    if (result == KVCLogOnResult::NoMemory)
        return NTE_NO_MEMORY;
    return result == KVCLogOnResult::Ready ? ERROR_SUCCESS : FailStatus(SEC_E_LOGON_DENIED, signInFailure);
}
