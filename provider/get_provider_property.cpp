#include "provider/answers.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/property_trace.h"
#include "provider/property_value.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroGetProviderProperty");

struct ConstantProperty {
    const WCHAR* name;
    DWORD value;
};
constexpr ConstantProperty kConstants[] = {
    {NCRYPT_IMPL_TYPE_PROPERTY, NCRYPT_IMPL_HARDWARE_FLAG},
    {NCRYPT_MAX_NAME_LENGTH_PROPERTY, kClearNameLimit},
    {NCRYPT_VERSION_PROPERTY, 0x10000},
    {NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY, 0},
};

// The caller holds useContextLock for as long as it uses the value.
SECURITY_STATUS FindValue(const KSP_PROVIDER& provider, const WCHAR* name, PropertyValue* value)
{
    for (const ConstantProperty& row : kConstants) {
        if (TextEqual(name, row.name)) {
            value->Set(row.value);
            return ERROR_SUCCESS;
        }
    }
    const bool isName = TextEqual(name, NCRYPT_NAME_PROPERTY);
    if (!isName && !TextEqual(name, NCRYPT_USE_CONTEXT_PROPERTY))
        return NTE_NOT_SUPPORTED;
    const WCHAR* text = isName ? provider.pszName : provider.pszUseContext;
    if (!text)
        return NTE_INTERNAL_ERROR;
    value->SetText(text);
    return ERROR_SUCCESS;
}

SECURITY_STATUS CopyProperty(KSP_PROVIDER* provider, const WCHAR* name, const HostOutput& output)
{
    PropertyValue value;
    const ExclusiveLock lock(&provider->useContextLock);
    const SECURITY_STATUS status = FindValue(*provider, name, &value);
    return status == ERROR_SUCCESS ? AnswerBytes(value.bytes(), value.size(), output) : status;
}

SECURITY_STATUS AnswerProperty(KSP_PROVIDER* provider, const WCHAR* name, const HostOutput& output)
{
    const SECURITY_STATUS status = CopyProperty(provider, name, output);
    if (status == ERROR_SUCCESS && output.bytes)
        TraceProperty(kEntryPoint, name, output.bytes, *output.cbResult);
    return status;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroGetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbOutput,
                                                  DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    LogString(kEntryPoint, pszProperty, LOG_ENTRY_LEVEL);
    KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pszProperty || !pcbResult || View(pszProperty).size() > kPropertyNameLimit)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~NCRYPT_SILENT_FLAG) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    return Finish(AnswerProperty(provider, pszProperty, {pbOutput, cbOutput, pcbResult}), kEntryPoint);
}
