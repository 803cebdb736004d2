#include <string_view>

#include "platform/linux/outcome.h"
#include "platform/linux/win_crypt.h"

namespace {

constexpr char16_t kAlphabet[] = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::u16string_view kAnyBegin = u"-----BEGIN ";
constexpr std::u16string_view kAnyEnd = u"-----END ";
constexpr DWORD kOneLine = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
constexpr std::u16string_view kDashes = u"-----";

// Writes the four characters of a quantum.
void PutQuantum(unsigned bits, char16_t* out)
{
    out[0] = kAlphabet[bits >> 18];
    out[1] = kAlphabet[(bits >> 12) & 0x3F];
    out[2] = kAlphabet[(bits >> 6) & 0x3F];
    out[3] = kAlphabet[bits & 0x3F];
}

// Also writes the terminator.
void Encode(const BYTE* data, size_t size, char16_t* out)
{
    const BYTE* const end = data + size - size % 3;
    for (; data != end; data += 3, out += 4)
        PutQuantum(unsigned{data[0]} << 16 | unsigned{data[1]} << 8 | data[2], out);
    const size_t left = size % 3;
    if (left != 0) {
        PutQuantum(unsigned{data[0]} << 16 | (left == 2 ? unsigned{data[1]} << 8 : 0), out);
        for (size_t i = left + 1; i < 4; i++)
            out[i] = u'=';
        out += 4;
    }
    *out = 0;
}

bool IsSpace(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}

constexpr unsigned kNone = 0x80000000;

// The six bits of each character below 0x80, shifted to its place in a quantum, or kNone.
struct Values {
    unsigned of[4][0x80];
};
constexpr Values MakeValues()
{
    Values values = {};
    for (unsigned place = 0; place < 4; place++) {
        for (unsigned& value : values.of[place])
            value = kNone;
        for (unsigned six = 0; six < 64; six++)
            values.of[place][kAlphabet[six]] = six << (18 - 6 * place);
    }
    return values;
}
constexpr Values kValues = MakeValues();

// Receives decoded bytes: a buffer of `room` bytes, or NULL to count only. `size` counts all bytes.
struct Sink {
    BYTE* data;
    size_t room;
    size_t size;

    void Put(unsigned byte)
    {
        if (data && size < room)
            data[size] = static_cast<BYTE>(byte);
        size++;
    }
};

// Six bits, or kNone.
unsigned ValueOf(char16_t c)
{
    return c < 0x80 ? kValues.of[3][c] : kNone;
}

// The 24 bits of four characters, or at least kNone when one of them isn't Base64.
inline unsigned QuantumOf(const char16_t* c)
{
    if ((c[0] | c[1] | c[2] | c[3]) >= 0x80)
        return kNone;
    return kValues.of[0][c[0]] | kValues.of[1][c[1]] | kValues.of[2][c[2]] | kValues.of[3][c[3]];
}

// Calls put(bits) for each leading quantum without white space or padding, and returns their number.
template <class Put>
size_t ForEachPlainQuantum(std::u16string_view text, Put put)
{
    const size_t count = text.size() / 4;
    for (size_t i = 0; i < count; i++) {
        const unsigned bits = QuantumOf(text.data() + 4 * i);
        if (bits >= kNone)
            return i;
        put(bits);
    }
    return count;
}

// Decodes the leading quanta that have neither white space nor padding.
void TakePlainQuanta(std::u16string_view* text, Sink* sink)
{
    size_t count = 0;
    if (!sink->data) {
        count = ForEachPlainQuantum(*text, [](unsigned) {});
        sink->size += 3 * count;
    } else if (sink->size + text->size() / 4 * 3 <= sink->room) {
        BYTE* out = sink->data + sink->size;
        count = ForEachPlainQuantum(*text, [&out](unsigned bits) {
            out[0] = static_cast<BYTE>(bits >> 16);
            out[1] = static_cast<BYTE>(bits >> 8);
            out[2] = static_cast<BYTE>(bits);
            out += 3;
        });
        sink->size += 3 * count;
    } else {
        count = ForEachPlainQuantum(*text, [sink](unsigned bits) {
            sink->Put(bits >> 16);
            sink->Put(bits >> 8);
            sink->Put(bits);
        });
    }
    text->remove_prefix(4 * count);
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
        const unsigned six = ValueOf(c);
        if (six == kNone) {
            if (IsSpace(c))
                continue;
            if (c != u'=')
                return false;
            padding++;
        } else if (padding > 0) {
            return false;
        }
        bits = (bits << 6) | (six == kNone ? 0 : six);
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
    constexpr size_t kNowhere = std::u16string_view::npos;
    const size_t begin = text.find(kAnyBegin);
    const size_t beginEnd = begin == kNowhere ? kNowhere : text.find(kDashes, begin + kAnyBegin.size());
    if (beginEnd == kNowhere)
        return false;
    const size_t start = beginEnd + kDashes.size();
    const size_t end = text.find(kAnyEnd, start);
    if (end == kNowhere || text.find(kDashes, end + kAnyEnd.size()) == kNowhere)
        return false;
    *inner = text.substr(start, end - start);
    return true;
}

// Plain Base64 has no dashes, so armour is tried only if this fails.
bool DecodeAs(std::u16string_view text, DWORD format, Sink* sink)
{
    if (Decode(text, sink))
        return true;
    sink->size = 0;
    std::u16string_view inner;
    return format == CRYPT_STRING_BASE64_ANY && FindArmoured(text, &inner) && Decode(inner, sink);
}

}  // namespace

BOOL WINAPI CryptBinaryToStringW(const BYTE* data, DWORD dataSize, DWORD flags, LPWSTR text, DWORD* size)
{
    return Succeeds([&]() -> LONG {
        if (!data || !size || (flags & ~CRYPT_STRING_NOCR) != kOneLine)
            return ERROR_INVALID_PARAMETER;
        const uint64_t length = (uint64_t{dataSize} + 2) / 3 * 4 + 1;
        if (length > UINT32_MAX)
            return ERROR_INVALID_PARAMETER;
        const DWORD needed = static_cast<DWORD>(length);
        const DWORD room = *size;
        *size = needed;
        if (!text)
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
        if (!text || !size || !known || skipped || usedFlags)
            return ERROR_INVALID_PARAMETER;
        const std::u16string_view view =
            textLength == 0 ? std::u16string_view(text) : std::u16string_view(text, textLength);
        // A buffer that may be too small isn't written until the exact size is known.
        const bool fits = *size >= view.size() / 4 * 3;
        Sink sink = {fits ? data : nullptr, *size, 0};
        bool good = DecodeAs(view, flags, &sink);
        if (good && !fits && data && sink.size <= *size) {
            sink = {data, *size, 0};
            good = DecodeAs(view, flags, &sink);
        }
        if (!good)
            return ERROR_INVALID_DATA;
        if (sink.size > UINT32_MAX)
            return ERROR_INVALID_PARAMETER;
        *size = static_cast<DWORD>(sink.size);
        return data && sink.size > sink.room ? ERROR_MORE_DATA : ERROR_SUCCESS;
    });
}
