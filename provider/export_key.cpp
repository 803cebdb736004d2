#include <string.h>

#include "provider/answers.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroExportKey");
constexpr WCHAR kFailure[] = TEXT("KelvaroExportKey Failed");

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

struct CurveMagics {
    const WCHAR* crv;
    const WCHAR* ecdhName;
    ULONG ecdhMagic;
    const WCHAR* ecdsaName;
    ULONG ecdsaMagic;
};
constexpr CurveMagics kCurveMagics[] = {
    {TEXT("P-256"), TEXT("ECDH_P256"), BCRYPT_ECDH_PUBLIC_P256_MAGIC, TEXT("ECDSA_P256"),
     BCRYPT_ECDSA_PUBLIC_P256_MAGIC},
    {TEXT("P-384"), TEXT("ECDH_P384"), BCRYPT_ECDH_PUBLIC_P384_MAGIC, TEXT("ECDSA_P384"),
     BCRYPT_ECDSA_PUBLIC_P384_MAGIC},
    {TEXT("P-521"), TEXT("ECDH_P521"), BCRYPT_ECDH_PUBLIC_P521_MAGIC, TEXT("ECDSA_P521"),
     BCRYPT_ECDSA_PUBLIC_P521_MAGIC},
};

// The blob while it is composed. Key material that does not fit is refused, never cut.
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

const BlobType* FindBlobType(const WCHAR* name)
{
    for (const BlobType& type : kBlobTypes) {
        if (TextEqual(name, type.name))
            return &type;
    }
    return nullptr;
}

// 0 for a name or a curve that has no magic; the blob goes out with it.
ULONG CurveMagic(const KVKey& kvk)
{
    const bool named = kvk.AlgID[0] != 0;
    const bool decrypts = TextContains(kvk.key_ops, View(TEXT("decrypt")));
    for (const CurveMagics& row : kCurveMagics) {
        if (named ? TextEqual(kvk.AlgID, row.ecdhName) : decrypts && TextEqual(kvk.crv, row.crv))
            return row.ecdhMagic;
        if (named ? TextEqual(kvk.AlgID, row.ecdsaName) : TextEqual(kvk.crv, row.crv))
            return row.ecdsaMagic;
    }
    return 0;
}

SECURITY_STATUS ComposeCurveBlob(const KVKey& kvk, PublicBlob* blob)
{
    LogLine(TEXT("KelvaroExportKey Export ECC Key"), LOG_STEP_LEVEL);
    const BCRYPT_ECCKEY_BLOB header = {CurveMagic(kvk), kvk.x_siz};
    if (kvk.x_siz != kvk.y_siz) {
        LogLine(TEXT("KelvaroExportKey ECC x_siz != y_siz"), LOG_ERROR_LEVEL);
        return NTE_INVALID_PARAMETER;
    }
    const bool fits = blob->Add(&header, sizeof(header)) && blob->Add(kvk.x, kvk.x_siz) && blob->Add(kvk.y, kvk.y_siz);
    return fits ? ERROR_SUCCESS : NTE_INVALID_PARAMETER;
}

// The modulus gets a zero byte in front, so that a reader who takes it as a signed number sees a positive one. A
// modulus that came with such a byte, which makes its size odd, stays as it is.
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

// Judges the blob's name and the key, and composes the blob. Under the key's lock: another thread may be finalizing a
// pending key.
SECURITY_STATUS ComposeBlob(const KSP_KEY& key, const WCHAR* blobName, PublicBlob* blob)
{
    const ExclusiveLock lock(&key.lock);
    const KVKey& kvk = key.kvk;
    const BlobType* type = FindBlobType(blobName);
    if (!type) {
        LogLine(TEXT("KelvaroExportKey NTE_INVALID_PARAMETER"), LOG_ERROR_LEVEL);
        return NTE_INVALID_PARAMETER;
    }
    if (type->kind == BlobKind::Private)
        return NTE_NOT_SUPPORTED;
    if (kvk.valid == 0) {
        LogLine(TEXT("KelvaroExportKey KV Key not initialised"), LOG_ERROR_LEVEL);
        return NTE_INVALID_PARAMETER;
    }
    if ((type->kind == BlobKind::Curve) != (kvk.isEC != 0)) {
        LogLine(TEXT("KelvaroExportKey KV Key ECC is NOT RSA"), LOG_ERROR_LEVEL);
        return NTE_INVALID_PARAMETER;
    }
    return kvk.isEC ? ComposeCurveBlob(kvk, blob) : ComposeRsaBlob(kvk, blob);
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                        NCRYPT_KEY_HANDLE /*hExportKey*/, LPCWSTR pszBlobType,
                                        NCryptBufferDesc* /*pParameterList*/, PBYTE pbOutput, DWORD cbOutput,
                                        DWORD* pcbResult, DWORD dwFlags)
{
    LogString(kEntryPoint, pszBlobType, LOG_ENTRY_LEVEL);
    if (!ProviderFromHandle(hProvider)) {
        LogLine(TEXT("KelvaroExportKey pProvider == NULL"), LOG_ERROR_LEVEL);
        return Fail(NTE_INVALID_HANDLE, kFailure);
    }
    const KSP_KEY* key = KeyFromHandle(hKey);
    if (!key) {
        LogLine(TEXT("KelvaroExportKey pKey == NULL"), LOG_ERROR_LEVEL);
        return Fail(NTE_INVALID_HANDLE, kFailure);
    }
    if (!pcbResult) {
        LogLine(TEXT("KelvaroExportKey pcbResult == NULL"), LOG_ERROR_LEVEL);
        return Fail(NTE_INVALID_PARAMETER, kFailure);
    }
    if ((dwFlags & ~kAllowedFlags) != 0) {
        LogNumber(kEntryPoint, TEXT("Bad Flags"), static_cast<LONG>(dwFlags), LOG_ERROR_LEVEL);
        return Fail(NTE_BAD_FLAGS, kFailure);
    }
    if ((dwFlags & NCRYPT_EXPORT_LEGACY_FLAG) != 0) {
        LogNumber(kEntryPoint, TEXT("Legacy Flag"), static_cast<LONG>(dwFlags), LOG_ERROR_LEVEL);
        return Fail(NTE_NOT_SUPPORTED, kFailure);
    }

    PublicBlob blob;
    SECURITY_STATUS status = ComposeBlob(*key, pszBlobType, &blob);
    if (status != ERROR_SUCCESS)
        return Fail(status, kFailure);
    status = AnswerBytes(blob.bytes(), blob.size(), pbOutput, cbOutput, pcbResult);
    if (status != ERROR_SUCCESS)
        return Fail(status, kFailure);
    LogNumber(TEXT("KelvaroExportKey Export OK"), TEXT("Size"), static_cast<LONG>(blob.size()), LOG_STEP_LEVEL);
    return ERROR_SUCCESS;
}
