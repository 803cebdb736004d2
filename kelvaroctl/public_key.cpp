#include "kelvaroctl/public_key.h"

#include <cstring>

#include "kelvaroctl/der.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/hash.h"

namespace kelvaroctl {

static const Bytes kRsaEncryption = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
static const Bytes kEcPublicKey = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};

static const Bytes kP256 = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
static const Bytes kP384 = {0x2B, 0x81, 0x04, 0x00, 0x22};
static const Bytes kP521 = {0x2B, 0x81, 0x04, 0x00, 0x23};

static const Curve kCurves[] = {
    {"P-256", BCRYPT_ECDSA_PUBLIC_P256_MAGIC, BCRYPT_ECDH_PUBLIC_P256_MAGIC, 32, kP256},
    {"P-384", BCRYPT_ECDSA_PUBLIC_P384_MAGIC, BCRYPT_ECDH_PUBLIC_P384_MAGIC, 48, kP384},
    {"P-521", BCRYPT_ECDSA_PUBLIC_P521_MAGIC, BCRYPT_ECDH_PUBLIC_P521_MAGIC, 66, kP521},
};

static Bytes Slice(const Bytes& blob, size_t offset, size_t size)
{
    if (offset > blob.size() || size > blob.size() - offset)
        throw InternalFailure("the module exported a key blob that is too short");
    const auto begin = blob.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
}

template <typename Header>
static Header HeaderOf(const Bytes& blob)
{
    Header header;
    std::memcpy(&header, Slice(blob, 0, sizeof(header)).data(), sizeof(header));
    return header;
}

static PublicKey ParseRsa(const Bytes& blob)
{
    const auto header = HeaderOf<BCRYPT_RSAKEY_BLOB>(blob);
    PublicKey key;
    key.isRsa = true;
    key.exponent = WithoutLeadingZeros(Slice(blob, sizeof(header), header.cbPublicExp));
    key.modulus = WithoutLeadingZeros(Slice(blob, sizeof(header) + header.cbPublicExp, header.cbModulus));
    if (key.modulus.empty() || key.exponent.empty())
        throw InternalFailure("the module exported a key without a modulus or an exponent");
    return key;
}

static PublicKey ParseCurve(const Bytes& blob, const Curve& curve)
{
    const auto header = HeaderOf<BCRYPT_ECCKEY_BLOB>(blob);
    PublicKey key;
    key.curve = &curve;
    // The vault's coordinates may have an extra leading zero.
    if (!ToWidth(Slice(blob, sizeof(header), header.cbKey), curve.width, &key.x) ||
        !ToWidth(Slice(blob, sizeof(header) + header.cbKey, header.cbKey), curve.width, &key.y))
        throw InternalFailure(std::string("the key's coordinates are too long for ") + curve.jwkName);
    return key;
}

PublicKey ParsePublicBlob(const Bytes& blob)
{
    const auto magic = HeaderOf<ULONG>(blob);
    if (magic == BCRYPT_RSAPUBLIC_MAGIC)
        return ParseRsa(blob);
    for (const Curve& curve : kCurves) {
        if (magic == curve.ecdsaMagic || magic == curve.ecdhMagic)
            return ParseCurve(blob, curve);
    }
    throw UsageFailure("the key's curve is not P-256, P-384 or P-521; it is only available in the format cng");
}

Bytes SubjectPublicKeyInfo(const PublicKey& key)
{
    if (key.isRsa) {
        return DerSequence({DerSequence({DerObjectId(kRsaEncryption), DerNull()}),
                            DerBitString(DerSequence({DerInteger(key.modulus), DerInteger(key.exponent)}))});
    }
    Bytes point{4};  // uncompressed
    point.insert(point.end(), key.x.begin(), key.x.end());
    point.insert(point.end(), key.y.begin(), key.y.end());
    return DerSequence(
        {DerSequence({DerObjectId(kEcPublicKey), DerObjectId(key.curve->objectId)}), DerBitString(point)});
}

std::string PemText(const Bytes& der, const std::string& label)
{
    constexpr size_t kLine = 64;
    const std::string body = Base64(der);
    std::string text = "-----BEGIN " + label + "-----\n";
    for (size_t at = 0; at < body.size(); at += kLine)
        text += body.substr(at, kLine) + "\n";
    return text + "-----END " + label + "-----\n";
}

std::optional<Bytes> ReadPem(std::string_view text, const std::string& label, const std::string& fileName, size_t* at)
{
    const std::string head = "-----BEGIN " + label + "-----";
    const size_t begin = text.find(head, *at);
    if (begin == std::string::npos)
        return std::nullopt;
    const size_t body = begin + head.size();
    *at = text.find("-----END " + label + "-----", body);
    if (*at == std::string::npos)
        throw UsageFailure(fileName + " contains a block without an end: " + label);
    Bytes der;
    if (!ParseBase64(text.substr(body, *at - body), &der))
        throw UsageFailure(fileName + " contains a block that is not Base64: " + label);
    return der;
}

nlohmann::ordered_json JsonWebKey(const PublicKey& key, const std::string& kid)
{
    if (key.isRsa)
        return {{"kty", "RSA"}, {"kid", kid}, {"n", Base64Url(key.modulus)}, {"e", Base64Url(key.exponent)}};
    return {{"kty", "EC"}, {"kid", kid}, {"crv", key.curve->jwkName}, {"x", Base64Url(key.x)}, {"y", Base64Url(key.y)}};
}

std::string Fingerprint(const PublicKey& key)
{
    return HexText(Digest(BCRYPT_SHA256_ALGORITHM, 32, SubjectPublicKeyInfo(key)));
}

std::string Describe(const PublicKey& key)
{
    return key.isRsa ? "RSA " + std::to_string(BitLength(key)) : key.curve->jwkName;
}

size_t BitLength(const PublicKey& key)
{
    if (!key.isRsa)
        return key.curve->width == 66 ? 521 : key.curve->width * 8;
    size_t bits = key.modulus.size() * 8;
    for (BYTE top = key.modulus[0]; !(top & 0x80); top = static_cast<BYTE>(top << 1))
        --bits;
    return bits;
}

void AddFacts(const PublicKey& key, nlohmann::ordered_json* object)
{
    (*object)["key"] = Describe(key);
    (*object)["bits"] = BitLength(key);
    (*object)["fingerprint"] = Fingerprint(key);
}

}  // namespace kelvaroctl
