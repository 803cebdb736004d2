#include <algorithm>
#include <memory>
#include <stdexcept>

#include "tests/common/independent_key.h"
#include "tests/common/test_root.h"

namespace {
struct LocalFreer {
    void operator()(void* block) const { LocalFree(block); }
};

BYTE* Bytes(const std::string& text)
{
    return reinterpret_cast<BYTE*>(const_cast<char*>(text.data()));
}

DWORD Size(const std::string& text)
{
    return static_cast<DWORD>(text.size());
}

template <typename T>
std::unique_ptr<T, LocalFreer> Decoded(LPCSTR type, const std::string& der)
{
    T* block = nullptr;
    DWORD size = 0;
    if (!CryptDecodeObjectEx(X509_ASN_ENCODING, type, Bytes(der), Size(der), CRYPT_DECODE_ALLOC_FLAG, nullptr, &block,
                             &size))
        throw std::runtime_error("Windows cannot decode this");
    return std::unique_ptr<T, LocalFreer>(block);
}

bool IsRsa(const CERT_PUBLIC_KEY_INFO& info)
{
    return info.Algorithm.pszObjId == std::string(szOID_RSA_RSA);
}

// In the form that CNG reads: of a curve, r and s side by side.
std::string RawSignature(const std::string& signature, const CERT_PUBLIC_KEY_INFO& info, SignatureForm form)
{
    if (form != SignatureForm::Der)
        return signature;
    const auto pair = Decoded<CERT_ECC_SIGNATURE>(X509_ECC_SIGNATURE, signature);
    std::string raw;
    for (const CRYPT_UINT_BLOB& number : {pair->r, pair->s}) {  // little-endian
        std::string half(number.pbData, number.pbData + number.cbData);
        half.resize(info.PublicKey.cbData / 2);  // half of the point, without its first byte
        raw.append(half.rbegin(), half.rend());
    }
    return raw;
}
}  // namespace

bool IndependentKey::CanTellOf(const std::string& signature, SignatureForm form) const
{
    const auto info = Decoded<CERT_PUBLIC_KEY_INFO>(X509_PUBLIC_KEY_INFO, der_);
    if (IsRsa(*info))
        return true;
    const std::string raw = RawSignature(signature, *info, form);
    return raw[0] && raw[raw.size() / 2];
}

bool IndependentKey::Verifies(const std::string& digest, const std::string& signature, const std::string& hash,
                              SignatureForm form) const
{
    const auto info = Decoded<CERT_PUBLIC_KEY_INFO>(X509_PUBLIC_KEY_INFO, der_);
    BCRYPT_KEY_HANDLE key = nullptr;
    if (!CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING, info.get(), 0, nullptr, &key))
        throw std::runtime_error("Windows cannot verify with this key");
    const std::unique_ptr<void, decltype(&BCryptDestroyKey)> owned(key, BCryptDestroyKey);
    const TextString name = Wide(hash);
    BCRYPT_PKCS1_PADDING_INFO pkcs1 = {name.c_str()};
    BCRYPT_PSS_PADDING_INFO pss = {name.c_str(), Size(digest)};
    const bool isPss = form == SignatureForm::Pss;
    void* const padding = !IsRsa(*info) ? nullptr : isPss ? static_cast<void*>(&pss) : &pkcs1;
    const DWORD flags = !padding ? 0 : isPss ? BCRYPT_PAD_PSS : BCRYPT_PAD_PKCS1;
    const std::string read = RawSignature(signature, *info, form);
    return BCryptVerifySignature(key, padding, Bytes(digest), Size(digest), Bytes(read), Size(read), flags) == 0;
}

std::string Digest(const std::string& data, const std::string& hash)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (BCryptOpenAlgorithmProvider(&algorithm, Wide(hash).c_str(), nullptr, 0) != 0)
        throw std::runtime_error("no digest " + hash);
    DWORD size = 0;
    DWORD written = 0;
    BCryptGetProperty(algorithm, BCRYPT_HASH_LENGTH, reinterpret_cast<BYTE*>(&size), sizeof(size), &written, 0);
    std::string digest(size, 0);
    BCryptHash(algorithm, nullptr, 0, Bytes(data), Size(data), Bytes(digest), size);
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return digest;
}
