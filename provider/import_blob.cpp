// Public and private blobs in CNG's formats.
#include "provider/import_key.h"
#include "provider/import_name.h"
#include "provider/private_blob.h"

// Always fails: the vault can't hold a public key alone.
SECURITY_STATUS ImportPublicBlob(const ImportRequest& request, KeyPtr* /*key*/)
{
    KeyPtr unused;
    const SECURITY_STATUS status = MakeImportedKey(request.provider, nullptr, 0, &unused);
    if (status != ERROR_SUCCESS)
        return status;
    const bool badFlags = (request.flags & (NCRYPT_OVERWRITE_KEY_FLAG | NCRYPT_DO_NOT_FINALIZE_FLAG)) != 0;
    return badFlags ? NTE_BAD_FLAGS : NTE_INTERNAL_ERROR;
}

namespace {

// If several buffers name the key, the last one counts. Any version of the list is accepted.
SECURITY_STATUS FindName(const NCryptBufferDesc* parameters, ImportName* name)
{
    if (!parameters || !parameters->pBuffers)
        return ERROR_SUCCESS;
    for (ULONG i = 0; i < parameters->cBuffers; i++) {
        const NCryptBuffer& buffer = parameters->pBuffers[i];
        if (buffer.BufferType != NCRYPTBUFFER_PKCS_KEY_NAME || !buffer.pvBuffer || buffer.cbBuffer < sizeof(WCHAR))
            continue;
        if (buffer.cbBuffer > kLargestNameBuffer || !HasZeroByte(buffer))
            return NTE_INVALID_PARAMETER;
        name->Take(buffer);
    }
    return ERROR_SUCCESS;
}

}  // namespace

SECURITY_STATUS ImportPrivateBlob(const ImportRequest& request, KeyPtr* key)
{
    ImportName name;
    SECURITY_STATUS status = FindName(request.parameters, &name);
    if (status != ERROR_SUCCESS)
        return status;
    KeyPtr made;
    status = MakeImportedKey(request.provider, name.text(), 0, &made);
    if (status != ERROR_SUCCESS)
        return status;
    if (KeepPrivateBlob(made.get(), request.data, request.cbData, request.blobType) != ERROR_SUCCESS)
        return NTE_NOT_SUPPORTED;
    // The host gets the key only if it finalizes it itself.
    if ((request.flags & NCRYPT_DO_NOT_FINALIZE_FLAG) == 0)
        return NTE_INTERNAL_ERROR;
    *key = std::move(made);
    return ERROR_SUCCESS;
}
