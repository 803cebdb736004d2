// UTF-8 and UTF-16. Invalid input becomes U+FFFD, one for each maximal part of a broken sequence.
#pragma once

#include <string>
#include <string_view>

#include "platform/linux/win_types.h"

constexpr char32_t kReplacement = 0xFFFD;

// A code point. valid: false if it replaces invalid input.
struct CodePoint {
    char32_t value;
    bool valid;
};

// Both remove the first code point from `text`, which must not be empty.
CodePoint TakeUtf8(std::string_view* text);
CodePoint TakeUtf16(std::u16string_view* text);

// Writes a code point at `out` and returns the number of units; `out` has room for 4, or 2.
size_t PutUtf8(char32_t value, char* out);
size_t PutUtf16(char32_t value, char16_t* out);

std::string ToUtf8(std::u16string_view text);
std::u16string ToUtf16(std::string_view text);

// Both return false if `text` is malformed; *out is then the same as ToUtf16's result.
bool ToUtf16Strict(std::string_view text, std::u16string* out);
bool IsWellFormed(std::u16string_view text);

// Two upper-case digits a byte.
std::string HexOf(std::string_view bytes);

// Upper-case form of a code unit: Latin, Greek and Cyrillic, in every locale.
char16_t UpperCase(char16_t unit);
bool EqualIgnoringCase(std::u16string_view first, std::u16string_view second);

inline std::u16string_view ViewOf(LPCWSTR text)
{
    return text ? std::u16string_view(text) : std::u16string_view(u"");
}
