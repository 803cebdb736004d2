#include "platform/linux/win_rpc.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

RPC_STATUS WINAPI UuidCreate(UUID* uuid)
{
    unsigned char bytes[16];
    if (getentropy(bytes, sizeof bytes) != 0)
        return RPC_S_UUID_NO_ADDRESS;
    memcpy(uuid, bytes, sizeof bytes);
    uuid->Data3 = static_cast<uint16_t>((uuid->Data3 & 0x0FFF) | 0x4000);
    uuid->Data4[0] = static_cast<uint8_t>((uuid->Data4[0] & 0x3F) | 0x80);
    return RPC_S_OK;
}

namespace {

// Writes the `digits` lowest hexadecimal digits of a number; returns their end.
RPC_WSTR PutHex(unsigned number, int digits, RPC_WSTR out)
{
    while (digits-- > 0)
        *out++ = static_cast<unsigned char>("0123456789abcdef"[(number >> (4 * digits)) & 15]);
    return out;
}

}  // namespace

RPC_STATUS WINAPI UuidToStringW(UUID* uuid, RPC_WSTR* text)
{
    constexpr size_t kLength = 36;
    *text = static_cast<RPC_WSTR>(malloc(sizeof(WCHAR) * (kLength + 1)));
    if (!*text)
        return RPC_S_OUT_OF_MEMORY;
    RPC_WSTR end = PutHex(uuid->Data1, 8, *text);
    *end++ = '-';
    end = PutHex(uuid->Data2, 4, end);
    *end++ = '-';
    end = PutHex(uuid->Data3, 4, end);
    *end++ = '-';
    for (int i = 0; i < 8; i++) {
        if (i == 2)
            *end++ = '-';
        end = PutHex(uuid->Data4[i], 2, end);
    }
    *end = 0;
    return RPC_S_OK;
}

RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text)
{
    free(*text);
    *text = nullptr;
    return RPC_S_OK;
}
