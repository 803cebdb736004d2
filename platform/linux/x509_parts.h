// The parts of requests and certificates, read from DER. Views point into the bytes that were read.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/der.h"

struct AlgorithmParts {
    std::string objectId;         // dotted
    std::string_view parameters;  // a whole element, or empty
};

struct BitStringParts {
    std::string_view bytes;
    BYTE unusedBits = 0;
};

struct PublicKeyParts {
    AlgorithmParts algorithm;
    BitStringParts key;
};

std::string TakeObjectId(DerReader* reader);
AlgorithmParts TakeAlgorithm(DerReader* reader);
// A whole name, whose content is not checked.
std::string_view TakeName(DerReader* reader);
PublicKeyParts TakePublicKey(DerReader* reader);

// The parts of a BIT STRING's content.
BitStringParts SplitBitString(std::string_view content, DerReader* reader);

// UTCTime or GeneralizedTime.
FILETIME TakeTime(DerReader* reader);

// UTCTime from 1950 to 2049, else GeneralizedTime. Empty for a time out of range.
std::string MakeTime(const FILETIME& time);

// A small number; larger ones are CRYPT_E_ASN1_LARGE.
DWORD SmallNumber(std::string_view integerContent, DerReader* reader);

// An INTEGER's bytes in reverse, as Windows stores large numbers.
std::string Reversed(std::string_view bytes);
