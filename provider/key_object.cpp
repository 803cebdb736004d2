#include "provider/key_object.h"

#include <string.h>

#include <new>

#include "keyvault/key_algorithms.h"
#include "provider/kept_buffer.h"
#include "support/log.h"
#include "support/text.h"

namespace {

// 0 for any other name: the caller sets the length.
DWORD DefaultLength(const WCHAR* algName)
{
    if (TextEqual(algName, BCRYPT_RSA_ALGORITHM))
        return kRsaLengths.dwDefaultLength;
    const Curve* curve = CurveOfAlgorithm(algName);
    return curve ? curve->bits : 0;
}

SECURITY_STATUS CopyKeyName(const WCHAR* name, WCHAR** copy)
{
    const TextView text = View(name);
    if (text.size() > kKeyNameLimit)
        return NTE_INVALID_PARAMETER;
    *copy = HeapCopy<WCHAR>(name, (text.size() + 1) * sizeof(WCHAR)).release();
    return *copy ? ERROR_SUCCESS : NTE_NO_MEMORY;
}

template <typename T>
void ReleaseField(T** field)
{
    HeapFree(GetProcessHeap(), 0, *field);
    *field = nullptr;
}

void ReleaseProperties(PropertyLink* head)
{
    const PropertyLock lock(TEXT("DeleteKeyObject Failed to grab Semaphone - Result"));
    while (head->next != head) {
        LogLine(TEXT("DeleteKeyObject HeapFree pProperty"), LOG_STEP_LEVEL);
        FreeProperty(PropertyFromLink(head->next));
    }
}

}  // namespace

SECURITY_STATUS CreateNewKeyObject(const WCHAR* pszKeyName, const WCHAR* pszAlgName, KSP_KEY** pKey,
                                   DWORD dwMachineFlag)
{
    void* block = HeapAlloc(GetProcessHeap(), 0, sizeof(KSP_KEY));
    if (!block)
        return NTE_NO_MEMORY;
    HeapPtr<KSP_KEY> key(new (block) KSP_KEY{});
    key->cbLength = sizeof(KSP_KEY);
    key->dwMagic = KSP_KEY_MAGIC;
    TextCopyCut(key->pszAlgName, kAlgIDChars, View(pszAlgName));
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
    // So that using the handle again fails while the memory can still be read.
    pKey->dwMagic = 0;
    HeapFree(GetProcessHeap(), 0, pKey);
    return ERROR_SUCCESS;
}

SECURITY_STATUS FindKeyProperty(KSP_KEY* pKey, const WCHAR* pszName, KSP_PROPERTY** pProperty)
{
    for (PropertyLink* link = pKey->PropertyList.next; link != &pKey->PropertyList; link = link->next) {
        KSP_PROPERTY* property = PropertyFromLink(link);
        if (TextEqual(property->szName, pszName)) {
            *pProperty = property;
            return ERROR_SUCCESS;
        }
    }
    return NTE_NOT_FOUND;
}
