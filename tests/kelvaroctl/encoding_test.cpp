// What the tool reads and writes byte by byte: DER, key blobs in forms that the simulator's new keys don't have, and
// texts.
#include <gtest/gtest.h>

#include "kelvaroctl/der.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/log_table.h"
#include "kelvaroctl/public_key.h"
#include "tests/common/row.h"

using namespace kelvaroctl;

namespace {

TEST(DerTest, NumbersAndLengths)
{
    EXPECT_EQ("020100", HexText(DerInteger({})));
    EXPECT_EQ("020100", HexText(DerInteger({0, 0})));
    EXPECT_EQ("02017f", HexText(DerInteger({0, 0x7F})));
    EXPECT_EQ("02020080", HexText(DerInteger({0x80})));
    const std::pair<size_t, std::string> rows[] = {
        {126, "037f00"}, {127, "03818000"}, {254, "0381ff00"}, {255, "0382010000"}, {0xFFFF, "038301000000"}};
    for (const auto& [size, head] : rows)
        EXPECT_EQ(head + HexText(Bytes(size, 0xAA)), HexText(DerBitString(Bytes(size, 0xAA))));
}

TEST(DerTest, Signatures)
{
    for (const size_t width : {32u, 48u, 66u}) {
        for (const BYTE fill : Bytes{0x01, 0x80, 0xFF}) {
            Bytes raw(2 * width, fill);
            raw[0] = 0;  // a short r
            Bytes back;
            EXPECT_TRUE(RawFromDerSignature(DerFromRawSignature(raw), width, &back));
            EXPECT_EQ(raw, back);
        }
    }
    Bytes raw;
    EXPECT_TRUE(RawFromDerSignature({0x30, 7, 2, 2, 1, 2, 2, 1, 3}, 2, &raw));
    EXPECT_EQ((Bytes{1, 2, 0, 3}), raw);
    // Truncated, past the end, of indefinite or overlong length, with trailing bytes, with one or three numbers, or
    // with a number that is negative, padded, empty or too long.
    for (const char* refused :
         {"", "30", "3106020101020101", "30060201010201", "307f020101020101", "3081", "30800201010201010000",
          "308106020101020101", "300602010102010100", "3009020101020101020101", "3003020101", "3006020180020101",
          "300702020001020101", "30050200020101", "30080203010000020101"}) {
        Bytes der;
        EXPECT_TRUE(ParseHex(refused, &der));
        EXPECT_FALSE(RawFromDerSignature(der, 2, &raw)) << refused;
    }
}

// A public blob: its header, then the two numbers.
Bytes Blob(std::initializer_list<size_t> header, const Bytes& first, const Bytes& second)
{
    Bytes blob;
    for (const size_t word : header) {
        for (int shift = 0; shift < 32; shift += 8)
            blob.push_back(static_cast<BYTE>(word >> shift));
    }
    blob.insert(blob.end(), first.begin(), first.end());
    blob.insert(blob.end(), second.begin(), second.end());
    return blob;
}

Bytes RsaBlob(const Bytes& exponent, const Bytes& modulus)
{
    return Blob({BCRYPT_RSAPUBLIC_MAGIC, modulus.size() * 8, exponent.size(), modulus.size(), 0, 0}, exponent, modulus);
}

Bytes CurveBlob(ULONG magic, const Bytes& coordinate)
{
    return Blob({magic, coordinate.size()}, coordinate, coordinate);
}

TEST(PublicKeyTest, LeadingZerosAndWidths)
{
    Bytes modulus(256, 0xC5);
    modulus[0] = 0x40;  // 2047 bits
    Bytes padded = modulus;
    padded.insert(padded.begin(), 0);
    const PublicKey zeros = ParsePublicBlob(RsaBlob({0, 1, 0, 1}, padded));
    EXPECT_EQ(Fingerprint(ParsePublicBlob(RsaBlob({1, 0, 1}, modulus))), Fingerprint(zeros));
    EXPECT_EQ("RSA 2047", Describe(zeros));
    EXPECT_EQ("AQAB", JsonWebKey(zeros, "k")["e"]);
    // The coordinates' widths in the blob and afterwards.
    const Row<ULONG, size_t, size_t, const char*> rows[] = {{BCRYPT_ECDSA_PUBLIC_P384_MAGIC, 49, 48, "P-384"},
                                                            {BCRYPT_ECDH_PUBLIC_P521_MAGIC, 65, 66, "P-521"},
                                                            {BCRYPT_ECDH_PUBLIC_P256_MAGIC, 32, 32, "P-256"}};
    for (const auto& [magic, given, width, name] : rows) {
        Bytes coordinate(given, 1);
        coordinate[0] = 0;
        const PublicKey key = ParsePublicBlob(CurveBlob(magic, coordinate));
        EXPECT_EQ(name, Describe(key));
        EXPECT_EQ(width, key.x.size());
        EXPECT_EQ(width, key.y.size());
    }
}

TEST(PublicKeyTest, WhatIsRefused)
{
    EXPECT_THROW(ParsePublicBlob(CurveBlob(BCRYPT_ECDSA_PUBLIC_P384_MAGIC, Bytes(49, 1))), Failure);
    EXPECT_THROW(ParsePublicBlob(CurveBlob(0, Bytes(32, 1))), Failure);
    EXPECT_THROW(ParsePublicBlob(RsaBlob({1, 0, 1}, Bytes(256, 0))), Failure);
    for (const Bytes& blob :
         {RsaBlob({1, 0, 1}, Bytes(256, 0xC5)), CurveBlob(BCRYPT_ECDSA_PUBLIC_P256_MAGIC, Bytes(32, 1))}) {
        for (auto end = blob.begin(); end != blob.end(); ++end)
            EXPECT_THROW(ParsePublicBlob(Bytes(blob.begin(), end)), Failure) << end - blob.begin();
    }
}

TEST(TextTest, ForATerminal)
{
    EXPECT_EQ("a\xC3\xA9 b", Printable("a\xC3\xA9 b"));
    EXPECT_EQ("\\x1b[2J\\x0a\\x7f\\x9b", Printable("\x1B[2J\n\x7F\xC2\x9B"));
    // Two bytes, one column.
    EXPECT_EQ("\xC3\xA9    b\nccc  d\n", Columns({{"\xC3\xA9", "b"}, {"ccc", "d"}}));
}

TEST(LogTableTest, TheLongestTextOfTheLevelCounts)
{
    const auto cause = [](const char* text, DWORD level) {
        const auto found = ExplainLogText(text, level);
        return found ? found->cause.substr(0, 20) : "none";
    };
    EXPECT_EQ("no connection to the",
              cause("KVCDoWebCall WinHttpSendRequest Failed - Sleeping 20 Seconds Error 0x2efd", 1));
    EXPECT_EQ("the name wasn't foun", cause("KVCDoWebCall WinHttpSendRequest Failed Error 0x2ee7", 1));
    EXPECT_EQ("none", cause("KVCDoWebCall WinHttpSendRequest Failed Error 0x2ee7", 2));
    EXPECT_EQ("none", cause("KelvaroSignHashes", 1));
    EXPECT_EQ("none", cause("", 1));
    EXPECT_EQ("the service has a fault", ExplainLogNumber(503)->cause);
    EXPECT_FALSE(ExplainLogNumber(0x1234));
    EXPECT_EQ(0x193u, NumberOfLogText("KVCCryptoOp Failed Error 0x193"));
    EXPECT_FALSE(NumberOfLogText("KVCCryptoOp Failed"));
}

}  // namespace
