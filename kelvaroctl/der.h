// The few DER structures that the tool writes, and the one that it reads.
#pragma once

#include <initializer_list>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

constexpr BYTE kDerSequence = 0x30;

// Any element: its tag octet, the length, the content.
Bytes DerElement(BYTE tag, const Bytes& content);
Bytes DerSequence(std::initializer_list<Bytes> members);
// A non-negative number, big-endian, leading zeros or none.
Bytes DerInteger(const Bytes& number);
Bytes DerBitString(const Bytes& content);
Bytes DerObjectId(const Bytes& encodedArcs);
Bytes DerNull();

// `number` without leading zeros, padded with zeros in front to `width` bytes. False when it does not fit.
bool ToWidth(const Bytes& number, size_t width, Bytes* result);

// An ECDSA signature: r and s side by side, each half of the bytes, and the sequence of two integers that stands for
// it.
Bytes DerFromRawSignature(const Bytes& raw);
// False when `der` is no such structure, to the last byte, or a number needs more than `width` bytes.
bool RawFromDerSignature(const Bytes& der, size_t width, Bytes* raw);

}  // namespace kelvaroctl
