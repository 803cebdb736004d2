// CryptDecodeObject: a certificate request, laid out for the caller.
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/outcome.h"
#include "platform/linux/structure_block.h"
#include "platform/linux/two_call.h"
#include "platform/linux/win_certificates.h"
#include "platform/linux/x509_parts.h"

namespace {

PCRYPT_ATTRIBUTE TakeAttributes(DerReader* info, StructureBlock* block, DWORD* count)
{
    std::vector<CRYPT_ATTRIBUTE> attributes;
    DerReader set = info->Inside(info->TakeOptional(DerContext(0)));
    while (!set.AtEnd()) {
        DerReader attribute = set.Inside(set.Take(kDerSequence));
        const LPSTR objectId = block->AppendText(TakeObjectId(&attribute));
        DerReader valueSet = attribute.Inside(attribute.Take(kDerSet));
        std::vector<CRYPT_ATTR_BLOB> values;
        while (!valueSet.AtEnd())
            values.push_back(block->AppendBlob(valueSet.TakeAny().whole));
        attributes.push_back({objectId, static_cast<DWORD>(values.size()), block->AppendArray(values)});
    }
    *count = static_cast<DWORD>(attributes.size());
    return attributes.empty() ? nullptr : block->AppendArray(attributes);
}

CERT_PUBLIC_KEY_INFO AppendPublicKey(const PublicKeyParts& parts, StructureBlock* block)
{
    CERT_PUBLIC_KEY_INFO info = {};
    info.Algorithm.pszObjId = block->AppendText(parts.algorithm.objectId);
    info.Algorithm.Parameters = block->AppendBlob(parts.algorithm.parameters);
    const CRYPT_INTEGER_BLOB key = block->AppendBlob(parts.key.bytes);
    info.PublicKey = {key.cbData, key.pbData, parts.key.unusedBits};
    return info;
}

LONG LayOutRequest(std::string_view encoded, StructureBlock* block)
{
    LONG error = ERROR_SUCCESS;
    DerReader outer(encoded, &error);
    DerReader info = outer.Inside(outer.Take(kDerSequence));
    // A signed request is a sequence whose first element is the request.
    if (info.NextTag() == kDerSequence)
        info = info.Inside(info.Take(kDerSequence));
    CERT_REQUEST_INFO request = {};
    const size_t offset = block->Reserve(sizeof request);
    request.dwVersion = SmallNumber(info.Take(kDerInteger), &info);
    request.Subject = block->AppendBlob(TakeName(&info));
    request.SubjectPublicKeyInfo = AppendPublicKey(TakePublicKey(&info), block);
    request.rgAttribute = TakeAttributes(&info, block, &request.cAttribute);
    block->Put(offset, request);
    return error;
}

}  // namespace

BOOL WINAPI CryptDecodeObject(DWORD encodingType, LPCSTR structType, const BYTE* encoded, DWORD encodedSize, DWORD,
                              void* structure, DWORD* size)
{
    if (!size || (!encoded && encodedSize != 0))
        return Fail(E_INVALIDARG);
    return Succeeds([&]() -> LONG {
        StructureBlock block(structure);
        const bool known = (encodingType & X509_ASN_ENCODING) != 0 && structType == X509_CERT_REQUEST_TO_BE_SIGNED;
        const LONG error = known ? LayOutRequest(BytesOf(encoded, encodedSize), &block) : ERROR_FILE_NOT_FOUND;
        if (error == ERROR_SUCCESS)
            return GiveOut(block.bytes(), structure, size);
        *size = 0;
        return error;
    });
}
