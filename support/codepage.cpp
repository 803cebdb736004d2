#include "support/codepage.h"

#include "support/guards.h"

char* WStrToBytesStr(const WCHAR* text)
{
    if (!text)
        return nullptr;
    const int size = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return nullptr;
    SecretBytesPtr bytes(static_cast<char*>(calloc(1, static_cast<size_t>(size))));
    if (!bytes || WideCharToMultiByte(CP_ACP, 0, text, -1, bytes.get(), size, nullptr, nullptr) <= 0)
        return nullptr;
    return bytes.release();
}

WCHAR* BytesStrToWStr(const char* text)
{
    if (!text)
        return nullptr;
    const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    if (size <= 0)
        return nullptr;
    SecretTextPtr wide(static_cast<WCHAR*>(calloc(static_cast<size_t>(size) + 1, sizeof(WCHAR))));
    if (!wide || MultiByteToWideChar(CP_ACP, 0, text, -1, wide.get(), size) <= 0)
        return nullptr;
    return wide.release();
}
