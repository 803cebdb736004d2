// What the tool reads and writes byte by byte: DER, key blobs of forms that a fresh key of the simulator doesn't take,
// and texts.
#include <gtest/gtest.h>

#include <cstring>

#include "kelvaroctl/der.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/log_table.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/setting_table.h"

using namespace kelvaroctl;

namespace {

TEST(DerTest, NumbersAndLengths)
{
    EXPECT_EQ((Bytes{2, 1, 0}), DerInteger({}));
    EXPECT_EQ((Bytes{2, 1, 0}), DerInteger({0, 0}));
    EXPECT_EQ((Bytes{2, 1, 0x7F}), DerInteger({0, 0x7F}));
    EXPECT_EQ((Bytes{2, 2, 0, 0x80}), DerInteger({0x80}));
    const struct {
        size_t content;
        Bytes head;
    } rows[] = {{126, {3, 127, 0}},
                {127, {3, 0x81, 128, 0}},
                {254, {3, 0x81, 255, 0}},
                {255, {3, 0x82, 1, 0, 0}},
                {0xFFFF, {3, 0x83, 1, 0, 0, 0}}};
    for (const auto& row : rows) {
        const Bytes element = DerBitString(Bytes(row.content, 0xAA));
        EXPECT_EQ(row.head, Bytes(element.begin(), element.begin() + static_cast<std::ptrdiff_t>(row.head.size())));
        EXPECT_EQ(row.head.size() + row.content, element.size());
    }
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
    // Cut, beyond the end, indefinite or longer than need be, with something behind, of one or three numbers, with a
    // negative, padded, empty or too long one.
    const Bytes refused[] = {{},
                             {0x30},
                             {0x31, 6, 2, 1, 1, 2, 1, 1},
                             {0x30, 6, 2, 1, 1, 2, 1},
                             {0x30, 0x7F, 2, 1, 1, 2, 1, 1},
                             {0x30, 0x81},
                             {0x30, 0x80, 2, 1, 1, 2, 1, 1, 0, 0},
                             {0x30, 0x81, 6, 2, 1, 1, 2, 1, 1},
                             {0x30, 6, 2, 1, 1, 2, 1, 1, 0},
                             {0x30, 9, 2, 1, 1, 2, 1, 1, 2, 1, 1},
                             {0x30, 3, 2, 1, 1},
                             {0x30, 6, 2, 1, 0x80, 2, 1, 1},
                             {0x30, 7, 2, 2, 0, 1, 2, 1, 1},
                             {0x30, 5, 2, 0, 2, 1, 1},
                             {0x30, 8, 2, 3, 1, 0, 0, 2, 1, 1}};
    for (const Bytes& der : refused)
        EXPECT_FALSE(RawFromDerSignature(der, 2, &raw)) << HexText(der);
}

template <typename Header>
Bytes Blob(const Header& header, const Bytes& first, const Bytes& second)
{
    Bytes blob(sizeof(header));
    std::memcpy(blob.data(), &header, sizeof(header));
    blob.insert(blob.end(), first.begin(), first.end());
    blob.insert(blob.end(), second.begin(), second.end());
    return blob;
}

Bytes RsaBlob(const Bytes& exponent, const Bytes& modulus)
{
    BCRYPT_RSAKEY_BLOB header = {};
    header.Magic = BCRYPT_RSAPUBLIC_MAGIC;
    header.BitLength = static_cast<ULONG>(modulus.size() * 8);
    header.cbPublicExp = static_cast<ULONG>(exponent.size());
    header.cbModulus = static_cast<ULONG>(modulus.size());
    return Blob(header, exponent, modulus);
}

Bytes CurveBlob(ULONG magic, const Bytes& coordinate)
{
    return Blob(BCRYPT_ECCKEY_BLOB{magic, static_cast<ULONG>(coordinate.size())}, coordinate, coordinate);
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
    const struct {
        ULONG magic;
        size_t given;
        size_t width;
        const char* name;
    } rows[] = {{BCRYPT_ECDSA_PUBLIC_P384_MAGIC, 49, 48, "P-384"},
                {BCRYPT_ECDH_PUBLIC_P521_MAGIC, 65, 66, "P-521"},
                {BCRYPT_ECDH_PUBLIC_P256_MAGIC, 32, 32, "P-256"}};
    for (const auto& row : rows) {
        Bytes coordinate(row.given, 1);
        coordinate[0] = 0;
        const PublicKey key = ParsePublicBlob(CurveBlob(row.magic, coordinate));
        EXPECT_EQ(row.name, Describe(key));
        EXPECT_EQ(row.width, key.x.size());
        EXPECT_EQ(row.width, key.y.size());
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

TEST(TextTest, NumbersAsTheyAreTyped)
{
    const struct {
        const char* text;
        DWORD number;
    } rows[] = {
        {"0", 0}, {"10", 10}, {"0x10", 16}, {"0XfF", 255}, {"4294967295", 0xFFFFFFFF}, {"0xFFFFFFFF", 0xFFFFFFFF}};
    for (const auto& row : rows)
        EXPECT_EQ(row.number, ParseNumber(row.text)) << row.text;
    for (const char* text : {"4294967296", "", "0x", " 1", "1 ", "+1", "-1", "1e3"})
        EXPECT_FALSE(ParseNumber(text)) << text;
}

TEST(TextTest, SecretsThatSignInWouldMangle)
{
    const Setting& secret = *FindSetting("clientsecret");
    EXPECT_EQ("", TextWarning(secret, TEXT("abc~DEF.123_-")));
    for (const WCHAR* mangled : {TEXT("a&b"), TEXT("a+b"), TEXT("a%41"), TEXT("a b")}) {
        EXPECT_EQ("", TextProblem(secret, mangled));
        EXPECT_NE("", TextWarning(secret, mangled));
    }
    // Byte order marks, which nobody sees.
    EXPECT_NE("", TextProblem(secret, TEXT("\xFEFF") TEXT("abc")));
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
