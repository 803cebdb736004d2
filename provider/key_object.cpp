#include "provider/key_object.h"

#include <string.h>

#include <new>

#include "provider/kept_buffer.h"
#include "provider/property_list.h"
#include "support/log.h"
#include "support/text.h"

struct AlgorithmLength {
    const WCHAR* name;
    DWORD bits;
};
// Of any other name the length is the caller's to set.
static constexpr AlgorithmLength kDefaultLengths[] = {
    {TEXT("RSA"), 2048},      {TEXT("ECDSA_P256"), 256}, {TEXT("ECDH_P256"), 256}, {TEXT("ECDSA_P384"), 384},
    {TEXT("ECDH_P384"), 384}, {TEXT("ECDSA_P521"), 521}, {TEXT("ECDH_P521"), 521},
};

static DWORD DefaultLength(const WCHAR* algName)
{
    for (const AlgorithmLength& row : kDefaultLengths) {
        if (TextEqual(algName, row.name))
            return row.bits;
    }
    return 0;
}

static SECURITY_STATUS CopyKeyName(const WCHAR* name, WCHAR** copy)
{
    const TextView text = View(name);
    if (text.size() > kKeyNameLimit)
        return NTE_INVALID_PARAMETER;
    const size_t size = (text.size() + 1) * sizeof(WCHAR);
    *copy = static_cast<WCHAR*>(HeapAlloc(GetProcessHeap(), 0, size));
    if (!*copy)
        return NTE_NO_MEMORY;
    memcpy(*copy, name, size);
    return ERROR_SUCCESS;
}

SECURITY_STATUS CreateNewKeyObject(const WCHAR* pszKeyName, const WCHAR* pszAlgName, KSP_KEY** pKey,
                                   DWORD dwMachineFlag)
{
    void* block = HeapAlloc(GetProcessHeap(), 0, sizeof(KSP_KEY));
    if (!block)
        return NTE_NO_MEMORY;
    HeapPtr<KSP_KEY> key(new (block) KSP_KEY{});
    key->cbLength = sizeof(KSP_KEY);
    key->dwMagic = KSP_KEY_MAGIC;
    TextCopyCut(key->pszAlgName, kAlgNameChars, View(pszAlgName));
    key->dwBitLength = DefaultLength(key->pszAlgName);
    key->fMachineKey = dwMachineFlag;
    key->dwKeyUsage = kDefaultKeyUsage;
    PropertyListInit(&key->PropertyList);
    if (pszKeyName) {
        const SECURITY_STATUS status = CopyKeyName(pszKeyName, &key->pszKeyName);
        if (status != ERROR_SUCCESS)
            return status;
    }
    *pKey = key.release();
    return ERROR_SUCCESS;
}

template <typename T>
static void ReleaseField(T** field)
{
    HeapFree(GetProcessHeap(), 0, *field);
    *field = nullptr;
}

static void ReleaseProperties(PropertyLink* head)
{
    const PropertyLock lock(TEXT("DeleteKeyObject Failed to grab Semaphone - Result"));
    while (head->next != head) {
        LogLine(TEXT("DeleteKeyObject HeapFree pProperty"), LOG_STEP_LEVEL);
        FreeProperty(PropertyFromLink(head->next));
    }
}

SECURITY_STATUS DeleteKeyObject(KSP_KEY* pKey)
{
    LogLine(TEXT("DeleteKeyObject HeapFree pszKeyFilePath"), LOG_ENTRY_LEVEL);
    ReleaseField(&pKey->pszKeyFilePath);
    LogLine(TEXT("DeleteKeyObject HeapFree pszKeyName"), LOG_STEP_LEVEL);
    ReleaseField(&pKey->pszKeyName);
    LogLine(TEXT("DeleteKeyObject HeapFree pbKeyFile"), LOG_STEP_LEVEL);
    ReleaseField(&pKey->pbKeyFile);
    LogLine(TEXT("DeleteKeyObject HeapFree pbSecurityDescr"), LOG_STEP_LEVEL);
    ReplaceBuffer(&pKey->pbSecurityDescr, &pKey->cbSecurityDescr, HeapPtr<BYTE>(), DWORD{0});
    LogLine(TEXT("DeleteKeyObject HeapFree pbPrivateKey"), LOG_STEP_LEVEL);
    ReplaceBuffer(&pKey->pbPrivateKey, &pKey->cbPrivateKey, HeapPtr<BYTE>(), DWORD{0});
    LogLine(TEXT("DeleteKeyObject HeapFree PropertyList"), LOG_STEP_LEVEL);
    ReleaseProperties(&pKey->PropertyList);
    ReplaceBuffer(&pKey->pszUseContext, &pKey->cbUseContext, HeapPtr<WCHAR>(), SIZE_T{0});
    LogLine(TEXT("DeleteKeyObject Complete"), LOG_STEP_LEVEL);
    // A handle that is used once more is refused as long as the memory can be read.
    pKey->dwMagic = 0;
    HeapFree(GetProcessHeap(), 0, pKey);
    return ERROR_SUCCESS;
}
