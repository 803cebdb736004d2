#include <string.h>

#include "keyvault/key_algorithms.h"
#include "provider/entry_points.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroEnumAlgorithms");

struct Algorithm {
    const WCHAR* name;
    DWORD interfaceClass;
    DWORD operations;
    DWORD selectedBy;  // a host that asks for one of these operations gets the row
};

constexpr Algorithm Rsa()
{
    constexpr DWORD kOperations = NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION | NCRYPT_SIGNATURE_OPERATION;
    return {BCRYPT_RSA_ALGORITHM, NCRYPT_ASYMMETRIC_ENCRYPTION_INTERFACE, kOperations, kOperations};
}

constexpr Algorithm Ecdsa(const Curve& curve)
{
    return {curve.ecdsa, NCRYPT_SIGNATURE_INTERFACE, NCRYPT_SIGNATURE_OPERATION, NCRYPT_SIGNATURE_OPERATION};
}

// ECDH keys can sign too, but aren't listed for a host that asks for signatures.
constexpr Algorithm Ecdh(const Curve& curve)
{
    return {curve.ecdh, NCRYPT_SECRET_AGREEMENT_INTERFACE,
            NCRYPT_SECRET_AGREEMENT_OPERATION | NCRYPT_SIGNATURE_OPERATION, NCRYPT_SECRET_AGREEMENT_OPERATION};
}

constexpr Algorithm kAlgorithms[] = {
    Rsa(),
    Ecdsa(kCurves[0]),
    Ecdsa(kCurves[1]),
    Ecdsa(kCurves[2]),
    Ecdh(kCurves[0]),
    Ecdh(kCurves[1]),
    Ecdh(kCurves[2]),
};
static_assert(sizeof(kAlgorithms) / sizeof(kAlgorithms[0]) == 1 + 2 * sizeof(kCurves) / sizeof(kCurves[0]),
              "every curve is listed");

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

// The records first, then the names, packed. NULL: no memory.
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

SECURITY_STATUS WINAPI KelvaroEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgOperations, DWORD* pdwAlgCount,
                                             NCryptAlgorithmName** ppAlgList, DWORD dwFlags)
{
    LogNumber(kEntryPoint, TEXT("Called"), static_cast<LONG>(dwAlgOperations), LOG_ENTRY_LEVEL);
    if (!ProviderFromHandle(hProvider))
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pdwAlgCount || !ppAlgList)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~NCRYPT_SILENT_FLAG) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    const Selection selection = Select(dwAlgOperations);
    if (selection.rows == 0)
        return FailStatus(NTE_NOT_SUPPORTED, kEntryPoint);
    HeapPtr<NCryptAlgorithmName> list = MakeList(selection, dwAlgOperations);
    if (!list)
        return FailStatus(NTE_NO_MEMORY, kEntryPoint);

    *pdwAlgCount = selection.rows;
    *ppAlgList = list.release();  // the host's, until KelvaroFreeBuffer
    return ERROR_SUCCESS;
}
