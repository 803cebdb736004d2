#include "provider/entry_points.h"
#include "provider/kept_buffer.h"
#include "provider/provider.h"
#include "support/log.h"
#include "support/wipe.h"

namespace {

void ReleaseClient(KVCClient** kvc)
{
    if (*kvc)
        KVCDelete(*kvc);
    *kvc = nullptr;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroFreeProvider(NCRYPT_PROV_HANDLE hProvider)
{
    LogLine(TEXT("KelvaroFreeProvider"), LOG_ENTRY_LEVEL);
    KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, TEXT("KelvaroFreeProvider"));
    ReleaseClient(&provider->machineKvc);
    ReleaseClient(&provider->userKvc);
    ReplaceBuffer(&provider->pszUseContext, &provider->cbUseContext, HeapPtr<WCHAR>(), SIZE_T{0});
    // Including the magic word, so that freeing the handle again fails while the memory can still be read.
    Wipe(provider, provider->cbLength);
    HeapFree(GetProcessHeap(), 0, provider);
    return ERROR_SUCCESS;
}
