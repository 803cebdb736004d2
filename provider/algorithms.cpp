#include "provider/algorithms.h"

#include <string.h>

#include "provider/entry_points.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kIsAlgSupported[] = TEXT("KelvaroIsAlgSupported");
constexpr WCHAR kEnumAlgorithms[] = TEXT("KelvaroEnumAlgorithms");

constexpr DWORD kSignature = NCRYPT_SIGNATURE_OPERATION;
constexpr DWORD kEncryptAndSign = NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_SIGNATURE_OPERATION;
constexpr DWORD kAgreeAndSign = NCRYPT_SECRET_AGREEMENT_OPERATION | NCRYPT_SIGNATURE_OPERATION;
constexpr DWORD kAgreement = NCRYPT_SECRET_AGREEMENT_OPERATION;

struct Algorithm {
    const WCHAR* name;
    DWORD interfaceClass;
    DWORD operations;
    DWORD selectedBy;  // a host that asks for one of these operations gets the row
};
// The ECDH keys sign too, yet a host that asks for signatures is not shown them.
constexpr Algorithm kAlgorithms[] = {
    {TEXT("RSA"), NCRYPT_ASYMMETRIC_ENCRYPTION_INTERFACE, kEncryptAndSign, kEncryptAndSign},
    {TEXT("ECDSA_P256"), NCRYPT_SIGNATURE_INTERFACE, kSignature, kSignature},
    {TEXT("ECDSA_P384"), NCRYPT_SIGNATURE_INTERFACE, kSignature, kSignature},
    {TEXT("ECDSA_P521"), NCRYPT_SIGNATURE_INTERFACE, kSignature, kSignature},
    {TEXT("ECDH_P256"), NCRYPT_SECRET_AGREEMENT_INTERFACE, kAgreeAndSign, kAgreement},
    {TEXT("ECDH_P384"), NCRYPT_SECRET_AGREEMENT_INTERFACE, kAgreeAndSign, kAgreement},
    {TEXT("ECDH_P521"), NCRYPT_SECRET_AGREEMENT_INTERFACE, kAgreeAndSign, kAgreement},
};

bool IsSelected(const Algorithm& algorithm, DWORD dwAlgOperations)
{
    return dwAlgOperations == 0 || (algorithm.selectedBy & dwAlgOperations) != 0;
}

struct Selection {
    DWORD rows = 0;
    size_t cbNames = 0;  // with their terminators
};

Selection Select(DWORD dwAlgOperations)
{
    Selection selection;
    for (const Algorithm& algorithm : kAlgorithms) {
        if (IsSelected(algorithm, dwAlgOperations)) {
            ++selection.rows;
            selection.cbNames += (View(algorithm.name).size() + 1) * sizeof(WCHAR);
        }
    }
    return selection;
}

// The records first, the names packed behind them. NULL: no memory.
HeapPtr<NCryptAlgorithmName> MakeList(const Selection& selection, DWORD dwAlgOperations)
{
    const size_t cbRows = selection.rows * sizeof(NCryptAlgorithmName);
    const size_t cbList = cbRows + selection.cbNames;
    HeapPtr<NCryptAlgorithmName> list(static_cast<NCryptAlgorithmName*>(HeapAlloc(GetProcessHeap(), 0, cbList)));
    if (!list)
        return list;
    memset(static_cast<void*>(list.get()), 0xCC, cbList);

    NCryptAlgorithmName* row = list.get();
    WCHAR* name = reinterpret_cast<WCHAR*>(row + selection.rows);
    for (const Algorithm& algorithm : kAlgorithms) {
        if (!IsSelected(algorithm, dwAlgOperations))
            continue;
        const size_t cchName = View(algorithm.name).size() + 1;
        memcpy(name, algorithm.name, cchName * sizeof(WCHAR));
        row->pszName = name;
        row->dwClass = algorithm.interfaceClass;
        row->dwAlgOperations = algorithm.operations;
        row->dwFlags = 0;
        name += cchName;
        ++row;
    }
    return list;
}

}  // namespace

bool IsOfferedAlgorithm(const WCHAR* algName)
{
    for (const Algorithm& algorithm : kAlgorithms) {
        if (TextEqual(algName, algorithm.name))
            return true;
    }
    return false;
}

SECURITY_STATUS WINAPI KelvaroIsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags)
{
    LogString(kIsAlgSupported, pszAlgId, LOG_ENTRY_LEVEL);
    if (!ProviderFromHandle(hProvider))
        return Fail(NTE_INVALID_HANDLE, kIsAlgSupported);
    if (!pszAlgId)
        return Fail(NTE_INVALID_PARAMETER, kIsAlgSupported);
    if ((dwFlags & ~static_cast<DWORD>(NCRYPT_SILENT_FLAG)) != 0)
        return Fail(NTE_BAD_FLAGS, kIsAlgSupported);
    if (!IsOfferedAlgorithm(pszAlgId))
        return Fail(NTE_NOT_SUPPORTED, kIsAlgSupported);
    return ERROR_SUCCESS;
}

SECURITY_STATUS WINAPI KelvaroEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgOperations, DWORD* pdwAlgCount,
                                             NCryptAlgorithmName** ppAlgList, DWORD dwFlags)
{
    LogNumber(kEnumAlgorithms, TEXT("Called"), static_cast<LONG>(dwAlgOperations), LOG_ENTRY_LEVEL);
    if (!ProviderFromHandle(hProvider))
        return Fail(NTE_INVALID_HANDLE, kEnumAlgorithms);
    if (!pdwAlgCount || !ppAlgList)
        return Fail(NTE_INVALID_PARAMETER, kEnumAlgorithms);
    if ((dwFlags & ~static_cast<DWORD>(NCRYPT_SILENT_FLAG)) != 0)
        return Fail(NTE_BAD_FLAGS, kEnumAlgorithms);
    const Selection selection = Select(dwAlgOperations);
    if (selection.rows == 0)
        return Fail(NTE_NOT_SUPPORTED, kEnumAlgorithms);
    HeapPtr<NCryptAlgorithmName> list = MakeList(selection, dwAlgOperations);
    if (!list)
        return Fail(NTE_NO_MEMORY, kEnumAlgorithms);

    *pdwAlgCount = selection.rows;
    *ppAlgList = list.release();  // the host's, until KelvaroFreeBuffer
    return ERROR_SUCCESS;
}
