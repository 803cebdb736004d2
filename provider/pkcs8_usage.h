// What a PKCS#8 key may be used for, by its key usage attribute.
#pragma once

#include "provider/key_object.h"

// *usage: NCRYPT_ALLOW_ bits; NCRYPT_ALLOW_ALL_USAGES without the attribute. NTE_BAD_DATA: the attribute is malformed.
SECURITY_STATUS ReadPkcs8Usage(const CRYPT_PRIVATE_KEY_INFO& info, DWORD* usage);

// Sets the key's usage and keeps it as the persistent property "Key Usage". NTE_NO_MEMORY leaves both as they were.
SECURITY_STATUS AddKeyUsageProperty(KSP_KEY* key, DWORD usage);
