#include "vaultsim/base64url.h"

#include <cstdint>

namespace vaultsim {

namespace {

constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrl[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string Encode(std::string_view bytes, const char* alphabet, bool fill)
{
    std::string text;
    text.reserve(bytes.size() * 4 / 3 + 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t group = 0;
        for (size_t j = 0; j < 3; j++)
            group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0u);
        const size_t symbols = bytes.size() - i >= 3 ? 4 : bytes.size() - i + 1;
        for (size_t j = 0; j < 4; j++) {
            if (j < symbols)
                text += alphabet[group >> (18 - 6 * j) & 63];
            else if (fill)
                text += '=';
        }
    }
    return text;
}

int Value(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+' || c == '-')
        return 62;
    if (c == '/' || c == '_')
        return 63;
    return -1;
}

}  // namespace

std::string ToBase64(std::string_view bytes)
{
    return Encode(bytes, kStandard, true);
}

std::string ToBase64Url(std::string_view bytes)
{
    return Encode(bytes, kUrl, false);
}

std::optional<std::string> FromBase64(std::string_view text)
{
    const size_t length = text.size();
    while (!text.empty() && text.back() == '=' && length - text.size() < 2)
        text.remove_suffix(1);
    const bool filled = text.size() != length;
    if (text.size() % 4 == 1 || (filled && length % 4 != 0))
        return std::nullopt;

    std::string bytes;
    uint32_t group = 0;
    int bits = 0;
    for (char c : text) {
        const int value = Value(c);
        if (value < 0)
            return std::nullopt;
        group = group << 6 | static_cast<uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(group >> bits & 255);
        }
    }
    return bytes;
}

}  // namespace vaultsim
