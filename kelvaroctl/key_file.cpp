#include "kelvaroctl/key_file.h"

#include "kelvaroctl/der.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/public_key.h"

namespace kelvaroctl {

namespace {
constexpr size_t kLargestKeyFile = 64 * 1024;

struct PemKind {
    const char* label;
    const char* problem;  // NULL if it is accepted
};
constexpr PemKind kPemKinds[] = {
    {"PRIVATE KEY", nullptr},
    {"ENCRYPTED PRIVATE KEY", nullptr},
    {"RSA PRIVATE KEY", "an RSA key in its traditional form; 'openssl pkcs8 -topk8' makes PKCS#8 of it"},
    {"EC PRIVATE KEY", "a curve key; the provider only imports RSA keys"},
    {"CERTIFICATE", "a certificate; use 'kelvaroctl certs install'"},
    {"PUBLIC KEY", "only a public key"},
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

// Decodes the first block with a known label.
std::optional<Bytes> ReadKeyPem(std::string_view text, const std::string& name)
{
    for (const PemKind& kind : kPemKinds) {
        if (kind.problem && text.find(std::string("-----BEGIN ") + kind.label + "-----") != std::string::npos)
            throw UsageFailure(name + " holds " + kind.problem);
        size_t at = 0;
        if (auto found = ReadPem(text, kind.label, name, &at))
            return found;
    }
    return std::nullopt;
}

// The first member of the encrypted form is its algorithm, a sequence; of the plain form, its version.
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
    Bytes content = ReadInput(name, kLargestKeyFile);
    for (const BlobKind& kind : kBlobKinds) {
        if (kind.magic == WordIn(content))
            return {"CNG blob", kind.blobType, false, false, std::move(content)};
    }
    if (!content.empty() && content[0] == kDerSequence)
        return Pkcs8(std::move(content));
    if (auto der = ReadKeyPem(AsText(content), name))
        return Pkcs8(std::move(*der));
    throw UsageFailure(name + " contains no private key, neither PKCS#8 nor a CNG blob");
}

}  // namespace kelvaroctl
