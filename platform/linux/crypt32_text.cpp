#include <string_view>

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

// Writes the four characters of 1 to 3 bytes.
void PutQuantum(const BYTE* data, size_t count, char16_t* out)
{
    const unsigned bits = (static_cast<unsigned>(data[0]) << 16) |
                          (count > 1 ? static_cast<unsigned>(data[1]) << 8 : 0) |
                          (count > 2 ? static_cast<unsigned>(data[2]) : 0);
    for (unsigned i = 0; i < 4; i++)
        out[i] = i <= count ? static_cast<char16_t>(kAlphabet[(bits >> (18 - 6 * i)) & 0x3F]) : u'=';
}

size_t EncodedLength(size_t size, std::u16string_view lineEnd)
{
    const size_t chars = (size + 2) / 3 * 4;
    return chars + (chars + kLineLength - 1) / kLineLength * lineEnd.size();
}

// Returns the place behind what it wrote: EncodedLength characters.
char16_t* Encode(const BYTE* data, size_t size, std::u16string_view lineEnd, char16_t* out)
{
    size_t inLine = 0;
    for (size_t done = 0; done < size; done += 3) {
        PutQuantum(data + done, size - done < 3 ? size - done : 3, out);
        out += 4;
        inLine += 4;
        if (inLine == kLineLength || done + 3 >= size) {
            out += lineEnd.copy(out, lineEnd.size());
            inLine = 0;
        }
    }
    return out;
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
    Sink sink;
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
        return Decode(inner, &decoded->sink) ? ERROR_SUCCESS : ERROR_INVALID_DATA;
    }
    if (format == CRYPT_STRING_BASE64HEADER)
        return ERROR_INVALID_DATA;
    return Decode(text, &decoded->sink) ? ERROR_SUCCESS : ERROR_INVALID_DATA;
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
        const bool armoured = format == CRYPT_STRING_BASE64HEADER;
        const size_t frame = armoured ? kHeaderBegin.size() + kHeaderEnd.size() + 2 * lineEnd.size() : 0;
        const DWORD needed = static_cast<DWORD>(EncodedLength(dataSize, lineEnd) + frame + 1);
        const DWORD room = *size;
        *size = needed;
        if (text == nullptr)
            return ERROR_SUCCESS;
        if (room < needed)
            return ERROR_MORE_DATA;
        const auto put = [](std::u16string_view piece, LPWSTR out) { return out + piece.copy(out, piece.size()); };
        LPWSTR out = armoured ? put(lineEnd, put(kHeaderBegin, text)) : text;
        out = Encode(data, dataSize, lineEnd, out);
        if (armoured)
            out = put(lineEnd, put(kHeaderEnd, out));
        *out = 0;
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
        // A buffer that may be too small is left alone until its size is known to do.
        const bool fits = *size >= view.size() / 4 * 3;
        Decoded decoded = {{fits ? data : nullptr, *size, 0}};
        LONG error = DecodeAs(view, flags, &decoded);
        if (error == ERROR_SUCCESS && !fits && data != nullptr && decoded.sink.size <= *size) {
            decoded = {{data, *size, 0}};
            error = DecodeAs(view, flags, &decoded);
        }
        if (error != ERROR_SUCCESS)
            return error;
        if (skipped != nullptr)
            *skipped = static_cast<DWORD>(decoded.skipped);
        if (usedFlags != nullptr)
            *usedFlags = decoded.format;
        *size = static_cast<DWORD>(decoded.sink.size);
        return data != nullptr && decoded.sink.size > decoded.sink.room ? ERROR_MORE_DATA : ERROR_SUCCESS;
    });
}
