#include "tests/common/independent_key.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tests/common/base64.h"

namespace {
std::string Part(const std::string& blob, size_t offset, size_t size)
{
    if (offset > blob.size() || size > blob.size() - offset)
        throw std::runtime_error("the blob is too short");
    return blob.substr(offset, size);
}

// Little-endian word number `index` of a blob.
size_t WordAt(const std::string& blob, size_t index)
{
    uint32_t word;
    memcpy(&word, Part(blob, index * 4, 4).data(), sizeof(word));
    return word;
}

std::string Trimmed(const std::string& number)
{
    return number.substr(std::min(number.size(), number.find_first_not_of('\0')));
}

std::string DerElement(char tag, const std::string& content)
{
    std::string length;
    for (size_t rest = content.size(); rest != 0; rest >>= 8)
        length.insert(0, 1, static_cast<char>(rest));
    if (content.size() >= 0x80)
        length.insert(0, 1, static_cast<char>(0x80 | length.size()));
    return tag + (length.empty() ? std::string(1, '\0') : length) + content;
}

std::string DerNumber(const std::string& bigEndian)
{
    const std::string number = Trimmed(bigEndian);
    return DerElement(2, std::string(number.empty() || (number[0] & 0x80) ? 1 : 0, '\0') + number);
}

// algorithm: the object identifiers and parameters in DER.
std::string PublicKeyInfo(const std::string& algorithm, const std::string& key)
{
    return DerElement(0x30, DerElement(0x30, algorithm) + DerElement(3, '\0' + key));
}
}  // namespace

std::string FromBase64Url(const std::string& text)
{
    const std::vector<BYTE> bytes = FromBase64(text);
    return {bytes.begin(), bytes.end()};
}

IndependentKey::IndependentKey(const std::string& pem)
{
    const std::string begin = "-----BEGIN PUBLIC KEY-----\n";
    const size_t end = pem.find("-----END PUBLIC KEY-----\n");
    if (pem.rfind(begin, 0) != 0 || end == std::string::npos)
        throw std::runtime_error("not a public key:\n" + pem);
    std::string text = pem.substr(begin.size(), end - begin.size());
    text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    der_ = FromBase64Url(text);
}

std::string DerOfPair(const std::string& first, const std::string& second)
{
    return DerElement(0x30, DerNumber(first) + DerNumber(second));
}

IndependentKey IndependentKey::FromNumbers(const std::string& modulus, const std::string& exponent)
{
    IndependentKey key;
    key.der_ = PublicKeyInfo(std::string("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01\x05\0", 13),
                             DerOfPair(modulus, exponent));
    return key;
}

IndependentKey IndependentKey::FromPoint(const std::string& group, const std::string& x, const std::string& y)
{
    const char* const curve = group == "P-256"   ? "\x06\x08\x2A\x86\x48\xCE\x3D\x03\x01\x07"
                              : group == "P-384" ? "\x06\x05\x2B\x81\x04\x00\x22"
                              : group == "P-521" ? "\x06\x05\x2B\x81\x04\x00\x23"
                                                 : "\x06\x05\x2B\x81\x04\x00\x0A";  // secp256k1
    const size_t width = group == "P-521" ? 66 : group == "P-384" ? 48 : 32;
    std::string point = "\4";  // uncompressed
    for (const std::string& coordinate : {Trimmed(x), Trimmed(y)}) {
        if (coordinate.size() > width)
            throw std::runtime_error("a coordinate is too long for " + group);
        point += std::string(width - coordinate.size(), 0) + coordinate;
    }
    IndependentKey key;
    key.der_ = PublicKeyInfo(
        "\x06\x07\x2A\x86\x48\xCE\x3D\x02\x01" + std::string(curve, 2u + static_cast<BYTE>(curve[1])), point);
    return key;
}

IndependentKey IndependentKey::FromCngBlob(const std::string& blob)
{
    const std::string magic = Part(blob, 0, 4);
    if (magic == "RSA1") {
        const size_t exponent = WordAt(blob, 2);
        const size_t modulus = WordAt(blob, 3);
        return FromNumbers(Part(blob, 24 + exponent, modulus), Part(blob, 24, exponent));
    }
    const std::string curve = magic.back() == '1' ? "P-256" : magic.back() == '3' ? "P-384" : "P-521";
    const size_t size = WordAt(blob, 1);
    return FromPoint(curve, Part(blob, 8, size), Part(blob, 8 + size, size));
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
