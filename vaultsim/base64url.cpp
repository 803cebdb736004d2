#include "vaultsim/base64url.h"

#include <openssl/evp.h>

#include <algorithm>

namespace vaultsim {

std::string ToBase64(std::string_view bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');  // EVP_EncodeBlock appends a zero byte
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    text.pop_back();
    return text;
}

std::string ToBase64Url(std::string_view bytes)
{
    std::string text = ToBase64(bytes);
    text.erase(text.find_last_not_of('=') + 1);
    std::replace(text.begin(), text.end(), '+', '-');
    std::replace(text.begin(), text.end(), '/', '_');
    return text;
}

// EVP_DecodeBlock alone is too lenient: it skips white space and reads "=" anywhere as zero bits.
std::optional<std::string> FromBase64(std::string_view text)
{
    static const char kSymbols[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/-_";
    std::string symbols(text.substr(0, text.find_last_not_of('=') + 1));
    const size_t count = symbols.size();
    const size_t padding = text.size() - count;
    if (count % 4 == 1 || padding > 2 || (padding > 0 && text.size() % 4 != 0) ||
        symbols.find_first_not_of(kSymbols) != std::string::npos)
        return std::nullopt;
    std::replace(symbols.begin(), symbols.end(), '-', '+');
    std::replace(symbols.begin(), symbols.end(), '_', '/');
    symbols.resize((count + 3) / 4 * 4, '=');
    std::string bytes(symbols.size() / 4 * 3, '\0');
    EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                    reinterpret_cast<const unsigned char*>(symbols.data()), static_cast<int>(symbols.size()));
    bytes.resize(count * 3 / 4);
    return bytes;
}

}  // namespace vaultsim
