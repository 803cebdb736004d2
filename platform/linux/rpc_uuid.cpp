#include "platform/linux/win_rpc.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

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

RPC_STATUS WINAPI UuidToStringW(UUID* uuid, RPC_WSTR* text)
{
    char digits[37];
    const uint8_t* const rest = uuid->Data4;
    snprintf(digits, sizeof digits, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", uuid->Data1, uuid->Data2,
             uuid->Data3, rest[0], rest[1], rest[2], rest[3], rest[4], rest[5], rest[6], rest[7]);
    *text = static_cast<RPC_WSTR>(malloc(std::size(digits) * sizeof(WCHAR)));
    if (!*text)
        return RPC_S_OUT_OF_MEMORY;
    std::copy(std::begin(digits), std::end(digits), *text);
    return RPC_S_OK;
}

RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text)
{
    free(*text);
    *text = nullptr;
    return RPC_S_OK;
}
