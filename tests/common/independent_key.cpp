#include "tests/common/independent_key.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tests/common/test_root.h"

namespace {
// Little-endian word number `index` of a blob.
size_t WordAt(const std::string& blob, size_t index)
{
    size_t word = 0;
    for (size_t byte = 4; byte-- > 0;)
        word = word << 8 | static_cast<unsigned char>(blob.at(index * 4 + byte));
    return word;
}

std::string Part(const std::string& blob, size_t offset, size_t size)
{
    if (offset > blob.size() || size > blob.size() - offset)
        throw std::runtime_error("the blob is cut");
    return blob.substr(offset, size);
}

std::string Trimmed(const std::string& number)
{
    return number.substr(std::min(number.size(), number.find_first_not_of('\0')));
}

std::string FromBase64(const std::string& text)
{
    const TextString wide = Wide(text);
    const DWORD length = static_cast<DWORD>(wide.size());
    DWORD size = static_cast<DWORD>(text.size());
    std::string bytes(size, 0);
    if (!CryptStringToBinaryW(wide.c_str(), length, CRYPT_STRING_BASE64, reinterpret_cast<BYTE*>(bytes.data()), &size,
                              nullptr, nullptr))
        throw std::runtime_error("no Base64: " + text);
    bytes.resize(size);
    return bytes;
}
}  // namespace

std::string FromBase64Url(std::string text)
{
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    return FromBase64(text.append((4 - text.size() % 4) % 4, '='));
}

IndependentKey::IndependentKey(const std::string& pem)
{
    const std::string begin = "-----BEGIN PUBLIC KEY-----\n";
    const size_t end = pem.find("-----END PUBLIC KEY-----\n");
    if (pem.rfind(begin, 0) != 0 || end == std::string::npos)
        throw std::runtime_error("no public key:\n" + pem);
    der_ = FromBase64(pem.substr(begin.size(), end - begin.size()));
}

IndependentKey IndependentKey::FromNumbers(const std::string& modulus, const std::string& exponent)
{
    IndependentKey key;
    key.der_ = DerOfNumbers(Trimmed(modulus), Trimmed(exponent));
    return key;
}

IndependentKey IndependentKey::FromPoint(const std::string& group, const std::string& x, const std::string& y)
{
    const size_t width = group == "P-521" ? 66 : group == "P-384" ? 48 : 32;
    std::string point;
    for (const std::string& coordinate : {Trimmed(x), Trimmed(y)}) {
        if (coordinate.size() > width)
            throw std::runtime_error("a coordinate is too long for " + group);
        point += std::string(width - coordinate.size(), 0) + coordinate;
    }
    IndependentKey key;
    key.der_ = DerOfPoint(group, point);
    return key;
}

IndependentKey IndependentKey::FromCngBlob(const std::string& blob, const std::string& group)
{
    const std::string magic = Part(blob, 0, 4);
    if (magic == "RSA1") {
        const size_t exponent = WordAt(blob, 2);
        const size_t modulus = WordAt(blob, 3);
        return FromNumbers(Part(blob, 24 + exponent, modulus), Part(blob, 24, exponent));
    }
    const bool named = magic.rfind("ECS", 0) == 0 || magic.rfind("ECK", 0) == 0;
    const std::string curve = magic.back() == '1' ? "P-256" : magic.back() == '3' ? "P-384" : "P-521";
    const size_t size = WordAt(blob, 1);
    return FromPoint(named ? curve : group, Part(blob, 8, size), Part(blob, 8 + size, size));
}

IndependentKey IndependentKey::FromJwk(const std::string& jwk)
{
    const auto key = nlohmann::json::parse(jwk);
    const auto bytes = [&key](const char* member) { return FromBase64Url(key.at(member)); };
    return key.at("kty") == "RSA" ? FromNumbers(bytes("n"), bytes("e"))
                                  : FromPoint(key.at("crv"), bytes("x"), bytes("y"));
}

std::string IndependentKey::Fingerprint() const
{
    return HexDigest(der_, "SHA256");
}

std::string HexDigest(const std::string& data, const std::string& hash)
{
    std::string text;
    for (const char ch : Digest(data, hash)) {
        text += "0123456789abcdef"[static_cast<unsigned char>(ch) >> 4];
        text += "0123456789abcdef"[ch & 15];
    }
    return text;
}
