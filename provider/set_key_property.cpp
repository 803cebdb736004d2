#include "provider/entry_points.h"
#include "provider/key_properties.h"
#include "provider/property_list.h"
#include "provider/property_trace.h"
#include "provider/provider.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroSetKeyProperty");

// Security information is in the low five bits; every other property accepts only the two persistence flags.
bool FlagsAllowed(const WCHAR* name, DWORD flags)
{
    if (TextEqual(name, NCRYPT_SECURITY_DESCR_PROPERTY))
        return flags != 0 && (flags & 0x7FFFFFE0) == 0;
    return (flags & 0x3FFFFFFF) == 0;
}

// An entry of the same name is freed before the new one is created, so it is lost if memory runs out.
SECURITY_STATUS StoreProperty(KSP_KEY* key, const WCHAR* name, const BYTE* input, DWORD cbInput, DWORD flags)
{
    const PropertyLock lock(TEXT("KelvaroSetKeyProperty Failed to grab Semaphone - Result"));
    KSP_PROPERTY* property = nullptr;
    if (FindKeyProperty(key, name, &property) == ERROR_SUCCESS)
        FreeProperty(property);
    const SECURITY_STATUS status = MakeKeyProperty(name, input, cbInput, flags, &property);
    if (status == ERROR_SUCCESS)
        PropertyListAppend(&key->PropertyList, property);
    return status;
}

SECURITY_STATUS ApplyAndStore(KSP_KEY* key, const WCHAR* name, const BYTE* input, DWORD cbInput, DWORD flags)
{
    if ((flags & NCRYPT_PERSIST_ONLY_FLAG) == 0) {
        const SECURITY_STATUS status = SetBuildinKeyProperty(key, name, input, cbInput, &flags);
        if (status != ERROR_SUCCESS || (flags & NCRYPT_PERSIST_FLAG) == 0)
            return status;
    }
    return StoreProperty(key, name, input, cbInput, flags);
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroSetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                             PBYTE pbInput, DWORD cbInput, DWORD dwFlags)
{
    LogString(kEntryPoint, pszProperty, LOG_ENTRY_LEVEL);
    TraceProperty(kEntryPoint, pszProperty, pbInput, cbInput);
    KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pszProperty || View(pszProperty).size() > kPropertyNameLimit || !pbInput)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    // In any letter case, and even if the call fails: only the exact name passes the rules below.
    if (TextEqualNoCase(View(pszProperty), View(NCRYPT_CERTIFICATE_PROPERTY))) {
        LogLine(TEXT("KelvaroSetKeyProperty SmartCardKeyCertificate Set publishCert"), LOG_STEP_LEVEL);
        key->publishCert = 1;
    }
    const DWORD flags = dwFlags & ~NCRYPT_SILENT_FLAG;
    if (!FlagsAllowed(pszProperty, flags))
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    return Finish(ApplyAndStore(key, pszProperty, pbInput, cbInput, flags), kEntryPoint);
}
