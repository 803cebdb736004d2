#include "provider/pkcs8_der.h"

namespace {

// Reads the length at *at and advances past it. False: indefinite, longer than four bytes, or truncated.
bool ReadLength(const BYTE** at, const BYTE* end, size_t* length)
{
    if (*at == end)
        return false;
    const BYTE first = *(*at)++;
    *length = first;
    if (first < 0x80)
        return true;
    const size_t count = first & 0x7FU;
    if (count == 0 || count > 4 || static_cast<size_t>(end - *at) < count)
        return false;
    *length = 0;
    for (size_t i = 0; i < count; i++)
        *length = *length << 8 | *(*at)++;
    return true;
}

}  // namespace

bool Pkcs8Der::Take(BYTE tag, Pkcs8Der* contents)
{
    if (AtEnd() || at_[0] != tag)
        return false;
    const BYTE* at = at_ + 1;
    const BYTE* const end = at_ + left_;
    size_t length = 0;
    if (!ReadLength(&at, end, &length) || length > static_cast<size_t>(end - at))
        return false;
    *contents = Pkcs8Der(at, length);
    at_ = at + length;
    left_ = static_cast<size_t>(end - at_);
    return true;
}

bool Pkcs8Der::TakeNumber(DWORD* number)
{
    Pkcs8Der digits;
    if (!Take(kDerTagInteger, &digits) || digits.AtEnd() || digits.at_[0] >= 0x80)
        return false;
    if (digits.at_[0] == 0) {
        digits.at_++;
        digits.left_--;
    }
    if (digits.left_ > sizeof(*number))
        return false;
    *number = 0;
    for (size_t i = 0; i < digits.left_; i++)
        *number = *number << 8 | digits.at_[i];
    return true;
}
