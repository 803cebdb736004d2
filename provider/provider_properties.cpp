#include <utility>

#include "provider/answers.h"
#include "provider/entry_points.h"
#include "provider/kept_buffer.h"
#include "provider/key_object.h"
#include "provider/property_trace.h"
#include "provider/property_value.h"
#include "provider/provider.h"
#include "support/heap.h"
#include "support/log.h"
#include "support/text.h"

static constexpr WCHAR kGet[] = TEXT("KelvaroGetProviderProperty");
static constexpr WCHAR kSet[] = TEXT("KelvaroSetProviderProperty");

struct ConstantProperty {
    const WCHAR* name;
    DWORD value;
};
static constexpr ConstantProperty kConstants[] = {
    {TEXT("Impl Type"), NCRYPT_IMPL_HARDWARE_FLAG},
    {TEXT("Max Name Length"), kClearNameLimit},
    {TEXT("Version"), 0x10000},
    {TEXT("Security Descr Support"), 0},
};

// The caller holds useContextLock for as long as it uses the value.
static SECURITY_STATUS FindValue(const KSP_PROVIDER& provider, const WCHAR* name, PropertyValue* value)
{
    for (const ConstantProperty& row : kConstants) {
        if (TextEqual(name, row.name)) {
            value->Set(row.value);
            return ERROR_SUCCESS;
        }
    }
    if (TextEqual(name, TEXT("Name"))) {
        value->SetText(provider.pszName);
        return ERROR_SUCCESS;
    }
    if (!TextEqual(name, TEXT("Use Context")))
        return NTE_NOT_SUPPORTED;
    if (!provider.pszUseContext)
        return NTE_INTERNAL_ERROR;
    value->SetText(provider.pszUseContext);
    return ERROR_SUCCESS;
}

static SECURITY_STATUS CopyProperty(KSP_PROVIDER* provider, const WCHAR* name, BYTE* output, DWORD cbOutput,
                                    DWORD* pcbResult)
{
    PropertyValue value;
    const ExclusiveLock lock(&provider->useContextLock);
    const SECURITY_STATUS status = FindValue(*provider, name, &value);
    if (status != ERROR_SUCCESS)
        return status;
    return AnswerBytes(value.bytes(), value.size(), output, cbOutput, pcbResult);
}

static SECURITY_STATUS AnswerProperty(KSP_PROVIDER* provider, const WCHAR* name, BYTE* output, DWORD cbOutput,
                                      DWORD* pcbResult)
{
    const SECURITY_STATUS status = CopyProperty(provider, name, output, cbOutput, pcbResult);
    if (status == ERROR_SUCCESS && output)
        TraceProperty(kGet, name, output, *pcbResult);
    return status;
}

SECURITY_STATUS WINAPI KelvaroGetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbOutput,
                                                  DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    LogString(kGet, pszProperty, LOG_ENTRY_LEVEL);
    KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return Fail(NTE_INVALID_HANDLE, kGet);
    if (!pszProperty || !pcbResult || View(pszProperty).size() > kPropertyNameLimit)
        return Fail(NTE_INVALID_PARAMETER, kGet);
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return Fail(NTE_BAD_FLAGS, kGet);
    const SECURITY_STATUS status = AnswerProperty(provider, pszProperty, pbOutput, cbOutput, pcbResult);
    return status == ERROR_SUCCESS ? status : Fail(status, kGet);
}

// The host's bytes unchanged, with zeros behind them: a context without a terminator ends with its bytes. NULL: no
// memory.
static HeapPtr<WCHAR> CopyContext(const BYTE* input, DWORD cbInput, SIZE_T* cbCopy)
{
    // Three: half a character that was left open, and the terminator.
    const uint64_t size = uint64_t{cbInput} + 3;
    HeapPtr<WCHAR> copy(static_cast<WCHAR*>(HeapAllocSized(HEAP_ZERO_MEMORY, size)));
    *cbCopy = copy ? static_cast<SIZE_T>(size) : 0;
    if (copy)
        memcpy(copy.get(), input, cbInput);
    return copy;
}

// Without memory the old context is gone all the same.
static SECURITY_STATUS SetUseContext(KSP_PROVIDER* provider, const BYTE* input, DWORD cbInput)
{
    SIZE_T cbCopy = 0;
    HeapPtr<WCHAR> copy = CopyContext(input, cbInput, &cbCopy);
    const SECURITY_STATUS status = copy ? ERROR_SUCCESS : NTE_NO_MEMORY;
    const ExclusiveLock lock(&provider->useContextLock);
    ReplaceBuffer(&provider->pszUseContext, &provider->cbUseContext, std::move(copy), cbCopy);
    return status;
}

SECURITY_STATUS WINAPI KelvaroSetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbInput,
                                                  DWORD cbInput, DWORD dwFlags)
{
    LogLine(kSet, LOG_ENTRY_LEVEL);
    TraceProperty(kSet, pszProperty, pbInput, cbInput);
    KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return Fail(NTE_INVALID_HANDLE, kSet);
    if (!pszProperty || View(pszProperty).size() > kPropertyNameLimit || !pbInput)
        return Fail(NTE_INVALID_PARAMETER, kSet);
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return Fail(NTE_BAD_FLAGS, kSet);
    if (!TextEqual(pszProperty, TEXT("Use Context")))
        return Fail(NTE_NOT_SUPPORTED, kSet);
    const SECURITY_STATUS status = SetUseContext(provider, pbInput, cbInput);
    return status == ERROR_SUCCESS ? status : Fail(status, kSet);
}
