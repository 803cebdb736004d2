// A private key blob, and a key name in a parameter list, as a host may pass them.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "provider/import_name.h"
#include "provider/private_blob.h"
#include "support/text.h"

namespace {

void Require(bool holds)
{
    if (!holds)
        abort();
}

void CheckBlob(const uint8_t* data, DWORD size)
{
    KSP_KEY key = {};
    key.dwBitLength = 1;
    const SECURITY_STATUS status = CheckRsaBlob(&key, data, size);
    Require(status == ERROR_SUCCESS || (status == NTE_BAD_KEY && key.dwBitLength == 1));
    Require(status != ERROR_SUCCESS || (key.dwBitLength >= 2048 && key.dwBitLength <= 4096));
}

void CheckName(const uint8_t* data, DWORD size)
{
    const NCryptBuffer buffer = {size, NCRYPTBUFFER_PKCS_KEY_NAME, const_cast<uint8_t*>(data)};
    const bool zeroByte = HasZeroByte(buffer);
    Require(!HasZeroCharacter(buffer) || zeroByte);
    ImportName name;
    Require(!name.text());
    name.Take(buffer);
    Require(View(name.text()).size() <= kKeyNameLimit + 1 && View(name.text()).size() <= size / sizeof(WCHAR));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    CheckBlob(data, static_cast<DWORD>(size));
    CheckName(data, static_cast<DWORD>(size));
    // Also at an odd address.
    CheckBlob(data + 1, static_cast<DWORD>(size - 1));
    if (size > 1)
        CheckName(data + 1, static_cast<DWORD>(size - 1));
    return 0;
}
