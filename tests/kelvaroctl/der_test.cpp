// DER: what is written, and which signatures are taken for ones.
#include "kelvaroctl/der.h"

#include <gtest/gtest.h>

using namespace kelvaroctl;

namespace {

TEST(DerTest, NumbersAreShortestAndNeverNegative)
{
    EXPECT_EQ((Bytes{2, 1, 0}), DerInteger({}));
    EXPECT_EQ((Bytes{2, 1, 0}), DerInteger({0, 0}));
    EXPECT_EQ((Bytes{2, 1, 0x7F}), DerInteger({0, 0x7F}));
    EXPECT_EQ((Bytes{2, 2, 0, 0x80}), DerInteger({0x80}));
}

TEST(DerTest, LengthsOfOneTwoAndThreeOctets)
{
    const struct {
        size_t content;
        Bytes head;
    } rows[] = {
        {126, {3, 127, 0}},        {127, {3, 0x81, 128, 0}},        {254, {3, 0x81, 255, 0}},
        {255, {3, 0x82, 1, 0, 0}}, {0xFFFF, {3, 0x83, 1, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        const Bytes element = DerBitString(Bytes(row.content, 0xAA));
        EXPECT_EQ(row.head, Bytes(element.begin(), element.begin() + static_cast<std::ptrdiff_t>(row.head.size())));
        EXPECT_EQ(row.head.size() + row.content, element.size());
    }
}

TEST(DerTest, SignaturesComeBackAsTheyWere)
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
}

TEST(DerTest, WhatIsNoSignature)
{
    const struct {
        const char* name;
        Bytes der;
    } rows[] = {
        {"nothing", {}},
        {"one byte", {0x30}},
        {"no sequence", {0x31, 6, 2, 1, 1, 2, 1, 1}},
        {"cut", {0x30, 6, 2, 1, 1, 2, 1}},
        {"length beyond the end", {0x30, 0x7F, 2, 1, 1, 2, 1, 1}},
        {"long length beyond the end", {0x30, 0x81}},
        {"indefinite length", {0x30, 0x80, 2, 1, 1, 2, 1, 1, 0, 0}},
        {"length not in its shortest form", {0x30, 0x81, 6, 2, 1, 1, 2, 1, 1}},
        {"something behind", {0x30, 6, 2, 1, 1, 2, 1, 1, 0}},
        {"three numbers", {0x30, 9, 2, 1, 1, 2, 1, 1, 2, 1, 1}},
        {"one number", {0x30, 3, 2, 1, 1}},
        {"negative", {0x30, 6, 2, 1, 0x80, 2, 1, 1}},
        {"a number not in its shortest form", {0x30, 7, 2, 2, 0, 1, 2, 1, 1}},
        {"an empty number", {0x30, 5, 2, 0, 2, 1, 1}},
        {"too long for the curve", {0x30, 8, 2, 3, 1, 0, 0, 2, 1, 1}},
    };
    for (const auto& row : rows) {
        Bytes raw;
        EXPECT_FALSE(RawFromDerSignature(row.der, 2, &raw)) << row.name;
    }
    Bytes raw;
    EXPECT_TRUE(RawFromDerSignature({0x30, 7, 2, 2, 1, 2, 2, 1, 3}, 2, &raw));
    EXPECT_EQ((Bytes{1, 2, 0, 3}), raw);
}

}  // namespace
