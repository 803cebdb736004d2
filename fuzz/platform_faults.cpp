// Calls of the platform that fail by the same numbers as allocations. CMakeLists.txt wraps the names in quotes.
#include <errno.h>

#include <type_traits>
#include <utility>

#include "platform/platform.h"
#include "tests/common/alloc_fault.h"

namespace {

bool inPlatform;  // whose own calls don't fail: it may rely on them

template <typename Function, Function& real, intptr_t result>
struct Failing;
template <typename Result, typename... Parameters, Result (&real)(Parameters...), intptr_t result>
struct Failing<Result(Parameters...), real, result> {
    static Result Call(Parameters... parameters)
    {
        const bool fails = !inPlatform && AllocFaultDue();
        Result value{};
        // A store that fails to close is closed all the same.
        if (!fails || std::is_same_v<Result(Parameters...), decltype(CertCloseStore)>) {
            const bool outer = std::exchange(inPlatform, true);
            value = real(parameters...);
            inPlatform = outer;
        }
        if (!fails)
            return value;
        SetLastError(ERROR_ACCESS_DENIED);
        return (Result)result;  // a number or a pointer
    }
};

}  // namespace

// The linker's name for the wrapper can't be given to a template's function, so a resolver picks it.
#define FAILS(function, symbol, result)                                              \
    decltype(function) Real_##function __asm__("__real_" symbol);                    \
    extern "C" decltype(&function) Pick_##function()                                 \
    {                                                                                \
        return Failing<decltype(function), Real_##function, intptr_t{result}>::Call; \
    }                                                                                \
    decltype(function) Wrap_##function __asm__("__wrap_" symbol) __attribute__((ifunc("Pick_" #function)));

FAILS(RegOpenKeyW, "_Z11RegOpenKeyWP6HKEY__PKDsPS0_", ERROR_ACCESS_DENIED)
FAILS(RegQueryValueExW, "_Z16RegQueryValueExWP6HKEY__PKDsPjS3_PhS3_", ERROR_ACCESS_DENIED)
FAILS(RegSetValueExW, "_Z14RegSetValueExWP6HKEY__PKDsjjPKhj", ERROR_ACCESS_DENIED)
FAILS(RegSetKeyValueW, "_Z15RegSetKeyValueWP6HKEY__PKDsS2_jPKvj", ERROR_ACCESS_DENIED)
FAILS(RegOpenKeyTransactedW, "_Z21RegOpenKeyTransactedWP6HKEY__PKDsjjPS0_PvS4_", ERROR_ACCESS_DENIED)
FAILS(CreateTransaction, "_Z17CreateTransactionP19SECURITY_ATTRIBUTESP4GUIDjjjjPDs", -1)
FAILS(CommitTransaction, "_Z17CommitTransactionPv", 0)
FAILS(CertOpenStore, "_Z13CertOpenStorePKcjmjPKv", 0)
FAILS(CertCloseStore, "_Z14CertCloseStorePvj", 0)
FAILS(CertAddEncodedCertificateToStore, "_Z32CertAddEncodedCertificateToStorePvjPKhjjPPK12CERT_CONTEXT", 0)
FAILS(CertSetCertificateContextProperty, "_Z33CertSetCertificateContextPropertyPK12CERT_CONTEXTjjPKv", 0)
FAILS(CertGetCertificateContextProperty, "_Z33CertGetCertificateContextPropertyPK12CERT_CONTEXTjPvPj", 0)
FAILS(CertCreateCertificateContext, "_Z28CertCreateCertificateContextjPKhj", 0)
FAILS(CertStrToNameA, "_Z14CertStrToNameAjPKcjPvPhPjPS0_", 0)
FAILS(CryptProtectData, "_Z16CryptProtectDataP18CRYPT_INTEGER_BLOBPKDsS0_PvP25CRYPTPROTECT_PROMPTSTRUCTjS0_", 0)
FAILS(CryptUnprotectData, "_Z18CryptUnprotectDataP18CRYPT_INTEGER_BLOBPPDsS0_PvP25CRYPTPROTECT_PROMPTSTRUCTjS0_", 0)
FAILS(CryptDecodeObject, "_Z17CryptDecodeObjectjPKcPKhjjPvPj", 0)
FAILS(CryptDecodeObjectEx, "_Z19CryptDecodeObjectExjPKcPKhjjP17CRYPT_DECODE_PARAPvPj", 0)
FAILS(CryptDecryptMessage, "_Z19CryptDecryptMessageP26CRYPT_DECRYPT_MESSAGE_PARAPKhjPhPjPPK12CERT_CONTEXT", 0)
FAILS(CryptSignAndEncodeCertificate, "_Z29CryptSignAndEncodeCertificatemjjPKcPKvP26CRYPT_ALGORITHM_IDENTIFIERS2_PhPj",
      0)
FAILS(CryptBinaryToStringW, "_Z20CryptBinaryToStringWPKhjjPDsPj", 0)
FAILS(CryptStringToBinaryW, "_Z20CryptStringToBinaryWPKDsjjPhPjS2_S2_", 0)
FAILS(UuidCreate, "_Z10UuidCreateP4GUID", RPC_S_UUID_NO_ADDRESS)
FAILS(UuidToStringW, "_Z13UuidToStringWP4GUIDPPDs", RPC_S_OUT_OF_MEMORY)
FAILS(BCryptGenRandom, "_Z15BCryptGenRandomPvPhjj", STATUS_NO_MEMORY)
FAILS(BCryptOpenAlgorithmProvider, "_Z27BCryptOpenAlgorithmProviderPPvPKDsS2_j", STATUS_NO_MEMORY)
FAILS(BCryptCreateHash, "_Z16BCryptCreateHashPvPS_PhjS1_jj", STATUS_NO_MEMORY)
FAILS(BCryptHashData, "_Z14BCryptHashDataPvPhjj", STATUS_NO_MEMORY)
FAILS(BCryptFinishHash, "_Z16BCryptFinishHashPvPhjj", STATUS_NO_MEMORY)
FAILS(BCryptDecrypt, "_Z13BCryptDecryptPvPhjS_S0_jS0_jPjj", STATUS_NO_MEMORY)
FAILS(BCryptGenerateSymmetricKey, "_Z26BCryptGenerateSymmetricKeyPvPS_PhjS1_jj", STATUS_NO_MEMORY)
FAILS(BCryptSetProperty, "_Z17BCryptSetPropertyPvPKDsPhjj", STATUS_NO_MEMORY)
FAILS(BCryptDeriveKeyPBKDF2, "_Z21BCryptDeriveKeyPBKDF2PvPhjS0_jyS0_jj", STATUS_NO_MEMORY)
FAILS(NCryptOpenStorageProvider, "_Z25NCryptOpenStorageProviderPmPKDsj", NTE_FAIL)
FAILS(NCryptCreatePersistedKey, "_Z24NCryptCreatePersistedKeymPmPKDsS1_jj", NTE_FAIL)
FAILS(NCryptSetProperty, "_Z17NCryptSetPropertymPKDsPhjj", NTE_FAIL)
FAILS(NCryptFinalizeKey, "_Z17NCryptFinalizeKeymj", NTE_FAIL)
FAILS(CreateFileW, "_Z11CreateFileWPKDsjjP19SECURITY_ATTRIBUTESjjPv", -1)
FAILS(WriteFile, "_Z9WriteFilePvPKvjPjS_", 0)
FAILS(RegisterEventSourceW, "_Z20RegisterEventSourceWPKDsS0_", 0)
FAILS(GetFullPathNameW, "_Z16GetFullPathNameWPKDsjPDsPS1_", 0)
FAILS(_wfopen, "_Z7_wfopenPKDsS0_", 0)
FAILS(GetUserNameW, "_Z12GetUserNameWPDsPj", 0)
FAILS(K32GetProcessImageFileNameW, "_Z27K32GetProcessImageFileNameWPvPDsj", 0)
FAILS(MultiByteToWideChar, "_Z19MultiByteToWideCharjjPKciPDsi", 0)
FAILS(WideCharToMultiByte, "_Z19WideCharToMultiBytejjPKDsiPciPKcPi", 0)
FAILS(CreateSemaphoreW, "_Z16CreateSemaphoreWP19SECURITY_ATTRIBUTESiiPKDs", 0)
FAILS(_wctime64, "_Z9_wctime64PKl", 0)
FAILS(_localtime64_s, "_Z14_localtime64_sP2tmPKl", EINVAL)
