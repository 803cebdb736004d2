#include <string_view>

#include "platform/linux/outcome.h"
#include "platform/linux/win_crypt.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::u16string_view kAnyBegin = u"-----BEGIN ";
constexpr std::u16string_view kAnyEnd = u"-----END ";
constexpr DWORD kOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
constexpr std::u16string_view kDashes = u"-----";

// Writes the four characters of 1 to 3 bytes.
void PutQuantum(const BYTE* data, size_t count, char16_t* out)
{
    const unsigned bits = (static_cast<unsigned>(data[0]) << 16) |
                          (count > 1 ? static_cast<unsigned>(data[1]) << 8 : 0) |
                          (count > 2 ? static_cast<unsigned>(data[2]) : 0);
    for (unsigned i = 0; i < 4; i++)
        out[i] = i <= count ? static_cast<char16_t>(kAlphabet[(bits >> (18 - 6 * i)) & 0x3F]) : u'=';
}

// With the terminator.
void Encode(const BYTE* data, size_t size, char16_t* out)
{
    for (size_t done = 0; done < size; done += 3) {
        PutQuantum(data + done, size - done < 3 ? size - done : 3, out);
        out += 4;
    }
    *out = 0;
}

bool IsSpace(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

// The six bits of each character below 0x80, or -1.
struct Values {
    signed char of[0x80];
};
constexpr Values MakeValues()
{
    Values values = {};
    for (signed char& value : values.of)
        value = -1;
    for (signed char i = 0; i < 64; i++)
        values.of[static_cast<size_t>(kAlphabet[i])] = i;
    return values;
}
constexpr Values kValues = MakeValues();

// Where decoded bytes go: a buffer of `room` bytes, or nowhere; `size` counts them all.
struct Sink {
    BYTE* data;
    size_t room;
    size_t size;

    void Put(unsigned byte)
    {
        if (data != nullptr && size < room)
            data[size] = static_cast<BYTE>(byte);
        size++;
    }
};

int ValueOf(char16_t c)
{
    return c < 0x80 ? kValues.of[c] : -1;
}

// Decodes the quanta at the front that hold neither white space nor padding.
void TakePlainQuanta(std::u16string_view* text, Sink* sink)
{
    size_t taken = 0;
    for (; text->size() - taken >= 4; taken += 4) {
        const char16_t* const c = text->data() + taken;
        const int values[] = {ValueOf(c[0]), ValueOf(c[1]), ValueOf(c[2]), ValueOf(c[3])};
        if ((values[0] | values[1] | values[2] | values[3]) < 0)
            break;
        const int bits = (values[0] << 18) | (values[1] << 12) | (values[2] << 6) | values[3];
        sink->Put(static_cast<unsigned>(bits) >> 16);
        sink->Put(static_cast<unsigned>(bits) >> 8);
        sink->Put(static_cast<unsigned>(bits));
    }
    text->remove_prefix(taken);
}

// Whole quanta only: padding is required, and nothing but white space may follow it.
bool Decode(std::u16string_view text, Sink* sink)
{
    unsigned bits = 0;
    unsigned count = 0;
    unsigned padding = 0;
    for (;;) {
        if (count % 4 == 0 && padding == 0)
            TakePlainQuanta(&text, sink);
        if (text.empty())
            return count % 4 == 0;
        const char16_t c = text.front();
        text.remove_prefix(1);
        const int six = ValueOf(c);
        if (six < 0) {
            if (IsSpace(c))
                continue;
            if (c != u'=')
                return false;
            padding++;
        } else if (padding > 0) {
            return false;
        }
        bits = (bits << 6) | (six < 0 ? 0u : static_cast<unsigned>(six));
        if (++count % 4 != 0)
            continue;
        if (padding > 2)
            return false;
        for (unsigned i = 0; i < 3 - padding; i++)
            sink->Put(bits >> (16 - 8 * i));
    }
}

// The text between "-----BEGIN ...-----" and "-----END ...-----".
bool FindArmoured(std::u16string_view text, std::u16string_view* inner)
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
    return true;
}

bool DecodeAs(std::u16string_view text, DWORD format, Sink* sink)
{
    std::u16string_view inner;
    const bool armoured = format == CRYPT_STRING_BASE64_ANY && FindArmoured(text, &inner);
    return Decode(armoured ? inner : text, sink);
}

}  // namespace

BOOL WINAPI CryptBinaryToStringW(const BYTE* data, DWORD dataSize, DWORD flags, LPWSTR text, DWORD* size)
{
    return Succeeds([&]() -> LONG {
        if (data == nullptr || size == nullptr || (flags & ~CRYPT_STRING_NOCR) != kOneLine)
            return ERROR_INVALID_PARAMETER;
        const uint64_t length = (uint64_t{dataSize} + 2) / 3 * 4 + 1;
        if (length > UINT32_MAX)
            return ERROR_INVALID_PARAMETER;
        const DWORD needed = static_cast<DWORD>(length);
        const DWORD room = *size;
        *size = needed;
        if (text == nullptr)
            return ERROR_SUCCESS;
        if (room < needed)
            return ERROR_MORE_DATA;
        Encode(data, dataSize, text);
        *size = needed - 1;
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI CryptStringToBinaryW(LPCWSTR text, DWORD textLength, DWORD flags, BYTE* data, DWORD* size, DWORD* skipped,
                                 DWORD* usedFlags)
{
    return Succeeds([&]() -> LONG {
        const bool known = flags == CRYPT_STRING_BASE64 || flags == CRYPT_STRING_BASE64_ANY;
        if (text == nullptr || size == nullptr || !known || skipped != nullptr || usedFlags != nullptr)
            return ERROR_INVALID_PARAMETER;
        const std::u16string_view view =
            textLength == 0 ? std::u16string_view(text) : std::u16string_view(text, textLength);
        // A buffer that may be too small is left alone until its size is known to do.
        const bool fits = *size >= view.size() / 4 * 3;
        Sink sink = {fits ? data : nullptr, *size, 0};
        bool good = DecodeAs(view, flags, &sink);
        if (good && !fits && data != nullptr && sink.size <= *size) {
            sink = {data, *size, 0};
            good = DecodeAs(view, flags, &sink);
        }
        if (!good)
            return ERROR_INVALID_DATA;
        if (sink.size > UINT32_MAX)
            return ERROR_INVALID_PARAMETER;
        *size = static_cast<DWORD>(sink.size);
        return data != nullptr && sink.size > sink.room ? ERROR_MORE_DATA : ERROR_SUCCESS;
    });
}
