// Random bytes from OpenSSL's generator.
#include <openssl/rand.h>

#include "platform/platform.h"

NTSTATUS WINAPI BCryptGenRandom(PVOID algorithm, PUCHAR buffer, ULONG size, ULONG flags)
{
    if (algorithm || flags != BCRYPT_USE_SYSTEM_PREFERRED_RNG || !buffer || size > INT32_MAX)
        return STATUS_INVALID_PARAMETER;
    return RAND_bytes(buffer, static_cast<int>(size)) == 1 ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}
