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

struct AttributeParts {
    std::string objectId;
    std::vector<std::string_view> values;
};

struct RequestParts {
    DWORD version = 0;
    std::string_view subject;
    PublicKeyParts publicKey;
    std::vector<AttributeParts> attributes;
};

std::vector<AttributeParts> TakeAttributes(DerReader* info)
{
    std::vector<AttributeParts> attributes;
    DerReader set = info->Inside(info->TakeOptional(DerContext(0)));
    while (!set.AtEnd()) {
        DerReader attribute = set.Inside(set.Take(kDerSequence));
        AttributeParts parts;
        parts.objectId = TakeObjectId(&attribute);
        DerReader values = attribute.Inside(attribute.Take(kDerSet));
        while (!values.AtEnd())
            parts.values.push_back(values.TakeAny().whole);
        attributes.push_back(std::move(parts));
    }
    return attributes;
}

LONG ParseRequest(std::string_view encoded, RequestParts* parts)
{
    LONG error = ERROR_SUCCESS;
    DerReader outer(encoded, &error);
    DerReader info = outer.Inside(outer.Take(kDerSequence));
    // A signed request is a sequence whose first element is the request.
    if (info.NextTag() == kDerSequence)
        info = info.Inside(info.Take(kDerSequence));
    parts->version = SmallNumber(info.Take(kDerInteger), &info);
    parts->subject = TakeName(&info);
    parts->publicKey = TakePublicKey(&info);
    parts->attributes = TakeAttributes(&info);
    return error;
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

PCRYPT_ATTRIBUTE AppendAttributes(const std::vector<AttributeParts>& attributes, StructureBlock* block)
{
    const size_t offset = block->Reserve(attributes.size() * sizeof(CRYPT_ATTRIBUTE));
    for (size_t i = 0; i < attributes.size(); i++) {
        const std::vector<std::string_view>& values = attributes[i].values;
        CRYPT_ATTRIBUTE attribute = {};
        attribute.pszObjId = block->AppendText(attributes[i].objectId);
        const size_t blobs = block->Reserve(values.size() * sizeof(CRYPT_ATTR_BLOB));
        for (size_t j = 0; j < values.size(); j++)
            block->Put(blobs + j * sizeof(CRYPT_ATTR_BLOB), block->AppendBlob(values[j]));
        attribute.cValue = static_cast<DWORD>(values.size());
        attribute.rgValue = block->AddressOf<CRYPT_ATTR_BLOB>(blobs);
        block->Put(offset + i * sizeof attribute, attribute);
    }
    return block->AddressOf<CRYPT_ATTRIBUTE>(offset);
}

void AppendRequest(const RequestParts& parts, StructureBlock* block)
{
    CERT_REQUEST_INFO request = {};
    const size_t offset = block->Reserve(sizeof request);
    request.dwVersion = parts.version;
    request.Subject = block->AppendBlob(parts.subject);
    request.SubjectPublicKeyInfo = AppendPublicKey(parts.publicKey, block);
    request.cAttribute = static_cast<DWORD>(parts.attributes.size());
    if (!parts.attributes.empty())
        request.rgAttribute = AppendAttributes(parts.attributes, block);
    block->Put(offset, request);
}

}  // namespace

BOOL WINAPI CryptDecodeObject(DWORD encodingType, LPCSTR structType, const BYTE* encoded, DWORD encodedSize, DWORD,
                              void* structure, DWORD* size)
{
    if (!size || (!encoded && encodedSize != 0))
        return Fail(E_INVALIDARG);
    return Succeeds([&]() -> LONG {
        LONG error = ERROR_FILE_NOT_FOUND;
        RequestParts parts;
        if ((encodingType & X509_ASN_ENCODING) != 0 && structType == X509_CERT_REQUEST_TO_BE_SIGNED)
            error = ParseRequest(BytesOf(encoded, encodedSize), &parts);
        if (error != ERROR_SUCCESS) {
            *size = 0;
            return error;
        }
        StructureBlock block(structure);
        AppendRequest(parts, &block);
        return GiveOut(block.bytes(), structure, size);
    });
}
