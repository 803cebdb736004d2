#include "tests/common/wide_text.h"

TextString Wide(const std::string& utf8)
{
    const int length = static_cast<int>(utf8.size());
    const int size = length ? MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0) : 0;
    TextString text(static_cast<size_t>(size), 0);
    if (size)
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), size);
    return text;
}

std::string Narrow(const TextString& text)
{
    const int length = static_cast<int>(text.size());
    const int size = length ? WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr) : 0;
    std::string utf8(static_cast<size_t>(size), 0);
    if (size)
        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr);
    return utf8;
}
