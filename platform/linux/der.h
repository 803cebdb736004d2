// DER elements: definite lengths and tags of one byte. Bytes are handled as std::string and std::string_view.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/win_types.h"

constexpr BYTE kDerBoolean = 0x01;
constexpr BYTE kDerInteger = 0x02;
constexpr BYTE kDerBitString = 0x03;
constexpr BYTE kDerOctetString = 0x04;
constexpr BYTE kDerObjectId = 0x06;
constexpr BYTE kDerUtf8String = 0x0C;
constexpr BYTE kDerNumericString = 0x12;
constexpr BYTE kDerPrintableString = 0x13;
constexpr BYTE kDerT61String = 0x14;
constexpr BYTE kDerVideotexString = 0x15;
constexpr BYTE kDerIa5String = 0x16;
constexpr BYTE kDerUtcTime = 0x17;
constexpr BYTE kDerGeneralizedTime = 0x18;
constexpr BYTE kDerGraphicString = 0x19;
constexpr BYTE kDerVisibleString = 0x1A;
constexpr BYTE kDerGeneralString = 0x1B;
constexpr BYTE kDerUniversalString = 0x1C;
constexpr BYTE kDerBmpString = 0x1E;
constexpr BYTE kDerSequence = 0x30;
constexpr BYTE kDerSet = 0x31;

// The context-specific tag [number] of a constructed element, or of a primitive one.
constexpr BYTE DerContext(unsigned number, bool constructed = true)
{
    return static_cast<BYTE>((constructed ? 0xA0u : 0x80u) | number);
}

struct DerElement {
    BYTE tag = 0;
    std::string_view content;
    std::string_view whole;  // with tag and length
};

// Consumes elements from the front of `bytes`. The first failure is kept in *error, which several readers may share,
// and everything read after it is empty. So check *error, initially ERROR_SUCCESS, once at the end.
class DerReader {
  public:
    DerReader(std::string_view bytes, LONG* error) : rest_(bytes), error_(error) {}

    // True after a failure too, so that loops end.
    bool AtEnd() const;
    // 0 at the end.
    BYTE NextTag() const;
    DerElement TakeAny();
    // The content of an element that must have this tag.
    std::string_view Take(BYTE tag);
    // The content of an element of this tag if it comes next, else empty.
    std::string_view TakeOptional(BYTE tag);
    // A reader of an element's content that shares this one's error.
    DerReader Inside(std::string_view content) const { return DerReader(content, error_); }
    void Fail(LONG error);

  private:
    std::string_view rest_;
    LONG* error_;
};

std::string MakeDer(BYTE tag, std::string_view content);

inline std::string_view BytesOf(const BYTE* data, size_t size)
{
    return std::string_view(reinterpret_cast<const char*>(data), size);
}
