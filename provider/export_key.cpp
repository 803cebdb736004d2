#include <string.h>

#include "keyvault/key_algorithms.h"
#include "platform/find_row.h"
#include "provider/answers.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/fail.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroExportKey");

constexpr DWORD kAllowedFlags = NCRYPT_SILENT_FLAG | NCRYPT_EXPORT_LEGACY_FLAG;

enum class BlobKind { Curve, Rsa, Private };

struct BlobType {
    const WCHAR* name;
    BlobKind kind;
};
constexpr BlobType kBlobTypes[] = {
    {BCRYPT_ECCPUBLIC_BLOB, BlobKind::Curve},        {BCRYPT_PUBLIC_KEY_BLOB, BlobKind::Rsa},
    {BCRYPT_RSAPUBLIC_BLOB, BlobKind::Rsa},          {BCRYPT_PRIVATE_KEY_BLOB, BlobKind::Private},
    {BCRYPT_RSAPRIVATE_BLOB, BlobKind::Private},     {BCRYPT_RSAFULLPRIVATE_BLOB, BlobKind::Private},
    {NCRYPT_PKCS7_ENVELOPE_BLOB, BlobKind::Private}, {NCRYPT_PKCS8_PRIVATE_KEY_BLOB, BlobKind::Private},
};

// The blob being composed. Key material that doesn't fit is refused, never truncated.
class PublicBlob {
  public:
    bool Add(const void* bytes, DWORD cb)
    {
        if (cb > sizeof(bytes_) - size_ || (cb != 0 && !bytes))
            return false;
        if (cb != 0)
            memcpy(bytes_ + size_, bytes, cb);
        size_ += cb;
        return true;
    }
    const BYTE* bytes() const { return bytes_; }
    DWORD size() const { return size_; }

  private:
    BYTE bytes_[2000] = {};
    DWORD size_ = 0;
};

// 0 for an unknown name or curve; the key is still exported. A key without a name counts as ECDH if it can decrypt.
ULONG CurveMagic(const KVKey& kvk)
{
    const bool named = kvk.AlgID[0] != 0;
    const Curve* curve = named ? CurveOfAlgorithm(kvk.AlgID) : CurveNamed(kvk.crv);
    if (!curve)
        return 0;
    const bool isEcdh = named ? TextEqual(kvk.AlgID, curve->ecdh) : TextContains(kvk.key_ops, TEXT("decrypt"));
    return isEcdh ? curve->ecdhMagic : curve->ecdsaMagic;
}

SECURITY_STATUS ComposeCurveBlob(const KVKey& kvk, PublicBlob* blob)
{
    LogLine(TEXT("KelvaroExportKey Export ECC Key"), LOG_STEP_LEVEL);
    const BCRYPT_ECCKEY_BLOB header = {CurveMagic(kvk), kvk.x_siz};
    if (kvk.x_siz != kvk.y_siz)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroExportKey ECC x_siz != y_siz"));
    const bool fits = blob->Add(&header, sizeof(header)) && blob->Add(kvk.x, kvk.x_siz) && blob->Add(kvk.y, kvk.y_siz);
    return fits ? ERROR_SUCCESS : NTE_INVALID_PARAMETER;
}

// Prefixes the modulus with a zero byte, so that it stays positive if read as a signed number. A modulus that already
// has one, which makes its size odd, is left unchanged.
SECURITY_STATUS ComposeRsaBlob(const KVKey& kvk, PublicBlob* blob)
{
    LogLine(TEXT("KelvaroExportKey Export RSA Key"), LOG_STEP_LEVEL);
    const bool hasZero = kvk.n_siz % 2 == 1 && kvk.n && kvk.n[0] == 0;
    const BYTE zero = 0;
    const DWORD cbZero = hasZero ? 0 : 1;
    BCRYPT_RSAKEY_BLOB header = {};
    header.Magic = BCRYPT_RSAPUBLIC_MAGIC;
    header.BitLength = 8 * kvk.n_siz;
    header.cbPublicExp = kvk.e_siz;
    header.cbModulus = kvk.n_siz + cbZero;
    const bool fits = blob->Add(&header, sizeof(header)) && blob->Add(kvk.e, kvk.e_siz) && blob->Add(&zero, cbZero) &&
                      blob->Add(kvk.n, kvk.n_siz);
    return fits ? ERROR_SUCCESS : NTE_INVALID_PARAMETER;
}

// Composes the blob under the key's lock: another thread may be finalizing a pending key.
SECURITY_STATUS ComposeBlob(const KSP_KEY& key, const WCHAR* blobName, PublicBlob* blob)
{
    const ExclusiveLock lock(&key.lock);
    const KVKey& kvk = key.kvk;
    const BlobType* type = FindRow(kBlobTypes, [=](const BlobType& row) { return TextEqual(blobName, row.name); });
    if (!type)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroExportKey NTE_INVALID_PARAMETER"));
    if (type->kind == BlobKind::Private)
        return NTE_NOT_SUPPORTED;
    if (kvk.valid == 0)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroExportKey KV Key not initialised"));
    if ((type->kind == BlobKind::Curve) != (kvk.isEC != 0))
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroExportKey KV Key ECC is NOT RSA"));
    return kvk.isEC ? ComposeCurveBlob(kvk, blob) : ComposeRsaBlob(kvk, blob);
}

SECURITY_STATUS RefuseFlags(SECURITY_STATUS status, const WCHAR* reason, DWORD dwFlags)
{
    LogNumber(kEntryPoint, reason, static_cast<LONG>(dwFlags), LOG_ERROR_LEVEL);
    return status;
}

SECURITY_STATUS Export(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, const WCHAR* blobName,
                       const HostOutput& output, DWORD dwFlags)
{
    if (!ProviderFromHandle(hProvider))
        return Fail(NTE_INVALID_HANDLE, TEXT("KelvaroExportKey pProvider == NULL"));
    const KSP_KEY* key = KeyFromHandle(hKey);
    if (!key)
        return Fail(NTE_INVALID_HANDLE, TEXT("KelvaroExportKey pKey == NULL"));
    if (!output.cbResult)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroExportKey pcbResult == NULL"));
    if ((dwFlags & ~kAllowedFlags) != 0)
        return RefuseFlags(NTE_BAD_FLAGS, TEXT("Bad Flags"), dwFlags);
    if ((dwFlags & NCRYPT_EXPORT_LEGACY_FLAG) != 0)
        return RefuseFlags(NTE_NOT_SUPPORTED, TEXT("Legacy Flag"), dwFlags);

    PublicBlob blob;
    SECURITY_STATUS status = ComposeBlob(*key, blobName, &blob);
    if (status == ERROR_SUCCESS)
        status = AnswerBytes(blob.bytes(), blob.size(), output);
    if (status == ERROR_SUCCESS)
        LogNumber(TEXT("KelvaroExportKey Export OK"), TEXT("Size"), static_cast<LONG>(blob.size()), LOG_STEP_LEVEL);
    return status;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                        NCRYPT_KEY_HANDLE /*hExportKey*/, LPCWSTR pszBlobType,
                                        NCryptBufferDesc* /*pParameterList*/, PBYTE pbOutput, DWORD cbOutput,
                                        DWORD* pcbResult, DWORD dwFlags)
{
    LogString(kEntryPoint, pszBlobType, LOG_ENTRY_LEVEL);
    return Finish(Export(hProvider, hKey, pszBlobType, {pbOutput, cbOutput, pcbResult}, dwFlags),
                  TEXT("KelvaroExportKey Failed"));
}
