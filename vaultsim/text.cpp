#include "vaultsim/text.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <ctime>
#include <stdexcept>

namespace vaultsim {

namespace {

int HexDigit(char c)
{
    return OPENSSL_hexchar2int(static_cast<unsigned char>(c));
}

}  // namespace

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

bool EqualsNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
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

bool IsNumber(std::string_view text, size_t maxDigits)
{
    return !text.empty() && text.size() <= maxDigits && text.find_first_not_of("0123456789") == text.npos;
}

std::string PercentDecode(std::string_view text, bool plusIsSpace)
{
    std::string decoded;
    for (size_t i = 0; i < text.size(); i++) {
        const bool escape =
            text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 && HexDigit(text[i + 2]) >= 0;
        if (escape) {
            decoded += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += plusIsSpace && text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

std::map<std::string, std::string> ParseForm(std::string_view text)
{
    std::map<std::string, std::string> form;
    for (const std::string& pair : Split(text, '&')) {
        const size_t equals = std::min(pair.find('='), pair.size());
        const std::string value = pair.substr(std::min(equals + 1, pair.size()));
        form[PercentDecode(pair.substr(0, equals), true)] = PercentDecode(value, true);
    }
    return form;
}

std::string ToHex(std::string_view bytes)
{
    std::string hex(2 * bytes.size() + 1, '\0');  // OpenSSL appends a zero byte
    OPENSSL_buf2hexstr_ex(hex.data(), hex.size(), nullptr, reinterpret_cast<const unsigned char*>(bytes.data()),
                          bytes.size(), '\0');
    hex.pop_back();
    return hex;
}

std::string RandomHex(size_t digits)
{
    std::string bytes((digits + 1) / 2, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(bytes.size())) != 1)
        throw std::runtime_error("no random bytes");
    return Lower(ToHex(bytes)).substr(0, digits);
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
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

std::string UtcText(int64_t time, const char* format)
{
    const std::time_t seconds = static_cast<std::time_t>(time);
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[40];
    std::strftime(text, sizeof text, format, &parts);
    return text;
}

bool NameLess::operator()(const std::string& a, const std::string& b) const
{
    return strcasecmp(a.c_str(), b.c_str()) < 0;
}

}  // namespace vaultsim
