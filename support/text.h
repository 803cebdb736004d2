// Small helpers for wide text. None allocates, and none depends on a locale.
#pragma once

#include <string_view>

#include "platform/platform.h"

using TextView = std::basic_string_view<WCHAR>;

// A view of zero-terminated text; NULL counts as empty.
TextView View(const WCHAR* text);

// Exact comparison; NULL counts as empty.
bool TextEqual(const WCHAR* left, const WCHAR* right);

// Comparison that ignores the case of ASCII letters.
bool TextEqualNoCase(TextView left, TextView right);

// Whether `text` contains `part`; a NULL text counts as empty.
bool TextContains(const WCHAR* text, TextView part);

// Copies `text` into a buffer of cchBuffer characters, terminator included. False, with an empty buffer, if it doesn't
// fit.
bool TextCopy(WCHAR* buffer, size_t cchBuffer, TextView text);

// Copies as much of `text` as fits into a buffer of cchBuffer characters and terminates it.
void TextCopyCut(WCHAR* buffer, size_t cchBuffer, TextView text);

// Writes text to a fixed buffer. Text that doesn't fit is cut; the buffer is always terminated.
class TextWriter {
  public:
    // buffer: cchBuffer characters (at least 1), owned by the caller.
    TextWriter(WCHAR* buffer, size_t cchBuffer);

    TextWriter& Text(const WCHAR* text);  // NULL prints as "(NULL)"
    TextWriter& Text(TextView text);
    TextWriter& Units(const void* text, size_t count);  // 16-bit units at any alignment
    TextWriter& Bytes(const char* text);                // each byte widened to one character
    TextWriter& Bytes(const char* text, size_t count);
    TextWriter& Number(int64_t value);              // decimal
    TextWriter& Padded(uint32_t value, int width);  // decimal, with leading zeros up to `width` digits
    TextWriter& Hex(uint32_t value);                // lower-case hexadecimal, no padding

    size_t length() const { return length_; }

  private:
    WCHAR* buffer_;
    size_t capacity_;
    size_t length_ = 0;
};
