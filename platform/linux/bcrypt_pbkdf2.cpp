// Keys from passwords.
#include <limits.h>

#include "platform/linux/bcrypt_algorithm.h"

NTSTATUS WINAPI BCryptDeriveKeyPBKDF2(BCRYPT_ALG_HANDLE prf, PUCHAR password, ULONG passwordSize, PUCHAR salt,
                                      ULONG saltSize, ULONGLONG iterations, PUCHAR derived, ULONG derivedSize,
                                      ULONG flags)
{
    const BcryptAlgorithm* const row = FindBcryptAlgorithm(prf);
    if (!row || !row->digest || row->flags != BCRYPT_ALG_HANDLE_HMAC_FLAG)
        return STATUS_INVALID_HANDLE;
    if ((!password && passwordSize) || (!salt && saltSize) || !derived || !derivedSize || flags)
        return STATUS_INVALID_PARAMETER;
    if (iterations == 0 || iterations > INT_MAX || passwordSize > INT_MAX || saltSize > INT_MAX ||
        derivedSize > INT_MAX)
        return STATUS_INVALID_PARAMETER;
    const int done = PKCS5_PBKDF2_HMAC(reinterpret_cast<const char*>(password), static_cast<int>(passwordSize), salt,
                                       static_cast<int>(saltSize), static_cast<int>(iterations), row->digest(),
                                       static_cast<int>(derivedSize), derived);
    return done == 1 ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}
