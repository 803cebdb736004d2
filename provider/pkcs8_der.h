// A cursor over untrusted DER: one-byte tags, definite lengths, no reads beyond the input. Written by hand because the
// parameters must be read on Windows too, whose decoder doesn't support PBES2.
#pragma once

#include <string_view>

#include "platform/platform.h"

constexpr BYTE kDerTagInteger = 0x02;
constexpr BYTE kDerTagOctetString = 0x04;
constexpr BYTE kDerTagObjectId = 0x06;
constexpr BYTE kDerTagSequence = 0x30;

class Pkcs8Der {
  public:
    Pkcs8Der() = default;
    // bytes: NULL counts as empty.
    Pkcs8Der(const BYTE* bytes, size_t size) : at_(bytes), left_(bytes ? size : 0) {}

    bool AtEnd() const { return left_ == 0; }
    // 0 at the end.
    BYTE NextTag() const { return left_ ? at_[0] : BYTE{0}; }

    // Consumes the next element and returns its contents. False: it has a different tag, or there is none.
    bool Take(BYTE tag, Pkcs8Der* contents);
    // The next element as a number. False: not a number, negative, or over 32 bits.
    bool TakeNumber(DWORD* number);

    // The rest.
    const BYTE* bytes() const { return at_; }
    size_t size() const { return left_; }
    std::string_view view() const { return {reinterpret_cast<const char*>(at_), left_}; }

  private:
    const BYTE* at_ = nullptr;
    size_t left_ = 0;
};
