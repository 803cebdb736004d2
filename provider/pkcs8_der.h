// A cursor over DER from anywhere: tags of one byte, definite lengths, nothing read beyond the bytes.
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
    // bytes: may be NULL, which is empty.
    Pkcs8Der(const BYTE* bytes, size_t size) : at_(bytes), left_(bytes ? size : 0) {}

    bool AtEnd() const { return left_ == 0; }
    // 0 at the end.
    BYTE NextTag() const { return left_ ? at_[0] : BYTE{0}; }

    // Steps over the next element, which must have this tag, and gives its contents. False: it is another, or none.
    bool Take(BYTE tag, Pkcs8Der* contents);
    // The next element as a number. False: no such element, negative, or of over 32 bits.
    bool TakeNumber(DWORD* number);

    // What has not been taken.
    const BYTE* bytes() const { return at_; }
    size_t size() const { return left_; }
    std::string_view view() const { return {reinterpret_cast<const char*>(at_), left_}; }

  private:
    const BYTE* at_ = nullptr;
    size_t left_ = 0;
};
