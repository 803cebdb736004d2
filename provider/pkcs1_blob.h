// From PKCS#1's RSA private key to CNG's.
#pragma once

#include "provider/import_memory.h"

// Makes a BCRYPT_RSAKEY_BLOB with all its parts, the block's whole size. Its numbers stand as the platform decodes
// them, the least significant byte first. NTE_BAD_DATA: no such key; NTE_NOT_SUPPORTED: its length; NTE_NO_MEMORY.
SECURITY_STATUS RsaBlobFromPkcs1(const BYTE* der, DWORD cbDer, WipedBlock* blob);
