#include <string.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/outcome.h"
#include "platform/linux/win_crypt.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr size_t kLineLength = 64;
constexpr std::u16string_view kHeaderBegin = u"-----BEGIN CERTIFICATE-----";
constexpr std::u16string_view kHeaderEnd = u"-----END CERTIFICATE-----";
constexpr std::u16string_view kAnyBegin = u"-----BEGIN ";
constexpr std::u16string_view kAnyEnd = u"-----END ";
constexpr std::u16string_view kDashes = u"-----";

std::u16string_view LineEndOf(DWORD flags)
{
    if ((flags & CRYPT_STRING_NOCRLF) != 0)
        return u"";
    return (flags & CRYPT_STRING_NOCR) != 0 ? u"\n" : u"\r\n";
}

void AppendQuantum(const BYTE* data, size_t count, std::u16string* text)
{
    const unsigned bits = (static_cast<unsigned>(data[0]) << 16) |
                          (count > 1 ? static_cast<unsigned>(data[1]) << 8 : 0) |
                          (count > 2 ? static_cast<unsigned>(data[2]) : 0);
    for (unsigned i = 0; i < 4; i++)
        *text += i <= count ? static_cast<char16_t>(kAlphabet[(bits >> (18 - 6 * i)) & 0x3F]) : u'=';
}

std::u16string Encode(const BYTE* data, size_t size, std::u16string_view lineEnd)
{
    std::u16string text;
    text.reserve(size / 3 * 4 + size / 48 * lineEnd.size() + 8);
    size_t inLine = 0;
    for (size_t done = 0; done < size; done += 3) {
        AppendQuantum(data + done, size - done < 3 ? size - done : 3, &text);
        inLine += 4;
        if (inLine == kLineLength || done + 3 >= size) {
            text += lineEnd;
            inLine = 0;
        }
    }
    return text;
}

bool IsSpace(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

// The six bits of a character, or -1.
int BitsOf(char16_t c)
{
    const char* found = c != 0 && c < 0x80 ? strchr(kAlphabet, static_cast<char>(c)) : nullptr;
    return found == nullptr ? -1 : static_cast<int>(found - kAlphabet);
}

// Whole quanta only: padding is required, and nothing but white space may follow it.
bool Decode(std::u16string_view text, std::vector<BYTE>* data)
{
    unsigned bits = 0;
    unsigned count = 0;
    unsigned padding = 0;
    for (const char16_t c : text) {
        if (IsSpace(c))
            continue;
        const int six = BitsOf(c);
        if (c == u'=')
            padding++;
        else if (six < 0 || padding > 0)
            return false;
        bits = (bits << 6) | (six < 0 ? 0u : static_cast<unsigned>(six));
        if (++count % 4 != 0)
            continue;
        if (padding > 2)
            return false;
        for (unsigned i = 0; i < 3 - padding; i++)
            data->push_back(static_cast<BYTE>(bits >> (16 - 8 * i)));
    }
    return count % 4 == 0;
}

// The text between "-----BEGIN ...-----" and "-----END ...-----". *skipped: characters in front of the first.
bool FindArmoured(std::u16string_view text, std::u16string_view* inner, size_t* skipped)
{
    constexpr size_t kNone = std::u16string_view::npos;
    const size_t begin = text.find(kAnyBegin);
    const size_t beginEnd = begin == kNone ? kNone : text.find(kDashes, begin + kAnyBegin.size());
    if (beginEnd == kNone)
        return false;
    const size_t start = beginEnd + kDashes.size();
    const size_t end = text.find(kAnyEnd, start);
    if (end == kNone || text.find(kDashes, end + kAnyEnd.size()) == kNone)
        return false;
    *inner = text.substr(start, end - start);
    *skipped = begin;
    return true;
}

struct Decoded {
    std::vector<BYTE> data;
    size_t skipped = 0;
    DWORD format = CRYPT_STRING_BASE64;
};

LONG DecodeAs(std::u16string_view text, DWORD format, Decoded* decoded)
{
    if (format != CRYPT_STRING_BASE64HEADER && format != CRYPT_STRING_BASE64 && format != CRYPT_STRING_BASE64_ANY)
        return ERROR_INVALID_DATA;
    std::u16string_view inner;
    if (format != CRYPT_STRING_BASE64 && FindArmoured(text, &inner, &decoded->skipped)) {
        decoded->format = CRYPT_STRING_BASE64HEADER;
        return Decode(inner, &decoded->data) ? ERROR_SUCCESS : ERROR_INVALID_DATA;
    }
    if (format == CRYPT_STRING_BASE64HEADER)
        return ERROR_INVALID_DATA;
    return Decode(text, &decoded->data) ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

}  // namespace

BOOL WINAPI CryptBinaryToStringW(const BYTE* data, DWORD dataSize, DWORD flags, LPWSTR text, DWORD* size)
{
    return Succeeds([&]() -> LONG {
        const DWORD format = flags & ~(CRYPT_STRING_NOCRLF | CRYPT_STRING_NOCR);
        if (data == nullptr || size == nullptr)
            return ERROR_INVALID_PARAMETER;
        if (format != CRYPT_STRING_BASE64 && format != CRYPT_STRING_BASE64HEADER)
            return ERROR_INVALID_PARAMETER;
        const std::u16string_view lineEnd = LineEndOf(flags);
        std::u16string result = Encode(data, dataSize, lineEnd);
        if (format == CRYPT_STRING_BASE64HEADER)
            result = std::u16string(kHeaderBegin).append(lineEnd) + result.append(kHeaderEnd).append(lineEnd);
        const DWORD needed = static_cast<DWORD>(result.size() + 1);
        const DWORD room = *size;
        *size = needed;
        if (text == nullptr)
            return ERROR_SUCCESS;
        if (room < needed)
            return ERROR_MORE_DATA;
        memcpy(text, result.c_str(), needed * sizeof(WCHAR));
        *size = needed - 1;
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI CryptStringToBinaryW(LPCWSTR text, DWORD textLength, DWORD flags, BYTE* data, DWORD* size, DWORD* skipped,
                                 DWORD* usedFlags)
{
    return Succeeds([&]() -> LONG {
        if (text == nullptr || size == nullptr)
            return ERROR_INVALID_PARAMETER;
        const std::u16string_view view =
            textLength == 0 ? std::u16string_view(text) : std::u16string_view(text, textLength);
        Decoded decoded;
        const LONG error = DecodeAs(view, flags, &decoded);
        if (error != ERROR_SUCCESS)
            return error;
        if (skipped != nullptr)
            *skipped = static_cast<DWORD>(decoded.skipped);
        if (usedFlags != nullptr)
            *usedFlags = decoded.format;
        const DWORD room = *size;
        *size = static_cast<DWORD>(decoded.data.size());
        if (data == nullptr)
            return ERROR_SUCCESS;
        if (room < *size)
            return ERROR_MORE_DATA;
        if (!decoded.data.empty())
            memcpy(data, decoded.data.data(), decoded.data.size());
        return ERROR_SUCCESS;
    });
}
