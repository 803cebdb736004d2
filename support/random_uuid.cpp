#include "support/random_uuid.h"

#include "support/text.h"

namespace {

constexpr WCHAR kHexDigits[] = TEXT("0123456789abcdef");

// Sixteen bytes, in order, as 8-4-4-4-12 hexadecimal digits.
void WriteUuid(const BYTE (&bytes)[16], WCHAR (&text)[kUuidTextChars])
{
    size_t at = 0;
    for (size_t i = 0; i < 16; i++) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text[at++] = '-';
        text[at++] = kHexDigits[bytes[i] >> 4];
        text[at++] = kHexDigits[bytes[i] & 15];
    }
    text[at] = 0;
}

void RandomUuid(WCHAR (&text)[kUuidTextChars])
{
    BYTE bytes[16] = {};
    // If even the generator fails, the header is still sent, with a value that reveals the failure.
    (void)BCryptGenRandom(nullptr, bytes, sizeof(bytes), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    bytes[6] = static_cast<BYTE>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<BYTE>((bytes[8] & 0x3F) | 0x80);
    WriteUuid(bytes, text);
}

}  // namespace

void NewUuidText(WCHAR (&text)[kUuidTextChars])
{
    UUID uuid;
    const RPC_STATUS made = UuidCreate(&uuid);
    RPC_WSTR platformText = nullptr;
    if ((made != RPC_S_OK && made != RPC_S_UUID_LOCAL_ONLY) || UuidToStringW(&uuid, &platformText) != RPC_S_OK) {
        RandomUuid(text);
        return;
    }
    if (!TextCopy(text, kUuidTextChars, reinterpret_cast<const WCHAR*>(platformText)))
        RandomUuid(text);
    RpcStringFreeW(&platformText);
}
