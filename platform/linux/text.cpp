#include "platform/linux/text.h"

#include <algorithm>

#include "platform/find_row.h"
#include "platform/linux/win_kernel.h"

namespace {

constexpr char32_t kLeadSurrogates = 0xD800;
constexpr char32_t kTrailSurrogates = 0xDC00;

bool IsLead(char16_t unit)
{
    return (unit & 0xFC00) == kLeadSurrogates;
}

bool IsTrail(char16_t unit)
{
    return (unit & 0xFC00) == kTrailSurrogates;
}

// How many bytes follow the first one, and the range of the second one, which excludes over-long forms,
// surrogates and values over U+10FFFF.
struct SequenceRule {
    unsigned char firstLow, firstHigh;
    unsigned char secondLow, secondHigh;
    size_t following;
};
constexpr SequenceRule kSequenceRules[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 1}, {0xE0, 0xE0, 0xA0, 0xBF, 2}, {0xE1, 0xEC, 0x80, 0xBF, 2}, {0xED, 0xED, 0x80, 0x9F, 2},
    {0xEE, 0xEF, 0x80, 0xBF, 2}, {0xF0, 0xF0, 0x90, 0xBF, 3}, {0xF1, 0xF3, 0x80, 0xBF, 3}, {0xF4, 0xF4, 0x80, 0x8F, 3},
};

}  // namespace

CodePoint TakeUtf8(std::string_view* text)
{
    const auto byteAt = [text](size_t index) { return static_cast<unsigned char>((*text)[index]); };
    const unsigned char first = byteAt(0);
    if (first < 0x80) {
        text->remove_prefix(1);
        return {first, true};
    }
    const SequenceRule* rule = FindRow(
        kSequenceRules, [first](const SequenceRule& row) { return first >= row.firstLow && first <= row.firstHigh; });
    size_t taken = 1;
    if (rule) {
        char32_t value = first & (0x3Fu >> rule->following);
        for (; taken <= rule->following && taken < text->size(); taken++) {
            const unsigned char low = taken == 1 ? rule->secondLow : 0x80;
            const unsigned char high = taken == 1 ? rule->secondHigh : 0xBF;
            if (byteAt(taken) < low || byteAt(taken) > high)
                break;
            value = (value << 6) | (byteAt(taken) & 0x3Fu);
        }
        if (taken == rule->following + 1) {
            text->remove_prefix(taken);
            return {value, true};
        }
    }
    text->remove_prefix(taken);
    return {kReplacement, false};
}

CodePoint TakeUtf16(std::u16string_view* text)
{
    const char16_t first = text->front();
    text->remove_prefix(1);
    if (!IsLead(first) && !IsTrail(first))
        return {first, true};
    if (IsLead(first) && !text->empty() && IsTrail(text->front())) {
        const char16_t second = text->front();
        text->remove_prefix(1);
        return {0x10000 + ((first - kLeadSurrogates) << 10) + (second - kTrailSurrogates), true};
    }
    return {kReplacement, false};
}

size_t PutUtf8(char32_t value, char* out)
{
    const auto tail = [value](unsigned shift) { return static_cast<char>(0x80 | ((value >> shift) & 0x3F)); };
    if (value < 0x80) {
        out[0] = static_cast<char>(value);
        return 1;
    }
    if (value < 0x800) {
        out[0] = static_cast<char>(0xC0 | (value >> 6));
        out[1] = tail(0);
        return 2;
    }
    if (value < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (value >> 12));
        out[1] = tail(6);
        out[2] = tail(0);
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (value >> 18));
    out[1] = tail(12);
    out[2] = tail(6);
    out[3] = tail(0);
    return 4;
}

size_t PutUtf16(char32_t value, char16_t* out)
{
    if (value < 0x10000) {
        out[0] = static_cast<char16_t>(value);
        return 1;
    }
    out[0] = static_cast<char16_t>(kLeadSurrogates + ((value - 0x10000) >> 10));
    out[1] = static_cast<char16_t>(kTrailSurrogates + ((value - 0x10000) & 0x3FF));
    return 2;
}

std::string ToUtf8(std::u16string_view text)
{
    constexpr size_t kLongest = 3;  // bytes of a unit
    std::string result(text.size() * kLongest, '\0');
    const int size = text.empty()
                         ? 0
                         : WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(),
                                               static_cast<int>(result.size()), nullptr, nullptr);
    result.resize(static_cast<size_t>(size));
    return result;
}

std::u16string ToUtf16(std::string_view text)
{
    std::u16string result;
    ToUtf16Strict(text, &result);
    return result;
}

bool ToUtf16Strict(std::string_view text, std::u16string* out)
{
    out->clear();
    out->reserve(text.size());
    bool wellFormed = true;
    while (!text.empty()) {
        const CodePoint point = TakeUtf8(&text);
        wellFormed &= point.valid;
        char16_t units[2];
        out->append(units, PutUtf16(point.value, units));
    }
    return wellFormed;
}

bool IsWellFormed(std::u16string_view text)
{
    while (!text.empty()) {
        if (!TakeUtf16(&text).valid)
            return false;
    }
    return true;
}

std::string HexOf(std::string_view bytes)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        text += kDigits[static_cast<BYTE>(byte) >> 4];
        text += kDigits[static_cast<BYTE>(byte) & 0xF];
    }
    return text;
}

char16_t UpperCase(char16_t unit)
{
    const auto within = [unit](unsigned low, unsigned high) { return unit >= low && unit <= high; };
    const auto minus = [unit](unsigned distance) { return static_cast<char16_t>(unit - distance); };
    if (within('a', 'z'))
        return minus('a' - 'A');
    if (unit < 0x80)
        return unit;
    if ((within(0xE0, 0xFE) && unit != 0xF7) || within(0x3B1, 0x3C1) || within(0x3C3, 0x3CB) || within(0x430, 0x44F))
        return minus(0x20);
    if (unit == 0xFF)
        return 0x178;
    // Pairs in which the upper-case letter is even and the lower-case one odd, and vice versa.
    if (within(0x100, 0x12F) || within(0x132, 0x137) || within(0x14A, 0x177) || within(0x460, 0x481) ||
        within(0x48A, 0x4BF))
        return static_cast<char16_t>(unit & ~1u);
    if (within(0x139, 0x148) || within(0x179, 0x17E))
        return (unit & 1) == 0 ? minus(1) : unit;
    if (within(0x450, 0x45F))
        return minus(0x50);
    return unit;
}

bool EqualIgnoringCase(std::u16string_view first, std::u16string_view second)
{
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](char16_t a, char16_t b) { return a == b || UpperCase(a) == UpperCase(b); });
}
