// Decryption of PKCS#8 keys: PBES2 with PBKDF2 (HMAC-SHA-1, -256, -384, -512) and AES-128, -192, -256 or 3DES in CBC,
// and PKCS#12's PBE with SHA-1 and 3DES.
#pragma once

#include "provider/import_memory.h"

// secret: the password in UTF-16, of any alignment, up to a zero character or the end of its cbSecret bytes; NULL for
// none. *plain: a block whose first *cbPlain bytes are the plain form.
// 0; NTE_BAD_DATA: no encrypted bytes, or malformed parameters; NTE_INTERNAL_ERROR: an unsupported scheme, or a failed
// decryption, as with a wrong password; NTE_INVALID_PARAMETER: a password that is too long; NTE_NO_MEMORY.
// Takes as long as the parameters' iterations; too many count as malformed.
SECURITY_STATUS DecryptPkcs8Key(const BYTE* secret, DWORD cbSecret, const CRYPT_ENCRYPTED_PRIVATE_KEY_INFO& info,
                                WipedBlock* plain, DWORD* cbPlain);
