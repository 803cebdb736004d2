#include "kelvaroctl/text.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

// Text: a string type of WCHAR.
template <typename Text>
static Text Widened(std::string_view text)
{
    const int length = static_cast<int>(text.size());
    Text wide(text.size(), 0);
    const int size = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, wide.data(), length);
    if (size <= 0 && length)
        throw UsageFailure("an argument is not well-formed UTF-8");
    wide.resize(static_cast<size_t>(size));
    return wide;
}

WideText ToWide(std::string_view text)
{
    return Widened<WideText>(text);
}

SecretText ToWideSecret(std::string_view text)
{
    return Widened<SecretText>(text);
}

std::string ToNarrow(WideView text)
{
    std::string narrow(3 * text.size(), 0);
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(),
                                         static_cast<int>(narrow.size()), nullptr, nullptr);
    narrow.resize(static_cast<size_t>(std::max(size, 0)));
    return narrow;
}

char LowerAscii(char ch)
{
    return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
}

bool EqualIgnoringCase(std::string_view first, std::string_view second)
{
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](char left, char right) { return LowerAscii(left) == LowerAscii(right); });
}

std::vector<std::string_view> Split(std::string_view text, std::string_view separators)
{
    std::vector<std::string_view> parts;
    for (size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
        end = text.find_first_of(separators, begin);
        parts.push_back(text.substr(begin, end - begin));
    }
    return parts;
}

void AddPart(std::string* list, const std::string& text, const char* separator)
{
    if (!text.empty())
        *list += (list->empty() ? "" : separator) + text;
}

std::string Printable(std::string_view text)
{
    std::string result;
    for (size_t at = 0; at < text.size(); ++at) {
        const unsigned char ch = static_cast<unsigned char>(text[at]);
        const unsigned char next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
        if (ch < 0x20 || ch == 0x7F) {
            result += "\\x" + HexText({ch});
        } else if (ch == 0xC2 && next >= 0x80 && next < 0xA0) {
            result += "\\x" + HexText({next});
            ++at;
        } else {
            result += static_cast<char>(ch);
        }
    }
    return result;
}

std::string HexText(const Bytes& bytes, const char* digits)
{
    std::string text;
    for (const BYTE byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string HexNumber(DWORD number)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(number));
    return text;
}

std::string_view AsText(const Bytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

SecretText TextIn(const Bytes& value)
{
    SecretText text(value.size() / sizeof(WCHAR), 0);
    if (!text.empty())
        std::memcpy(text.data(), value.data(), text.size() * sizeof(WCHAR));
    text.resize(std::min(text.size(), text.find(WCHAR{0})));
    return text;
}

DWORD WordIn(const Bytes& value, size_t index)
{
    DWORD word = 0;
    if (value.size() >= (index + 1) * sizeof(word))
        std::memcpy(&word, value.data() + index * sizeof(word), sizeof(word));
    return word;
}

std::string UtcText(int64_t unixTime, const char* format)
{
    const time_t seconds = static_cast<time_t>(unixTime);
    const struct tm* const parts = gmtime(&seconds);
    char text[40];
    return parts && strftime(text, sizeof(text), format, parts) ? text : "";
}

bool ParseHex(std::string_view text, Bytes* bytes)
{
    std::string digits;
    for (const std::string_view part : Split(text, " \t\r\n"))
        digits += part;
    bytes->assign(digits.size() / 2, 0);
    const char* pair = digits.data();
    for (BYTE& byte : *bytes) {
        if (std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2)
            return false;
        pair += 2;
    }
    return digits.size() % 2 == 0;
}

std::string Base64(const Bytes& bytes)
{
    if (bytes.empty())
        return "";
    const DWORD count = static_cast<DWORD>(bytes.size());
    DWORD size = (count + 2) / 3 * 4 + 1;
    WideText text(size, 0);
    if (!CryptBinaryToStringW(bytes.data(), count, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, text.data(), &size))
        throw InternalFailure("the platform cannot encode Base64");
    return ToNarrow(WideView(text).substr(0, size));
}

bool ParseBase64(std::string_view text, Bytes* bytes)
{
    SecretText wide;
    for (const char ch : text) {
        if (static_cast<unsigned char>(ch) >= 0x7F)
            return false;
        if (ch > ' ')
            wide += static_cast<WCHAR>(ch);
    }
    const DWORD length = static_cast<DWORD>(wide.size());
    DWORD size = length;  // more than enough
    bytes->resize(size);
    const bool good = length && CryptStringToBinaryW(wide.c_str(), length, CRYPT_STRING_BASE64, bytes->data(), &size,
                                                     nullptr, nullptr);
    bytes->resize(good ? size : 0);
    return good;
}

std::string Base64Url(const Bytes& bytes)
{
    std::string text = Base64(bytes);
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    text.erase(std::min(text.find('='), text.size()));
    return text;
}

// How many characters must be inserted, removed or replaced; letter case doesn't count.
static size_t EditDistance(std::string_view first, std::string_view second)
{
    std::vector<size_t> row(second.size() + 1);
    for (size_t column = 0; column < row.size(); ++column)
        row[column] = column;
    for (size_t line = 1; line <= first.size(); ++line) {
        size_t diagonal = row[0];
        row[0] = line;
        for (size_t column = 1; column < row.size(); ++column) {
            const bool same = LowerAscii(first[line - 1]) == LowerAscii(second[column - 1]);
            const size_t replaced = diagonal + (same ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({replaced, row[column] + 1, row[column - 1] + 1});
        }
    }
    return row.back();
}

std::string DidYouMean(const std::string& word, const std::vector<std::string>& known)
{
    std::string nearest;
    size_t least = 1 + std::min<size_t>(word.size() / 2, 3);
    for (const std::string& candidate : known) {
        const size_t distance = EditDistance(word.substr(0, 64), candidate);
        if (distance < least) {
            least = distance;
            nearest = candidate;
        }
    }
    return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

std::string Joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        AddPart(&text, Printable(name), ", ");
    return text;
}

// Approximates the width on a terminal by counting code points.
static size_t DisplayWidth(const std::string& text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(),
                                             [](char ch) { return (static_cast<unsigned char>(ch) & 0xC0) != 0x80; }));
}

std::string Columns(const std::vector<std::vector<std::string>>& rows, size_t indent)
{
    std::vector<size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], DisplayWidth(row[column]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line(indent, ' ');
        for (size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size())
                line.append(widths[column] - DisplayWidth(row[column]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace kelvaroctl
