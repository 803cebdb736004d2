#include <string.h>

#include <algorithm>
#include <type_traits>

#include "platform/linux/outcome.h"
#include "platform/linux/text.h"

namespace {

// The checks that both directions share.
void TestArguments(UINT codePage, const void* source, int sourceLength, const void* output, int outputSize)
{
    if (codePage != CP_ACP && codePage != CP_UTF8)
        throw Failure(ERROR_INVALID_PARAMETER);
    if (!source || sourceLength == 0 || sourceLength < -1 || outputSize < 0)
        throw Failure(ERROR_INVALID_PARAMETER);
    if (outputSize > 0 && (!output || output == source))
        throw Failure(ERROR_INVALID_PARAMETER);
}

template <typename Unit>
size_t AsciiRun(std::basic_string_view<Unit> text)
{
    size_t count = 0;
    // Eight bytes at a time first.
    constexpr size_t kStep = sizeof(uint64_t) / sizeof(Unit);
    constexpr uint64_t kNotAscii = sizeof(Unit) == 1 ? 0x8080808080808080 : 0xFF80FF80FF80FF80;
    uint64_t units = 0;
    for (; text.size() - count >= kStep; count += kStep) {
        memcpy(&units, text.data() + count, sizeof units);
        if ((units & kNotAscii) != 0)
            break;
    }
    while (count < text.size() && static_cast<std::make_unsigned_t<Unit>>(text[count]) < 0x80)
        count++;
    return count;
}

// Converts code point by code point; without an output buffer it only counts.
template <typename From, typename To, size_t kMaxUnits>
int Convert(CodePoint (*take)(std::basic_string_view<From>*), size_t (*put)(char32_t, To*),
            std::basic_string_view<From> source, bool refuseInvalid, To* output, int outputSize)
{
    size_t written = 0;
    const size_t room = static_cast<size_t>(outputSize);
    while (!source.empty()) {
        // Most texts are ASCII, which is one unit on both sides.
        const size_t ascii = AsciiRun(source);
        if (ascii != 0) {
            if (outputSize > 0) {
                if (ascii > room - written)
                    throw Failure(ERROR_INSUFFICIENT_BUFFER);
                std::transform(source.begin(), source.begin() + ascii, output + written,
                               [](From unit) { return static_cast<To>(unit); });
            }
            written += ascii;
            source.remove_prefix(ascii);
            continue;
        }
        const CodePoint point = take(&source);
        if (!point.valid && refuseInvalid)
            throw Failure(ERROR_NO_UNICODE_TRANSLATION);
        To units[kMaxUnits];
        const size_t count = put(point.value, units);
        if (outputSize > 0) {
            if (count > room - written)
                throw Failure(ERROR_INSUFFICIENT_BUFFER);
            memcpy(output + written, units, count * sizeof(To));
        }
        written += count;
    }
    if (written > INT32_MAX)
        throw Failure(ERROR_INVALID_PARAMETER);
    return static_cast<int>(written);
}

// A length of -1 includes the terminator.
template <typename Unit>
std::basic_string_view<Unit> SourceView(const Unit* source, int length)
{
    return std::basic_string_view<Unit>(
        source, length < 0 ? std::char_traits<Unit>::length(source) + 1 : static_cast<size_t>(length));
}

}  // namespace

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH source, int sourceLength, LPWSTR output,
                               int outputSize)
{
    return ResultOf([&] {
        TestArguments(codePage, source, sourceLength, output, outputSize);
        if ((flags & ~MB_ERR_INVALID_CHARS) != 0)
            throw Failure(ERROR_INVALID_FLAGS);
        return Convert<char, WCHAR, 2>(TakeUtf8, PutUtf16, SourceView(source, sourceLength), flags != 0, output,
                                       outputSize);
    });
}

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH source, int sourceLength, LPSTR output,
                               int outputSize, LPCCH defaultChar, LPBOOL usedDefaultChar)
{
    return ResultOf([&] {
        TestArguments(codePage, source, sourceLength, output, outputSize);
        // UTF-8 has no default character: the replacement is always U+FFFD.
        if (defaultChar || usedDefaultChar)
            throw Failure(ERROR_INVALID_PARAMETER);
        if ((flags & ~WC_ERR_INVALID_CHARS) != 0)
            throw Failure(ERROR_INVALID_FLAGS);
        return Convert<WCHAR, char, 4>(TakeUtf16, PutUtf8, SourceView(source, sourceLength), flags != 0, output,
                                       outputSize);
    });
}
