#include "kelvaroctl/key_file.h"

#include <cstring>

#include "kelvaroctl/der.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/files.h"

namespace kelvaroctl {

namespace {
constexpr size_t kLargestKeyFile = 64 * 1024;

struct PemKind {
    const char* label;
    const char* problem;  // NULL for one that is taken
};
constexpr PemKind kPemKinds[] = {
    {"PRIVATE KEY", nullptr},
    {"ENCRYPTED PRIVATE KEY", nullptr},
    {"RSA PRIVATE KEY", "an RSA key in its traditional form; 'openssl pkcs8 -topk8' makes PKCS#8 of it"},
    {"EC PRIVATE KEY", "a curve key, and the provider imports RSA keys alone"},
    {"CERTIFICATE", "a certificate, which 'kelvaroctl certs' is for"},
    {"PUBLIC KEY", "a public key alone"},
    {"PKCS7", "an enveloped message, which only a program with the recipient's certificate can import"},
    {"CMS", "an enveloped message, which only a program with the recipient's certificate can import"},
};

struct BlobKind {
    DWORD magic;
    const WCHAR* blobType;
};
constexpr BlobKind kBlobKinds[] = {
    {BCRYPT_RSAPRIVATE_MAGIC, BCRYPT_RSAPRIVATE_BLOB},
    {BCRYPT_RSAFULLPRIVATE_MAGIC, BCRYPT_RSAFULLPRIVATE_BLOB},
};

Bytes FromBase64(const std::string& text, const std::string& name)
{
    WideText wide = ToWide(text);
    const DWORD length = static_cast<DWORD>(wide.size());
    DWORD size = 0;
    Bytes bytes;
    bool good = !wide.empty() &&
                CryptStringToBinaryW(wide.c_str(), length, CRYPT_STRING_BASE64, nullptr, &size, nullptr, nullptr);
    bytes.resize(good ? size : 0);
    good =
        good && CryptStringToBinaryW(wide.c_str(), length, CRYPT_STRING_BASE64, bytes.data(), &size, nullptr, nullptr);
    SecureZeroMemory(wide.data(), wide.size() * sizeof(WCHAR));
    if (!good)
        throw UsageFailure(name + " holds a key block that is not Base64");
    return bytes;
}

// The first block of a PEM text whose label is known, unless there is none.
bool ReadPem(const std::string& text, const std::string& name, Bytes* der)
{
    for (const PemKind& kind : kPemKinds) {
        const std::string begin = std::string("-----BEGIN ") + kind.label + "-----";
        const size_t at = text.find(begin);
        if (at == std::string::npos)
            continue;
        if (kind.problem)
            throw UsageFailure(name + " holds " + kind.problem);
        const size_t end = text.find(std::string("-----END ") + kind.label + "-----", at);
        if (end == std::string::npos)
            throw UsageFailure(name + " holds a key block without an end");
        *der = FromBase64(text.substr(at + begin.size(), end - at - begin.size()), name);
        return true;
    }
    return false;
}

// The encrypted form begins with its algorithm, a sequence, where the plain one has its version.
bool IsEncrypted(const Bytes& der)
{
    if (der.size() < 2)
        return false;
    const size_t head = der[1] < 0x80 ? 2 : 2 + (der[1] & 0x7Fu);
    return head < der.size() && der[head] == kDerSequence;
}

KeyFile Pkcs8(Bytes der)
{
    const bool encrypted = IsEncrypted(der);
    return {encrypted ? "encrypted PKCS#8" : "PKCS#8", NCRYPT_PKCS8_PRIVATE_KEY_BLOB, true, encrypted, std::move(der)};
}
}  // namespace

KeyFile ReadKeyFile(const std::string& name)
{
    Bytes content = ReadWholeFile(name, kLargestKeyFile);
    DWORD magic = 0;
    if (content.size() >= sizeof(magic))
        std::memcpy(&magic, content.data(), sizeof(magic));
    for (const BlobKind& kind : kBlobKinds) {
        if (kind.magic == magic)
            return {"CNG blob", kind.blobType, false, false, std::move(content)};
    }
    if (!content.empty() && content[0] == kDerSequence)
        return Pkcs8(std::move(content));
    std::string text(content.begin(), content.end());
    Bytes der;
    const bool found = ReadPem(text, name, &der);
    SecureZeroMemory(text.data(), text.size());
    SecureZeroMemory(content.data(), content.size());
    if (!found)
        throw UsageFailure(name + " holds no private key, neither PKCS#8 nor a CNG blob");
    return Pkcs8(std::move(der));
}

}  // namespace kelvaroctl
