#include "kelvaroctl/hash.h"

#include "kelvaroctl/failure.h"
#include "kelvaroctl/files.h"

namespace kelvaroctl {

namespace {
// An incremental digest.
class Hasher {
  public:
    explicit Hasher(const WCHAR* algorithm)
    {
        Check(BCryptOpenAlgorithmProvider(&algorithm_, algorithm, nullptr, 0));
        const NTSTATUS status = BCryptCreateHash(algorithm_, &hash_, nullptr, 0, nullptr, 0, 0);
        if (!BCRYPT_SUCCESS(status))
            BCryptCloseAlgorithmProvider(algorithm_, 0);
        Check(status);
    }
    ~Hasher()
    {
        BCryptDestroyHash(hash_);
        BCryptCloseAlgorithmProvider(algorithm_, 0);
    }
    Hasher(const Hasher&) = delete;
    Hasher& operator=(const Hasher&) = delete;

    void Add(const BYTE* data, size_t size)
    {
        Check(BCryptHashData(hash_, const_cast<PUCHAR>(data), static_cast<ULONG>(size), 0));
    }
    Bytes Finish(size_t digestSize)
    {
        Bytes digest(digestSize);
        Check(BCryptFinishHash(hash_, digest.data(), static_cast<ULONG>(digest.size()), 0));
        return digest;
    }

  private:
    static void Check(NTSTATUS status)
    {
        if (!BCRYPT_SUCCESS(status))
            throw InternalFailure("the platform cannot compute the digest: " + HexNumber(static_cast<DWORD>(status)));
    }

    BCRYPT_ALG_HANDLE algorithm_ = nullptr;
    BCRYPT_HASH_HANDLE hash_ = nullptr;
};
}  // namespace

Bytes Digest(const WCHAR* algorithm, size_t digestSize, const Bytes& data)
{
    Hasher hasher(algorithm);
    hasher.Add(data.data(), data.size());
    return hasher.Finish(digestSize);
}

Bytes FileDigest(const WCHAR* algorithm, size_t digestSize, const std::string& fileName)
{
    Hasher hasher(algorithm);
    ReadInPieces(fileName,
                 [&](const char* piece, size_t size) { hasher.Add(reinterpret_cast<const BYTE*>(piece), size); });
    return hasher.Finish(digestSize);
}

}  // namespace kelvaroctl
