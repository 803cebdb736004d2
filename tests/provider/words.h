// The vocabulary of the provider's tables in tests/data.
#pragma once

#include "tests/common/data_rows.h"
#include "tests/provider/bytes.h"

inline DWORD NumberOfWord(const std::string& word)
{
    return static_cast<DWORD>(std::stoul(word, nullptr, 0));
}

// A value as tests/data writes it: 'text', the numbers 1,0x2, the bytes x00FF or x00*300, the letters n*65, the pattern
// p20, the private key blob2048 with or without another magic as in blob2048:0x33415352, or - for none. + joins bytes.
inline Bytes BytesOfWord(const std::string& word)
{
    Bytes bytes;
    if (word[0] == '\'')
        return TextBytes(word.substr(1));
    if (const size_t plus = word.find('+'); plus != std::string::npos)
        return BytesOfWord(word.substr(0, plus)) + BytesOfWord(word.substr(plus + 1));
    const size_t star = std::min(word.find('*'), word.size()), colon = word.find(':');
    const size_t times = star < word.size() ? std::stoul(word.substr(star + 1)) : 1;
    if (word[0] == 'n')
        return TextBytes(std::string(times, 'n'));
    if (word[0] == 'p')
        return Pattern(std::stoul(word.substr(1)));
    if (word[0] == 'b')
        return RsaBlob(NumberOfWord(word.substr(4, colon - 4)),
                       colon < word.size() ? NumberOfWord(word.substr(colon + 1)) : BCRYPT_RSAPRIVATE_MAGIC);
    for (size_t at = 1; word[0] == 'x' && at < star; at += 2)
        bytes.resize(bytes.size() + times, static_cast<BYTE>(std::stoul(word.substr(at, 2), nullptr, 16)));
    for (size_t at = 0; word[0] != 'x' && word != "-" && at < word.size();) {
        bytes = bytes + Words({NumberOfWord(word.substr(at))});
        at = std::min(word.find(',', at), word.size() - 1) + 1;
    }
    return bytes;
}

// A status by its name, or 0.
inline SECURITY_STATUS StatusOfWord(const std::string& word)
{
    if (word == "0")
        return 0;
#define STATUS(name) std::pair<std::string, SECURITY_STATUS>(#name, name)
    for (const auto& [name, status] :
         {STATUS(NTE_BAD_DATA), STATUS(NTE_BAD_FLAGS), STATUS(NTE_BAD_KEY), STATUS(NTE_BAD_KEY_STATE),
          STATUS(NTE_BUFFER_TOO_SMALL), STATUS(NTE_INTERNAL_ERROR), STATUS(NTE_INVALID_HANDLE),
          STATUS(NTE_INVALID_PARAMETER), STATUS(NTE_NOT_SUPPORTED), STATUS(NTE_PERM)}) {
        if (word == name)
            return status;
    }
#undef STATUS
    ADD_FAILURE() << "no such status: " << word;
    return 0;
}
