// Key blobs of forms that a fresh key of the simulator does not take.
#include "kelvaroctl/public_key.h"

#include <gtest/gtest.h>

#include <cstring>

#include "kelvaroctl/failure.h"

using namespace kelvaroctl;

namespace {

Bytes RsaBlob(const Bytes& exponent, const Bytes& modulus)
{
    BCRYPT_RSAKEY_BLOB header = {};
    header.Magic = BCRYPT_RSAPUBLIC_MAGIC;
    header.BitLength = static_cast<ULONG>(modulus.size() * 8);
    header.cbPublicExp = static_cast<ULONG>(exponent.size());
    header.cbModulus = static_cast<ULONG>(modulus.size());
    Bytes blob(sizeof(header));
    std::memcpy(blob.data(), &header, sizeof(header));
    blob.insert(blob.end(), exponent.begin(), exponent.end());
    blob.insert(blob.end(), modulus.begin(), modulus.end());
    return blob;
}

Bytes CurveBlob(ULONG magic, const Bytes& coordinate)
{
    BCRYPT_ECCKEY_BLOB header = {};
    header.dwMagic = magic;
    header.cbKey = static_cast<ULONG>(coordinate.size());
    Bytes blob(sizeof(header));
    std::memcpy(blob.data(), &header, sizeof(header));
    for (int times = 0; times < 2; ++times)
        blob.insert(blob.end(), coordinate.begin(), coordinate.end());
    return blob;
}

TEST(PublicKeyTest, LeadingZerosDoNotCount)
{
    Bytes modulus(256, 0xC5);
    modulus[0] = 0x40;  // 2047 bits
    Bytes padded = modulus;
    padded.insert(padded.begin(), 0);
    const PublicKey plain = ParsePublicBlob(RsaBlob({1, 0, 1}, modulus));
    const PublicKey zeros = ParsePublicBlob(RsaBlob({0, 1, 0, 1}, padded));
    EXPECT_EQ(Fingerprint(plain), Fingerprint(zeros));
    EXPECT_EQ("RSA 2047", Describe(zeros));
    EXPECT_EQ("AQAB", JsonWebKey(zeros, "k")["e"]);
}

TEST(PublicKeyTest, CoordinatesGetTheWidthOfTheirCurve)
{
    const struct {
        ULONG magic;
        size_t given;
        size_t width;
        const char* name;
    } rows[] = {
        {BCRYPT_ECDSA_PUBLIC_P384_MAGIC, 49, 48, "P-384"},
        {BCRYPT_ECDH_PUBLIC_P521_MAGIC, 65, 66, "P-521"},
        {BCRYPT_ECDH_PUBLIC_P256_MAGIC, 32, 32, "P-256"},
    };
    for (const auto& row : rows) {
        Bytes coordinate(row.given, 1);
        coordinate[0] = 0;
        const PublicKey key = ParsePublicBlob(CurveBlob(row.magic, coordinate));
        EXPECT_EQ(row.name, Describe(key));
        EXPECT_EQ(row.width, key.x.size());
        EXPECT_EQ(row.width, key.y.size());
    }
    EXPECT_THROW(ParsePublicBlob(CurveBlob(BCRYPT_ECDSA_PUBLIC_P384_MAGIC, Bytes(49, 1))), Failure);
    EXPECT_THROW(ParsePublicBlob(CurveBlob(0, Bytes(32, 1))), Failure);
}

TEST(PublicKeyTest, CutBlobsAreRefused)
{
    const Bytes blobs[] = {RsaBlob({1, 0, 1}, Bytes(256, 0xC5)),
                           CurveBlob(BCRYPT_ECDSA_PUBLIC_P256_MAGIC, Bytes(32, 1))};
    for (const Bytes& blob : blobs) {
        for (size_t size = 0; size < blob.size(); ++size)
            EXPECT_THROW(ParsePublicBlob(Bytes(blob.begin(), blob.begin() + static_cast<std::ptrdiff_t>(size))),
                         Failure)
                << size;
    }
    EXPECT_THROW(ParsePublicBlob(RsaBlob({1, 0, 1}, Bytes(256, 0))), Failure);
}

}  // namespace
