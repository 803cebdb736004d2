// PKCS#8 private keys, plain and encrypted.
#include <string_view>

#include "provider/import_key.h"
#include "provider/import_memory.h"
#include "provider/import_name.h"
#include "provider/pkcs1_blob.h"
#include "provider/pkcs8_decryption.h"
#include "provider/pkcs8_usage.h"
#include "provider/private_blob.h"

namespace {

struct Pkcs8Parameters {
    ImportName name;
    const BYTE* secret = nullptr;  // the host's, cbSecret bytes
    DWORD cbSecret = 0;
};

SECURITY_STATUS ReadParameter(const NCryptBuffer& buffer, Pkcs8Parameters* parameters)
{
    if (!buffer.pvBuffer || buffer.cbBuffer == 0)
        return ERROR_SUCCESS;
    const bool isName = buffer.BufferType == NCRYPTBUFFER_PKCS_KEY_NAME;
    if ((isName || buffer.BufferType == NCRYPTBUFFER_PKCS_ALG_OID) && !HasZeroByte(buffer))
        return NTE_INVALID_PARAMETER;
    if (isName)
        parameters->name.Take(buffer);
    if (buffer.BufferType == NCRYPTBUFFER_PKCS_SECRET) {
        parameters->secret = static_cast<const BYTE*>(buffer.pvBuffer);
        parameters->cbSecret = buffer.cbBuffer;
    }
    return ERROR_SUCCESS;
}

SECURITY_STATUS ParsePkcs8Parameters(const NCryptBufferDesc* list, Pkcs8Parameters* parameters)
{
    if (!list)
        return ERROR_SUCCESS;
    if (list->ulVersion != NCRYPTBUFFER_VERSION || list->cBuffers == 0 || !list->pBuffers)
        return NTE_INVALID_PARAMETER;
    for (ULONG i = 0; i < list->cBuffers; i++) {
        const SECURITY_STATUS status = ReadParameter(list->pBuffers[i], parameters);
        if (status != ERROR_SUCCESS)
            return status;
    }
    return ERROR_SUCCESS;
}

bool IsRsa(const char* objectId)
{
    return std::string_view(objectId) == szOID_RSA_RSA;
}

// *key: empty; may be set even on failure.
SECURITY_STATUS KeyObjectFromPkcs8(const KSP_PROVIDER* provider, const WCHAR* name, const CRYPT_PRIVATE_KEY_INFO& info,
                                   KeyPtr* key)
{
    DWORD usage = 0;
    WipedBlock blob;
    SECURITY_STATUS status = ReadPkcs8Usage(info, &usage);
    if (status == ERROR_SUCCESS)
        status = RsaBlobFromPkcs1(info.PrivateKey.pbData, info.PrivateKey.cbData, &blob);
    if (status == ERROR_SUCCESS)
        status = MakeImportedKey(provider, name, 1, key);
    if (status == ERROR_SUCCESS)
        status = KeepPrivateBlob(key->get(), blob.data(), static_cast<DWORD>(blob.size()), BCRYPT_RSAPRIVATE_BLOB);
    if (status == ERROR_SUCCESS && usage != NCRYPT_ALLOW_ALL_USAGES)
        status = AddKeyUsageProperty(key->get(), usage);
    return status;
}

// plain: the unencrypted PKCS#8 form.
SECURITY_STATUS KeyFromPlain(const ImportRequest& request, const WCHAR* name, const BYTE* plain, DWORD cbPlain,
                             KeyPtr* key)
{
    DecodedStructure<CRYPT_PRIVATE_KEY_INFO> info;
    if (!info.Decode(PKCS_PRIVATE_KEY_INFO, plain, cbPlain))
        return NTE_BAD_DATA;
    if (!info->Algorithm.pszObjId || !info->PrivateKey.pbData || info->PrivateKey.cbData == 0)
        return NTE_BAD_KEY;
    if (!IsRsa(info->Algorithm.pszObjId))
        return NTE_NOT_SUPPORTED;
    KeyPtr made;
    SECURITY_STATUS status = KeyObjectFromPkcs8(request.provider, name, *info.get(), &made);
    if (status == ERROR_SUCCESS)
        status = FinalizeImportedKey(request, made.get(), request.flags & NCRYPT_NO_KEY_VALIDATION);
    if (status == ERROR_SUCCESS)
        *key = std::move(made);
    return status;
}

}  // namespace

SECURITY_STATUS ImportPkcs8Key(const ImportRequest& request, KeyPtr* key)
{
    Pkcs8Parameters parameters;
    SECURITY_STATUS status = ParsePkcs8Parameters(request.parameters, &parameters);
    if (status != ERROR_SUCCESS)
        return status;
    DecodedStructure<CRYPT_ENCRYPTED_PRIVATE_KEY_INFO> encrypted;
    if (!encrypted.Decode(PKCS_ENCRYPTED_PRIVATE_KEY_INFO, request.data, request.cbData))
        return KeyFromPlain(request, parameters.name.text(), request.data, request.cbData, key);
    WipedBlock plain;
    DWORD cbPlain = 0;
    status = DecryptPkcs8Key(parameters.secret, parameters.cbSecret, *encrypted.get(), &plain, &cbPlain);
    if (status != ERROR_SUCCESS)
        return status;
    return KeyFromPlain(request, parameters.name.text(), plain.data(), cbPlain, key);
}
