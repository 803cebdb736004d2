#include "tests/common/base64.h"

#include <algorithm>
#include <stdexcept>

static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string Base64Url(const std::vector<BYTE>& bytes)
{
    std::string text;
    uint32_t bits = 0;
    int count = 0;
    for (const BYTE byte : bytes) {
        bits = bits << 8 | byte;
        for (count += 8; count >= 6; count -= 6)
            text += alphabet[bits >> (count - 6) & 63];
    }
    if (count)
        text += alphabet[bits << (6 - count) & 63];
    return text;
}

std::string Base64(const std::vector<BYTE>& bytes)
{
    std::string text = Base64Url(bytes);
    std::replace(text.begin(), text.end(), '-', '+');
    std::replace(text.begin(), text.end(), '_', '/');
    return text.append((4 - text.size() % 4) % 4, '=');
}

std::vector<BYTE> FromBase64(const std::string& text)
{
    std::vector<BYTE> bytes;
    uint32_t bits = 0;
    int count = 0;
    for (const char ch : text.substr(0, text.find('='))) {
        const size_t value = alphabet.find(ch == '+' ? '-' : ch == '/' ? '_' : ch);
        if (value == std::string::npos)
            throw std::runtime_error("not Base64: " + text);
        bits = bits << 6 | static_cast<uint32_t>(value);
        count += 6;
        if (count >= 8)
            bytes.push_back(static_cast<BYTE>(bits >> (count -= 8)));
    }
    return bytes;
}
