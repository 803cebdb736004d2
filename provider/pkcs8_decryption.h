// Decryption of PKCS#8 keys, by the scheme that the encrypted form names.
//
// Served are PBES2 with PBKDF2 (HMAC-SHA-1, -256, -384, -512) and AES-128, -192, -256 or 3DES in CBC, and PKCS#12's PBE
// with SHA-1 and 3DES.
#pragma once

#include "provider/import_memory.h"

// secret: the password as UTF-16 text of any alignment, up to a zero character or to the end of its cbSecret bytes;
// NULL for none. *plain: the block with the plain form, which is its first *cbPlain bytes.
// NTE_BAD_DATA: no encrypted bytes, or malformed parameters; NTE_INTERNAL_ERROR: a scheme that is not served, or bytes
// that do not decrypt, as under a wrong password; NTE_INVALID_PARAMETER: a password beyond all use; NTE_NO_MEMORY.
// Takes as long as the iterations that the parameters ask for; too many are refused as malformed.
SECURITY_STATUS DecryptPkcs8Key(const BYTE* secret, DWORD cbSecret, const CRYPT_ENCRYPTED_PRIVATE_KEY_INFO& info,
                                WipedBlock* plain, DWORD* cbPlain);
