#include "platform/linux/win_rpc.h"

#include <openssl/rand.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

RPC_STATUS WINAPI UuidCreate(UUID* uuid)
{
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1)
        return RPC_S_UUID_NO_ADDRESS;
    memcpy(uuid, bytes, sizeof bytes);
    uuid->Data3 = static_cast<uint16_t>((uuid->Data3 & 0x0FFF) | 0x4000);
    uuid->Data4[0] = static_cast<uint8_t>((uuid->Data4[0] & 0x3F) | 0x80);
    return RPC_S_OK;
}

RPC_STATUS WINAPI UuidToStringW(UUID* uuid, RPC_WSTR* text)
{
    constexpr size_t kLength = 36;
    char narrow[kLength + 1];
    const uint8_t* tail = uuid->Data4;
    snprintf(narrow, sizeof narrow, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", uuid->Data1, uuid->Data2,
             uuid->Data3, tail[0], tail[1], tail[2], tail[3], tail[4], tail[5], tail[6], tail[7]);
    *text = static_cast<RPC_WSTR>(malloc(sizeof(WCHAR) * (kLength + 1)));
    if (*text == nullptr)
        return RPC_S_OUT_OF_MEMORY;
    for (size_t i = 0; i <= kLength; i++)
        (*text)[i] = static_cast<WCHAR>(narrow[i]);
    return RPC_S_OK;
}

RPC_STATUS WINAPI RpcStringFreeW(RPC_WSTR* text)
{
    free(*text);
    *text = nullptr;
    return RPC_S_OK;
}
