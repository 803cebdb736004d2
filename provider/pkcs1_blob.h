// From PKCS#1's RSA private key to CNG's.
#pragma once

#include "provider/import_memory.h"

// Makes a full private BCRYPT_RSAKEY_BLOB that fills *blob. Its numbers are as the platform decodes them, least
// significant byte first. 0; NTE_BAD_DATA: not such a key; NTE_NOT_SUPPORTED: its length; NTE_NO_MEMORY.
SECURITY_STATUS RsaBlobFromPkcs1(const BYTE* der, DWORD cbDer, WipedBlock* blob);
