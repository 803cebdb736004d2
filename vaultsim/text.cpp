#include "vaultsim/text.h"

#include <openssl/rand.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace vaultsim {

namespace {

char LowerChar(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

int HexDigit(char c)
{
    const char lower = LowerChar(c);
    if (lower >= '0' && lower <= '9')
        return lower - '0';
    if (lower >= 'a' && lower <= 'f')
        return lower - 'a' + 10;
    return -1;
}

}  // namespace

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), LowerChar);
    return lower;
}

bool EqualsNoCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return LowerChar(x) == LowerChar(y); });
}

std::vector<std::string> Split(std::string_view text, char separator)
{
    std::vector<std::string> pieces;
    size_t start = 0;
    for (size_t end; (end = text.find(separator, start)) != std::string_view::npos; start = end + 1)
        pieces.emplace_back(text.substr(start, end - start));
    pieces.emplace_back(text.substr(start));
    return pieces;
}

std::string PercentDecode(std::string_view text, bool plusIsBlank)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); i++) {
        const bool escape =
            text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 && HexDigit(text[i + 2]) >= 0;
        if (escape) {
            decoded += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += plusIsBlank && text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

std::string RandomHex(size_t digits)
{
    std::vector<unsigned char> bytes((digits + 1) / 2);
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1)
        throw std::runtime_error("no random bytes");
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < digits; i++)
        hex += kDigits[(i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2]) & 15];
    return hex;
}

std::string RandomUuid()
{
    std::string uuid = RandomHex(32);
    uuid[12] = '4';
    uuid[16] = "89ab"[HexDigit(uuid[16]) & 3];
    for (size_t dash : {8u, 13u, 18u, 23u})
        uuid.insert(dash, 1, '-');
    return uuid;
}

int64_t Now()
{
    using namespace std::chrono;
    return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

bool NameLess::operator()(const std::string& a, const std::string& b) const
{
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return LowerChar(x) < LowerChar(y); });
}

}  // namespace vaultsim
