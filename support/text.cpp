#include "support/text.h"

#include <string.h>

#include <algorithm>

namespace {

// Four characters per iteration: tokens and answers have thousands.
size_t LengthOf(const WCHAR* text)
{
    for (size_t length = 0;; length += 4) {
        if (!text[length])
            return length;
        if (!text[length + 1])
            return length + 1;
        if (!text[length + 2])
            return length + 2;
        if (!text[length + 3])
            return length + 3;
    }
}

WCHAR Lower(WCHAR ch)
{
    return ch >= 'A' && ch <= 'Z' ? static_cast<WCHAR>(ch + ('a' - 'A')) : ch;
}

// The digits of `value` in `base`, at least `width` of them, written to `room`.
TextView Digits(WCHAR (&room)[24], uint64_t value, unsigned base, int width)
{
    size_t at = 24;
    do {
        const unsigned digit = static_cast<unsigned>(value % base);
        room[--at] = static_cast<WCHAR>(digit < 10 ? '0' + digit : 'a' + (digit - 10));
        value /= base;
        width--;
    } while ((value || width > 0) && at > 0);
    return TextView(room + at, 24 - at);
}

}  // namespace

TextView View(const WCHAR* text)
{
    return text ? TextView(text, LengthOf(text)) : TextView();
}

bool TextEqual(const WCHAR* left, const WCHAR* right)
{
    return View(left) == View(right);
}

bool TextEqualNoCase(TextView left, TextView right)
{
    if (left.size() != right.size())
        return false;
    for (size_t i = 0; i < left.size(); i++) {
        if (Lower(left[i]) != Lower(right[i]))
            return false;
    }
    return true;
}

bool TextContains(const WCHAR* text, TextView part)
{
    return View(text).find(part) != TextView::npos;
}

bool TextCopy(WCHAR* buffer, size_t cchBuffer, TextView text)
{
    if (text.size() >= cchBuffer) {
        buffer[0] = 0;
        return false;
    }
    TextCopyCut(buffer, cchBuffer, text);
    return true;
}

void TextCopyCut(WCHAR* buffer, size_t cchBuffer, TextView text)
{
    const size_t count = text.copy(buffer, cchBuffer - 1);
    buffer[count] = 0;
}

TextWriter::TextWriter(WCHAR* buffer, size_t cchBuffer) : buffer_(buffer), capacity_(cchBuffer)
{
    buffer_[0] = 0;
}

TextWriter& TextWriter::Text(TextView text)
{
    return Units(text.data(), text.size());
}

TextWriter& TextWriter::Text(const WCHAR* text)
{
    return Text(text ? TextView(text) : TextView(TEXT("(NULL)")));
}

TextWriter& TextWriter::Units(const void* text, size_t count)
{
    const size_t fitting = std::min(count, capacity_ - 1 - length_);
    if (fitting)
        memcpy(buffer_ + length_, text, fitting * sizeof(WCHAR));
    length_ += fitting;
    buffer_[length_] = 0;
    return *this;
}

TextWriter& TextWriter::Bytes(const char* text)
{
    return text ? Bytes(text, strlen(text)) : Text(static_cast<const WCHAR*>(nullptr));
}

TextWriter& TextWriter::Bytes(const char* text, size_t count)
{
    for (size_t i = 0; i < count && length_ + 1 < capacity_; i++)
        buffer_[length_++] = static_cast<unsigned char>(text[i]);
    buffer_[length_] = 0;
    return *this;
}

TextWriter& TextWriter::Number(int64_t value)
{
    WCHAR room[24];
    if (value < 0)
        Text(TextView(TEXT("-")));
    // Negated as unsigned: the smallest number has no positive counterpart.
    const uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    return Text(Digits(room, magnitude, 10, 1));
}

TextWriter& TextWriter::Padded(uint32_t value, int width)
{
    WCHAR room[24];
    return Text(Digits(room, value, 10, width));
}

TextWriter& TextWriter::Hex(uint32_t value)
{
    WCHAR room[24];
    return Text(Digits(room, value, 16, 1));
}
