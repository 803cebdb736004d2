// What a PKCS#8 key may be used for, by its key usage attribute.
#pragma once

#include "provider/key_object.h"

// *usage: NCRYPT_ALLOW_ bits; NCRYPT_ALLOW_ALL_USAGES without the attribute. 0; NTE_BAD_DATA: a malformed attribute.
SECURITY_STATUS ReadPkcs8Usage(const CRYPT_PRIVATE_KEY_INFO& info, DWORD* usage);

// Sets the key's usage and stores it as the persistent property "Key Usage". 0; NTE_NO_MEMORY, with both unchanged.
SECURITY_STATUS AddKeyUsageProperty(KSP_KEY* key, DWORD usage);
