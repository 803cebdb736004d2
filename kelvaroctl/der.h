// The few DER structures that the tool writes, and the one that it reads. Written by hand because the tool uses no
// crypto library and also runs on Windows.
#pragma once

#include <initializer_list>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

constexpr BYTE kDerSequence = 0x30;

// An element: tag, length, content.
Bytes DerElement(BYTE tag, const Bytes& content);
Bytes DerSequence(std::initializer_list<Bytes> members);
// number: non-negative, big-endian, with or without leading zeros.
Bytes DerInteger(const Bytes& number);
Bytes DerBitString(const Bytes& content);
Bytes DerObjectId(const Bytes& encodedArcs);
Bytes DerNull();

Bytes WithoutLeadingZeros(const Bytes& number);
// Pads `number` with leading zeros, or strips them, to `width` bytes. False if it does not fit.
bool ToWidth(const Bytes& number, size_t width, Bytes* result);

// Converts an ECDSA signature from r and s side by side, of equal width, to a sequence of two integers.
Bytes DerFromRawSignature(const Bytes& raw);
// The reverse. False if `der` is anything else, has trailing bytes, or a number needs more than `width` bytes.
bool RawFromDerSignature(const Bytes& der, size_t width, Bytes* raw);

}  // namespace kelvaroctl
