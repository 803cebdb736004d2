// CryptDecodeObjectEx for private keys: OpenSSL decodes them, and the structure is laid out in one block.

// OpenSSL's newer decoders leave a copy of the key in freed memory; d2i_RSAPrivateKey doesn't.
#define OPENSSL_SUPPRESS_DEPRECATED

#include <openssl/rsa.h>
#include <string.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/find_row.h"
#include "platform/linux/object_identifier.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"
#include "platform/linux/outcome.h"
#include "platform/linux/structure_block.h"
#include "platform/linux/win_private_keys.h"

namespace {

using BitStringPointer = Owner<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using EncryptedKeyPointer = Owner<X509_SIG, X509_SIG_free>;
using PrivateKeyPointer = Owner<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using RsaPointer = Owner<RSA, RSA_free>;

std::string_view BytesIn(const ASN1_STRING* string)
{
    return BytesOf(ASN1_STRING_get0_data(string), static_cast<size_t>(ASN1_STRING_length(string)));
}

// The whole element; an empty blob for NULL.
CRYPT_INTEGER_BLOB AppendElement(const ASN1_TYPE* element, StructureBlock* block)
{
    const int size = element ? i2d_ASN1_TYPE(element, nullptr) : 0;
    std::string der(static_cast<size_t>(size > 0 ? size : 0), '\0');
    BYTE* at = reinterpret_cast<BYTE*>(der.data());
    if (!der.empty())
        i2d_ASN1_TYPE(element, &at);
    return block->AppendBlob(der);
}

CRYPT_ALGORITHM_IDENTIFIER AppendAlgorithm(const X509_ALGOR* algorithm, StructureBlock* block)
{
    return {block->AppendText(ObjectIdText(algorithm->algorithm)), AppendElement(algorithm->parameter, block)};
}

CRYPT_ATTRIBUTE AppendAttribute(X509_ATTRIBUTE* attribute, StructureBlock* block)
{
    std::vector<CRYPT_ATTR_BLOB> values;
    values.reserve(static_cast<size_t>(X509_ATTRIBUTE_count(attribute)));
    for (int i = 0; i < X509_ATTRIBUTE_count(attribute); i++)
        values.push_back(AppendElement(X509_ATTRIBUTE_get0_type(attribute, i), block));
    return {block->AppendText(ObjectIdText(X509_ATTRIBUTE_get0_object(attribute))), static_cast<DWORD>(values.size()),
            block->AppendArray(values)};
}

PCRYPT_ATTRIBUTES AppendAttributes(const STACK_OF(X509_ATTRIBUTE) * attributes, StructureBlock* block)
{
    const int count = attributes ? sk_X509_ATTRIBUTE_num(attributes) : 0;
    if (count == 0)
        return nullptr;
    std::vector<CRYPT_ATTRIBUTE> rows;
    rows.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; i++)
        rows.push_back(AppendAttribute(sk_X509_ATTRIBUTE_value(attributes, i), block));
    CRYPT_ATTRIBUTE* const array = block->AppendArray(rows);
    return block->AppendArray(std::vector<CRYPT_ATTRIBUTES>{{static_cast<DWORD>(count), array}});
}

// ---- the block ----

struct Answer {
    const CRYPT_DECODE_PARA* para;
    void** structure;
    DWORD* size;
};

// layOut: fills a StructureBlock, once to learn its size and once for the block's address.
template <typename LayOut>
LONG Give(const Answer& answer, const LayOut& layOut)
{
    StructureBlock measured(nullptr);
    layOut(&measured);
    const size_t size = measured.bytes().size();
    if (size > UINT32_MAX)
        return ERROR_NOT_ENOUGH_MEMORY;
    const CRYPT_DECODE_PARA* const para = answer.para;
    void* const block = para && para->pfnAlloc ? para->pfnAlloc(size) : LocalAlloc(LMEM_FIXED, size);
    if (!block)
        return ERROR_NOT_ENOUGH_MEMORY;
    StructureBlock placed(block);
    layOut(&placed);
    memcpy(block, placed.bytes().data(), size);
    *answer.structure = block;
    *answer.size = static_cast<DWORD>(size);
    return ERROR_SUCCESS;
}

LONG DecodeEncryptedKey(const BYTE* at, long size, const Answer& answer)
{
    const EncryptedKeyPointer key(d2i_X509_SIG(nullptr, &at, size));
    if (!key)
        return CRYPT_E_ASN1_CORRUPT;
    const X509_ALGOR* algorithm = nullptr;
    const ASN1_OCTET_STRING* encrypted = nullptr;
    X509_SIG_get0(key.get(), &algorithm, &encrypted);
    return Give(answer, [&](StructureBlock* block) {
        const size_t offset = block->Reserve(sizeof(CRYPT_ENCRYPTED_PRIVATE_KEY_INFO));
        block->Put(offset, CRYPT_ENCRYPTED_PRIVATE_KEY_INFO{AppendAlgorithm(algorithm, block),
                                                            block->AppendBlob(BytesIn(encrypted))});
    });
}

LONG DecodePrivateKey(const BYTE* at, long size, const Answer& answer)
{
    const PrivateKeyPointer key(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &at, size));
    const BYTE* bytes = nullptr;
    int count = 0;
    const X509_ALGOR* algorithm = nullptr;
    if (!key || PKCS8_pkey_get0(nullptr, &bytes, &count, &algorithm, key.get()) != 1)
        return CRYPT_E_ASN1_CORRUPT;
    return Give(answer, [&](StructureBlock* block) {
        const size_t offset = block->Reserve(sizeof(CRYPT_PRIVATE_KEY_INFO));
        block->Put(offset, CRYPT_PRIVATE_KEY_INFO{0, AppendAlgorithm(algorithm, block),
                                                  block->AppendBlob(BytesOf(bytes, static_cast<size_t>(count))),
                                                  AppendAttributes(PKCS8_pkey_get0_attrs(key.get()), block)});
    });
}

// ---- PKCS_RSA_PRIVATE_KEY ----

// The legacy form: header, RSAPUBKEY, then the numbers, the least significant byte first.
class LegacyKey {
  public:
    explicit LegacyKey(const RSA* rsa) : rsa_(rsa), modulusSize_(static_cast<size_t>(RSA_size(rsa))) {}

    // False when a number is too large for the form.
    bool Write()
    {
        const size_t half = (modulusSize_ + 1) / 2;
        RSAPUBKEY head = {BCRYPT_RSAPRIVATE_MAGIC, static_cast<DWORD>(8 * modulusSize_), 0};
        if (modulusSize_ > UINT16_MAX ||
            !Place(RSA_get0_e(rsa_), reinterpret_cast<BYTE*>(&head.pubexp), sizeof head.pubexp))
            return false;
        Append(BLOBHEADER{PRIVATEKEYBLOB, CUR_BLOB_VERSION, 0, CALG_RSA_KEYX});
        Append(head);
        return Append(RSA_get0_n(rsa_), modulusSize_) && Append(RSA_get0_p(rsa_), half) &&
               Append(RSA_get0_q(rsa_), half) && Append(RSA_get0_dmp1(rsa_), half) &&
               Append(RSA_get0_dmq1(rsa_), half) && Append(RSA_get0_iqmp(rsa_), half) &&
               Append(RSA_get0_d(rsa_), modulusSize_);
    }
    const SecretString& bytes() const { return bytes_; }

  private:
    static bool Place(const BIGNUM* number, BYTE* at, size_t size)
    {
        return number && BN_bn2lebinpad(number, at, static_cast<int>(size)) >= 0;
    }
    template <typename T>
    void Append(const T& part)
    {
        bytes_.append(reinterpret_cast<const char*>(&part), sizeof part);
    }
    bool Append(const BIGNUM* number, size_t size)
    {
        const size_t offset = bytes_.size();
        bytes_.resize(offset + size);
        return Place(number, reinterpret_cast<BYTE*>(bytes_.data()) + offset, size);
    }

    const RSA* rsa_;
    size_t modulusSize_;
    SecretString bytes_;
};

// OpenSSL reads a negative number as positive. A key has only one DER form, so writing it again shows the difference.
bool IsWrittenTheSame(const RSA* rsa, std::string_view encoded)
{
    SecretString written(encoded.size(), '\0');
    BYTE* at = reinterpret_cast<BYTE*>(written.data());
    return i2d_RSAPrivateKey(rsa, nullptr) == static_cast<int>(encoded.size()) && i2d_RSAPrivateKey(rsa, &at) > 0 &&
           std::string_view(written) == encoded;
}

LONG DecodeRsaKey(const BYTE* encoded, long size, const Answer& answer)
{
    const BYTE* at = encoded;
    const RsaPointer rsa(d2i_RSAPrivateKey(nullptr, &at, size));
    if (!rsa)
        return CRYPT_E_ASN1_CORRUPT;
    LegacyKey legacy(rsa.get());
    if (RSA_get_multi_prime_extra_count(rsa.get()) != 0 ||
        !IsWrittenTheSame(rsa.get(), BytesOf(encoded, static_cast<size_t>(at - encoded))) || !legacy.Write())
        return CRYPT_E_BAD_ENCODE;
    return Give(answer, [&legacy](StructureBlock* block) { block->Append(legacy.bytes()); });
}

LONG DecodeBits(const BYTE* at, long size, const Answer& answer)
{
    const BitStringPointer bits(d2i_ASN1_BIT_STRING(nullptr, &at, size));
    if (!bits)
        return CRYPT_E_ASN1_CORRUPT;
    return Give(answer, [&bits](StructureBlock* block) {
        const size_t offset = block->Reserve(sizeof(CRYPT_BIT_BLOB));
        const CRYPT_INTEGER_BLOB bytes = block->AppendBlob(BytesIn(bits.get()));
        // OpenSSL keeps the number of unused bits in the lowest three flags.
        block->Put(offset, CRYPT_BIT_BLOB{bytes.cbData, bytes.pbData, static_cast<DWORD>(bits->flags & 7)});
    });
}

using Decoder = LONG (*)(const BYTE* encoded, long size, const Answer& answer);

Decoder FindDecoder(LPCSTR structType)
{
    struct Row {
        LPCSTR type;
        Decoder decoder;
    };
    const Row rows[] = {
        {PKCS_ENCRYPTED_PRIVATE_KEY_INFO, DecodeEncryptedKey},
        {PKCS_PRIVATE_KEY_INFO, DecodePrivateKey},
        {PKCS_RSA_PRIVATE_KEY, DecodeRsaKey},
        {X509_BITS, DecodeBits},
    };
    const Row* known = FindRow(rows, [structType](const Row& row) { return row.type == structType; });
    return known ? known->decoder : nullptr;
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
    const QuietOpenssl quiet;
    return Succeeds([&] { return decoder(encoded, static_cast<long>(encodedSize), {para, out, size}); });
}
