#include "kelvaroctl/hash.h"

#include "kelvaroctl/failure.h"
#include "kelvaroctl/files.h"

namespace kelvaroctl {

static void Require(NTSTATUS status)
{
    if (!BCRYPT_SUCCESS(status))
        throw InternalFailure("the platform cannot compute the digest: " + HexNumber(static_cast<DWORD>(status)));
}

// feed: calls the function that it is given with each piece of the data.
template <typename Feed>
static Bytes DigestOf(const WCHAR* name, size_t digestSize, Feed feed)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    Require(BCryptOpenAlgorithmProvider(&algorithm, name, nullptr, 0));
    const AlgorithmProvider ownedAlgorithm(algorithm);
    BCRYPT_HASH_HANDLE hash = nullptr;
    Require(BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0));
    const Owner<void, BCryptDestroyHash> ownedHash(hash);
    feed([hash](const void* piece, size_t size) {
        Require(BCryptHashData(hash, static_cast<PUCHAR>(const_cast<void*>(piece)), static_cast<ULONG>(size), 0));
    });
    Bytes digest(digestSize);
    Require(BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0));
    return digest;
}

Bytes Digest(const WCHAR* algorithm, size_t digestSize, const Bytes& data)
{
    return DigestOf(algorithm, digestSize, [&](const auto& add) { add(data.data(), data.size()); });
}

Bytes FileDigest(const WCHAR* algorithm, size_t digestSize, const std::string& fileName)
{
    return DigestOf(algorithm, digestSize, [&](const auto& add) { ReadInPieces(fileName, add); });
}

}  // namespace kelvaroctl
