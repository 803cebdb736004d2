// Small helpers over wide text. Nothing here allocates, and nothing reads a locale.
#pragma once

#include <string_view>

#include "platform/platform.h"

using TextView = std::basic_string_view<WCHAR>;

// A view of a terminated text; NULL counts as empty.
TextView View(const WCHAR* text);

// Exact comparison; NULL counts as empty.
bool TextEqual(const WCHAR* left, const WCHAR* right);

// Comparison without regard to case, over the ASCII letters.
bool TextEqualNoCase(TextView left, TextView right);

// Whether `part` stands anywhere in `text`; NULL text counts as empty.
bool TextContains(const WCHAR* text, TextView part);

// Copies `text` into a buffer of cchBuffer characters, terminator included. False, with an empty buffer, when it does
// not fit.
bool TextCopy(WCHAR* buffer, size_t cchBuffer, TextView text);

// Copies as much of `text` as fits into a buffer of cchBuffer characters and terminates it.
void TextCopyCut(WCHAR* buffer, size_t cchBuffer, TextView text);

// Composes text into a fixed buffer: what does not fit is cut, and the text is terminated at every moment.
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
    TextWriter& Padded(uint32_t value, int width);  // decimal, zeros in front up to `width` digits
    TextWriter& Hex(uint32_t value);                // lower-case hexadecimal, no padding

    size_t length() const { return length_; }

  private:
    WCHAR* buffer_;
    size_t capacity_;
    size_t length_ = 0;
};
