// CryptDecodeObjectEx for private keys: one block a structure, whose blobs lead into the encoded bytes.
#include <string.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/outcome.h"
#include "platform/linux/win_private_keys.h"
#include "platform/linux/x509_parts.h"

namespace {

// Lays a structure out: once without room, to learn the size, then for good.
class Layout {
  public:
    explicit Layout(BYTE* room) : room_(room) {}

    // NULL without room.
    BYTE* Reserve(size_t size)
    {
        const size_t at = used_;
        used_ += (size + kStep - 1) / kStep * kStep;
        return room_ ? room_ + at : nullptr;
    }
    template <typename T>
    T* ReserveArray(size_t count)
    {
        return reinterpret_cast<T*>(Reserve(count * sizeof(T)));
    }
    LPSTR Text(const std::string& text)
    {
        BYTE* const copy = Reserve(text.size() + 1);
        if (copy)
            memcpy(copy, text.c_str(), text.size() + 1);
        return reinterpret_cast<LPSTR>(copy);
    }
    size_t used() const { return used_; }

  private:
    static constexpr size_t kStep = 8;
    BYTE* room_;
    size_t used_ = 0;
};

CRYPT_INTEGER_BLOB BlobOf(std::string_view bytes)
{
    BYTE* const data = reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()));
    return {static_cast<DWORD>(bytes.size()), bytes.empty() ? nullptr : data};
}

CRYPT_ALGORITHM_IDENTIFIER AlgorithmOf(const AlgorithmParts& parts, Layout* layout)
{
    return {layout->Text(parts.objectId), BlobOf(parts.parameters)};
}

// ---- PKCS_ENCRYPTED_PRIVATE_KEY_INFO ----

struct EncryptedKeyParts {
    AlgorithmParts algorithm;
    std::string_view encrypted;
};

void Parse(DerReader* outer, EncryptedKeyParts* parts)
{
    DerReader info = outer->Inside(outer->Take(kDerSequence));
    parts->algorithm = TakeAlgorithm(&info);
    parts->encrypted = info.Take(kDerOctetString);
}

void Put(const EncryptedKeyParts& parts, Layout* layout)
{
    auto* const info = layout->ReserveArray<CRYPT_ENCRYPTED_PRIVATE_KEY_INFO>(1);
    const CRYPT_ALGORITHM_IDENTIFIER algorithm = AlgorithmOf(parts.algorithm, layout);
    if (info)
        *info = {algorithm, BlobOf(parts.encrypted)};
}

// ---- PKCS_PRIVATE_KEY_INFO ----

struct AttributeParts {
    std::string objectId;
    std::vector<std::string_view> values;
};

struct PrivateKeyParts {
    DWORD version = 0;
    AlgorithmParts algorithm;
    std::string_view key;
    std::vector<AttributeParts> attributes;
};

void Parse(DerReader* outer, PrivateKeyParts* parts)
{
    DerReader info = outer->Inside(outer->Take(kDerSequence));
    parts->version = SmallNumber(info.Take(kDerInteger), &info);
    parts->algorithm = TakeAlgorithm(&info);
    parts->key = info.Take(kDerOctetString);
    DerReader set = info.Inside(info.TakeOptional(DerContext(0)));
    while (!set.AtEnd()) {
        DerReader attribute = set.Inside(set.Take(kDerSequence));
        AttributeParts taken;
        taken.objectId = TakeObjectId(&attribute);
        DerReader values = attribute.Inside(attribute.Take(kDerSet));
        while (!values.AtEnd())
            taken.values.push_back(values.TakeAny().whole);
        parts->attributes.push_back(std::move(taken));
    }
}

CRYPT_ATTRIBUTE AttributeOf(const AttributeParts& parts, Layout* layout)
{
    auto* const values = layout->ReserveArray<CRYPT_ATTR_BLOB>(parts.values.size());
    for (size_t i = 0; values && i < parts.values.size(); i++)
        values[i] = BlobOf(parts.values[i]);
    return {layout->Text(parts.objectId), static_cast<DWORD>(parts.values.size()), values};
}

PCRYPT_ATTRIBUTES PutAttributes(const std::vector<AttributeParts>& parts, Layout* layout)
{
    if (parts.empty())
        return nullptr;
    auto* const attributes = layout->ReserveArray<CRYPT_ATTRIBUTES>(1);
    auto* const rows = layout->ReserveArray<CRYPT_ATTRIBUTE>(parts.size());
    for (size_t i = 0; i < parts.size(); i++) {
        const CRYPT_ATTRIBUTE attribute = AttributeOf(parts[i], layout);
        if (rows)
            rows[i] = attribute;
    }
    if (attributes)
        *attributes = {static_cast<DWORD>(parts.size()), rows};
    return attributes;
}

void Put(const PrivateKeyParts& parts, Layout* layout)
{
    auto* const info = layout->ReserveArray<CRYPT_PRIVATE_KEY_INFO>(1);
    const CRYPT_ALGORITHM_IDENTIFIER algorithm = AlgorithmOf(parts.algorithm, layout);
    const PCRYPT_ATTRIBUTES attributes = PutAttributes(parts.attributes, layout);
    if (info)
        *info = {parts.version, algorithm, BlobOf(parts.key), attributes};
}

// ---- PKCS_RSA_PRIVATE_KEY ----

// Numbers without the zeros in front.
struct RsaKeyParts {
    std::string_view modulus;
    std::string_view publicExponent;
    std::string_view privateExponent;
    std::string_view prime1;
    std::string_view prime2;
    std::string_view exponent1;
    std::string_view exponent2;
    std::string_view coefficient;

    size_t HalfSize() const { return (modulus.size() + 1) / 2; }
};

std::string_view TakeNumber(DerReader* reader)
{
    std::string_view number = reader->Take(kDerInteger);
    if (!number.empty() && static_cast<BYTE>(number[0]) >= 0x80)
        reader->Fail(CRYPT_E_BAD_ENCODE);
    while (!number.empty() && number[0] == 0)
        number.remove_prefix(1);
    return number;
}

void Parse(DerReader* outer, RsaKeyParts* parts)
{
    DerReader key = outer->Inside(outer->Take(kDerSequence));
    // Version 1 has more than two primes.
    if (SmallNumber(key.Take(kDerInteger), &key) != 0)
        key.Fail(CRYPT_E_BAD_ENCODE);
    for (std::string_view* number : {&parts->modulus, &parts->publicExponent, &parts->privateExponent, &parts->prime1,
                                     &parts->prime2, &parts->exponent1, &parts->exponent2, &parts->coefficient})
        *number = TakeNumber(&key);
    bool fits = !parts->modulus.empty() && parts->modulus.size() <= UINT16_MAX;
    fits = fits && parts->publicExponent.size() <= sizeof(DWORD);
    fits = fits && parts->privateExponent.size() <= parts->modulus.size();
    for (const std::string_view number :
         {parts->prime1, parts->prime2, parts->exponent1, parts->exponent2, parts->coefficient})
        fits = fits && number.size() <= parts->HalfSize();
    if (!fits)
        key.Fail(CRYPT_E_BAD_ENCODE);
}

// The number in so many bytes, the least significant one first. Where the next one goes.
BYTE* PutNumber(BYTE* at, std::string_view number, size_t size)
{
    std::reverse_copy(number.begin(), number.end(), at);
    memset(at + number.size(), 0, size - number.size());
    return at + size;
}

void Put(const RsaKeyParts& parts, Layout* layout)
{
    const size_t half = parts.HalfSize();
    const size_t whole = parts.modulus.size();
    BYTE* at = layout->Reserve(sizeof(BLOBHEADER) + sizeof(RSAPUBKEY) + 2 * whole + 5 * half);
    if (!at)
        return;
    const BLOBHEADER header = {PRIVATEKEYBLOB, CUR_BLOB_VERSION, 0, CALG_RSA_KEYX};
    memcpy(at, &header, sizeof header);
    at += sizeof header;
    RSAPUBKEY rsa = {BCRYPT_RSAPRIVATE_MAGIC, static_cast<DWORD>(8 * whole), 0};
    for (const char digit : parts.publicExponent)
        rsa.pubexp = rsa.pubexp << 8 | static_cast<BYTE>(digit);
    memcpy(at, &rsa, sizeof rsa);
    at = PutNumber(at + sizeof rsa, parts.modulus, whole);
    for (const std::string_view number :
         {parts.prime1, parts.prime2, parts.exponent1, parts.exponent2, parts.coefficient})
        at = PutNumber(at, number, half);
    PutNumber(at, parts.privateExponent, whole);
}

// ---- X509_BITS ----

void Parse(DerReader* outer, BitStringParts* parts)
{
    *parts = SplitBitString(outer->Take(kDerBitString), outer);
}

void Put(const BitStringParts& parts, Layout* layout)
{
    const CRYPT_INTEGER_BLOB bytes = BlobOf(parts.bytes);
    if (auto* const bits = layout->ReserveArray<CRYPT_BIT_BLOB>(1))
        *bits = {bytes.cbData, bytes.pbData, parts.unusedBits};
}

// ---- all of them ----

LPVOID Allocate(const CRYPT_DECODE_PARA* para, size_t size)
{
    return para && para->pfnAlloc ? para->pfnAlloc(size) : LocalAlloc(LMEM_FIXED, size);
}

template <typename Parts>
LONG Decode(std::string_view encoded, const CRYPT_DECODE_PARA* para, void** structure, DWORD* size)
{
    LONG error = ERROR_SUCCESS;
    DerReader outer(encoded, &error);
    Parts parts;
    Parse(&outer, &parts);
    if (error != ERROR_SUCCESS)
        return error;
    Layout measured(nullptr);
    Put(parts, &measured);
    if (measured.used() > UINT32_MAX)
        return ERROR_NOT_ENOUGH_MEMORY;
    void* const block = Allocate(para, measured.used());
    if (!block)
        return ERROR_NOT_ENOUGH_MEMORY;
    memset(block, 0, measured.used());
    Layout layout(static_cast<BYTE*>(block));
    Put(parts, &layout);
    *structure = block;
    *size = static_cast<DWORD>(measured.used());
    return ERROR_SUCCESS;
}

using Decoder = LONG (*)(std::string_view encoded, const CRYPT_DECODE_PARA* para, void** structure, DWORD* size);

Decoder FindDecoder(LPCSTR structType)
{
    const struct {
        LPCSTR type;
        Decoder decoder;
    } rows[] = {
        {PKCS_ENCRYPTED_PRIVATE_KEY_INFO, Decode<EncryptedKeyParts>},
        {PKCS_PRIVATE_KEY_INFO, Decode<PrivateKeyParts>},
        {PKCS_RSA_PRIVATE_KEY, Decode<RsaKeyParts>},
        {X509_BITS, Decode<BitStringParts>},
    };
    for (const auto& row : rows) {
        if (row.type == structType)
            return row.decoder;
    }
    return nullptr;
}

}  // namespace

BOOL WINAPI CryptDecodeObjectEx(DWORD encodingType, LPCSTR structType, const BYTE* encoded, DWORD encodedSize,
                                DWORD flags, PCRYPT_DECODE_PARA para, void* structure, DWORD* size)
{
    if (!structure || !size || (!encoded && encodedSize != 0))
        return Fail(E_INVALIDARG);
    void** const out = static_cast<void**>(structure);
    *out = nullptr;
    *size = 0;
    const Decoder decoder = (encodingType & X509_ASN_ENCODING) != 0 ? FindDecoder(structType) : nullptr;
    if (!decoder)
        return Fail(ERROR_FILE_NOT_FOUND);
    if (flags != (CRYPT_DECODE_ALLOC_FLAG | CRYPT_DECODE_NOCOPY_FLAG))
        return Fail(E_INVALIDARG);
    return Succeeds([&] { return decoder(BytesOf(encoded, encodedSize), para, out, size); });
}
