#include "provider/answers.h"
#include "provider/entry_points.h"
#include "provider/key_properties.h"
#include "provider/property_list.h"
#include "provider/property_trace.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroGetKeyProperty");

SECURITY_STATUS CopyBuildin(const KSP_KEY& key, const WCHAR* name, const HostOutput& output)
{
    PropertyValue value;
    const ExclusiveLock lock(&key.lock);
    const SECURITY_STATUS status = ReadBuildinKeyProperty(key, name, &value);
    return status == ERROR_SUCCESS ? AnswerBytes(value.bytes(), value.size(), output) : status;
}

SECURITY_STATUS AnswerBuildin(const KSP_KEY& key, const WCHAR* name, const HostOutput& output)
{
    const SECURITY_STATUS status = CopyBuildin(key, name, output);
    if (status == ERROR_SUCCESS && output.bytes)
        TraceProperty(kEntryPoint, name, output.bytes, *output.cbResult);
    return status;
}

SECURITY_STATUS AnswerStored(KSP_KEY* key, const WCHAR* name, const HostOutput& output)
{
    const PropertyLock lock(TEXT("KelvaroGetKeyProperty Failed to grab Semaphone - Result"));
    KSP_PROPERTY* property = nullptr;
    const SECURITY_STATUS status = FindKeyProperty(key, name, &property);
    return status == ERROR_SUCCESS ? AnswerBytes(property->data(), property->cbPropertyData, output) : status;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroGetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                             PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    LogNumber(kEntryPoint, pszProperty, static_cast<LONG>(cbOutput), LOG_ENTRY_LEVEL);
    KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pszProperty || View(pszProperty).size() > kPropertyNameLimit || !pcbResult)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    const HostOutput output = {pbOutput, cbOutput, pcbResult};
    if (dwFlags & NCRYPT_PERSIST_ONLY_FLAG)
        return Finish(AnswerStored(key, pszProperty, output), kEntryPoint);
    if (TextEqual(pszProperty, NCRYPT_CERTIFICATE_PROPERTY)) {
        key->publishCert = 1;
        return NTE_NOT_SUPPORTED;  // not logged: looking for the certificate isn't an error
    }
    return Finish(AnswerBuildin(*key, pszProperty, output), kEntryPoint);
}
