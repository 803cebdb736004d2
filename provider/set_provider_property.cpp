#include <utility>

#include "provider/entry_points.h"
#include "provider/kept_buffer.h"
#include "provider/key_object.h"
#include "provider/property_trace.h"
#include "provider/provider.h"
#include "support/heap.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroSetProviderProperty");

// Keeps the host's bytes as they are, followed by zeros: without a terminator the context ends with its bytes. If
// memory runs out, the old context is still lost.
SECURITY_STATUS SetUseContext(KSP_PROVIDER* provider, const BYTE* input, DWORD cbInput)
{
    // Three more bytes: the missing half of an incomplete last character, and the terminator.
    const uint64_t size = uint64_t{cbInput} + 3;
    HeapPtr<WCHAR> copy(static_cast<WCHAR*>(HeapAllocSized(HEAP_ZERO_MEMORY, size)));
    if (copy)
        memcpy(copy.get(), input, cbInput);
    const SECURITY_STATUS status = copy ? ERROR_SUCCESS : NTE_NO_MEMORY;
    const ExclusiveLock lock(&provider->useContextLock);
    ReplaceBuffer(&provider->pszUseContext, &provider->cbUseContext, std::move(copy), static_cast<SIZE_T>(size));
    return status;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroSetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbInput,
                                                  DWORD cbInput, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    TraceProperty(kEntryPoint, pszProperty, pbInput, cbInput);
    KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pszProperty || View(pszProperty).size() > kPropertyNameLimit || !pbInput)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~NCRYPT_SILENT_FLAG) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    if (!TextEqual(pszProperty, NCRYPT_USE_CONTEXT_PROPERTY))
        return FailStatus(NTE_NOT_SUPPORTED, kEntryPoint);
    return Finish(SetUseContext(provider, pbInput, cbInput), kEntryPoint);
}
