#include "provider/answers.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/property_list.h"
#include "provider/property_trace.h"
#include "provider/property_value.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

static constexpr WCHAR kGet[] = TEXT("KelvaroGetKeyProperty");
static constexpr WCHAR kSet[] = TEXT("KelvaroSetKeyProperty");
static constexpr WCHAR kCertificateProperty[] = TEXT("SmartCardKeyCertificate");
static constexpr WCHAR kSecurityProperty[] = TEXT("Security Descr");

static SECURITY_STATUS ReadName(const KSP_KEY& key, PropertyValue* value)
{
    if (!key.pszKeyName)
        return NTE_NOT_SUPPORTED;
    value->SetText(key.pszKeyName);
    return ERROR_SUCCESS;
}

static SECURITY_STATUS ReadAlgorithmName(const KSP_KEY& key, PropertyValue* value)
{
    value->SetText(key.pszAlgName);
    return ERROR_SUCCESS;
}

// Curve keys included: hosts have always been told so.
static SECURITY_STATUS ReadAlgorithmGroup(const KSP_KEY& /*key*/, PropertyValue* value)
{
    value->SetText(TEXT("RSA"));
    return ERROR_SUCCESS;
}

static SECURITY_STATUS ReadBlockLength(const KSP_KEY& key, PropertyValue* value)
{
    // Written so that no length wraps.
    const DWORD bits = key.dwBitLength;
    value->Set(static_cast<DWORD>(bits / 8 + (bits % 8 != 0)));
    return ERROR_SUCCESS;
}

static SECURITY_STATUS ReadLengths(const KSP_KEY& key, PropertyValue* value)
{
    if (const NCRYPT_SUPPORTED_LENGTHS* lengths = SupportedLengths(key.pszAlgName))
        value->Set(*lengths);
    else
        value->SetSizeOnly(sizeof(NCRYPT_SUPPORTED_LENGTHS));
    return ERROR_SUCCESS;
}

// 0 for machine keys too.
static SECURITY_STATUS ReadKeyType(const KSP_KEY& /*key*/, PropertyValue* value)
{
    value->Set(DWORD{0});
    return ERROR_SUCCESS;
}

// An empty one: what the host set is only kept.
static SECURITY_STATUS ReadSecurityDescr(const KSP_KEY& /*key*/, PropertyValue* value)
{
    SECURITY_DESCRIPTOR descriptor = {};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    value->Set(descriptor);
    return ERROR_SUCCESS;
}

static SECURITY_STATUS ReadUiPolicy(const KSP_KEY& /*key*/, PropertyValue* value)
{
    NCRYPT_UI_POLICY policy = {};
    policy.dwVersion = 1;
    value->Set(policy);
    return ERROR_SUCCESS;
}

static SECURITY_STATUS ReadUseContext(const KSP_KEY& key, PropertyValue* value)
{
    value->SetText(key.pszUseContext ? key.pszUseContext : TEXT(""));
    return ERROR_SUCCESS;
}

struct NumberProperty {
    const WCHAR* name;
    std::atomic<DWORD> KSP_KEY::*field;
};
static constexpr NumberProperty kNumbers[] = {
    {TEXT("Length"), &KSP_KEY::dwBitLength},
    {TEXT("Export Policy"), &KSP_KEY::dwExportPolicy},
    {TEXT("Key Usage"), &KSP_KEY::dwKeyUsage},
    {TEXT("HWND Handle"), &KSP_KEY::hParentWnd},
};

struct ComposedProperty {
    const WCHAR* name;
    SECURITY_STATUS (*read)(const KSP_KEY& key, PropertyValue* value);
};
static constexpr ComposedProperty kComposed[] = {
    {TEXT("Name"), ReadName},
    {TEXT("Unique Name"), ReadName},
    {TEXT("Algorithm Name"), ReadAlgorithmName},
    {TEXT("Algorithm Group"), ReadAlgorithmGroup},
    {TEXT("Block Length"), ReadBlockLength},
    {TEXT("Lengths"), ReadLengths},
    {TEXT("Key Type"), ReadKeyType},
    {kSecurityProperty, ReadSecurityDescr},
    {TEXT("UI Policy"), ReadUiPolicy},
    {TEXT("Use Context"), ReadUseContext},
};

static SECURITY_STATUS FindValue(const KSP_KEY& key, const WCHAR* name, PropertyValue* value)
{
    for (const NumberProperty& row : kNumbers) {
        if (TextEqual(name, row.name)) {
            value->Set((key.*row.field).load());
            return ERROR_SUCCESS;
        }
    }
    for (const ComposedProperty& row : kComposed) {
        if (TextEqual(name, row.name))
            return row.read(key, value);
    }
    return NTE_NOT_SUPPORTED;
}

static SECURITY_STATUS CopyBuiltin(const KSP_KEY& key, const WCHAR* name, BYTE* output, DWORD cbOutput,
                                   DWORD* pcbResult)
{
    PropertyValue value;
    const ExclusiveLock lock(&key.lock);
    const SECURITY_STATUS status = FindValue(key, name, &value);
    if (status != ERROR_SUCCESS)
        return status;
    // The lengths of an algorithm that has no rule: their size can be asked for, they cannot be read.
    if (!value.bytes() && output && cbOutput >= value.size()) {
        *pcbResult = value.size();
        return NTE_NOT_SUPPORTED;
    }
    return AnswerBytes(value.bytes(), value.size(), output, cbOutput, pcbResult);
}

static SECURITY_STATUS AnswerBuiltin(const KSP_KEY& key, const WCHAR* name, BYTE* output, DWORD cbOutput,
                                     DWORD* pcbResult)
{
    const SECURITY_STATUS status = CopyBuiltin(key, name, output, cbOutput, pcbResult);
    if (status == ERROR_SUCCESS && output)
        TraceProperty(kGet, name, output, *pcbResult);
    return status;
}

static SECURITY_STATUS AnswerStored(KSP_KEY* key, const WCHAR* name, BYTE* output, DWORD cbOutput, DWORD* pcbResult)
{
    const PropertyLock lock(TEXT("KelvaroGetKeyProperty Failed to grab Semaphone - Result"));
    KSP_PROPERTY* property = nullptr;
    const SECURITY_STATUS status = FindKeyProperty(key, name, &property);
    if (status != ERROR_SUCCESS)
        return status;
    return AnswerBytes(property->data(), property->cbPropertyData, output, cbOutput, pcbResult);
}

SECURITY_STATUS WINAPI KelvaroGetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                             PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    LogNumber(kGet, pszProperty, static_cast<LONG>(cbOutput), LOG_ENTRY_LEVEL);
    KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return Fail(NTE_INVALID_HANDLE, kGet);
    if (!pszProperty || View(pszProperty).size() > kPropertyNameLimit || !pcbResult)
        return Fail(NTE_INVALID_PARAMETER, kGet);
    if (dwFlags & NCRYPT_PERSIST_ONLY_FLAG) {
        const SECURITY_STATUS status = AnswerStored(key, pszProperty, pbOutput, cbOutput, pcbResult);
        return status == ERROR_SUCCESS ? status : Fail(status, kGet);
    }
    if (TextEqual(pszProperty, kCertificateProperty)) {
        key->publishCert = 1;
        return NTE_NOT_SUPPORTED;  // without a line: a host that probes for the certificate has done nothing wrong
    }
    const SECURITY_STATUS status = AnswerBuiltin(*key, pszProperty, pbOutput, cbOutput, pcbResult);
    return status == ERROR_SUCCESS ? status : Fail(status, kGet);
}

// Security information comes as the low five bits; every other property takes the two persistence flags alone.
static bool FlagsAllowed(const WCHAR* name, DWORD flags)
{
    if (TextEqual(name, kSecurityProperty))
        return flags != 0 && (flags & 0x7FFFFFE0) == 0;
    return (flags & 0x3FFFFFFF) == 0;
}

// An entry of the same name gives way before the new one is made, so that it is lost when there is no memory.
static SECURITY_STATUS StoreProperty(KSP_KEY* key, const WCHAR* name, const BYTE* input, DWORD cbInput, DWORD flags)
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

static SECURITY_STATUS ApplyAndStore(KSP_KEY* key, const WCHAR* name, const BYTE* input, DWORD cbInput, DWORD flags)
{
    if ((flags & NCRYPT_PERSIST_ONLY_FLAG) == 0) {
        const SECURITY_STATUS status = SetBuildinKeyProperty(key, name, input, cbInput, &flags);
        if (status != ERROR_SUCCESS || (flags & NCRYPT_PERSIST_FLAG) == 0)
            return status;
    }
    return StoreProperty(key, name, input, cbInput, flags);
}

SECURITY_STATUS WINAPI KelvaroSetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                             PBYTE pbInput, DWORD cbInput, DWORD dwFlags)
{
    LogString(kSet, pszProperty, LOG_ENTRY_LEVEL);
    TraceProperty(kSet, pszProperty, pbInput, cbInput);
    KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return Fail(NTE_INVALID_HANDLE, kSet);
    if (!pszProperty || View(pszProperty).size() > kPropertyNameLimit || !pbInput)
        return Fail(NTE_INVALID_PARAMETER, kSet);
    // In any letter case, and whatever becomes of the call: only the exact name passes the rules further down.
    if (TextEqualNoCase(View(pszProperty), View(kCertificateProperty))) {
        LogLine(TEXT("KelvaroSetKeyProperty SmartCardKeyCertificate Set publishCert"), LOG_STEP_LEVEL);
        key->publishCert = 1;
    }
    const DWORD flags = dwFlags & ~NCRYPT_SILENT_FLAG;
    if (!FlagsAllowed(pszProperty, flags))
        return Fail(NTE_BAD_FLAGS, kSet);
    const SECURITY_STATUS status = ApplyAndStore(key, pszProperty, pbInput, cbInput, flags);
    return status == ERROR_SUCCESS ? status : Fail(status, kSet);
}
