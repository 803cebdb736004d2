// The registry for the Linux build, on two text files in the registry editor's export form.
// Every call rereads the file if it has changed, and every write replaces the whole file, under a lock that other
// processes respect. Key and value names are case-insensitive. All results are error codes.
// ERROR_BADDB: the file is damaged. Nothing in it can be opened or written until it is repaired.
// A handle is used by one thread at a time.
#pragma once

#include "platform/linux/win_constants.h"

struct HKEY__ {
    int unused;
};
using HKEY = HKEY__*;
using PHKEY = HKEY*;
using REGSAM = DWORD;

#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001U)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002U)))

// ERROR_FILE_NOT_FOUND: no such key. A NULL or empty subKey opens the key itself again.
LONG WINAPI RegOpenKeyW(HKEY key, LPCWSTR subKey, PHKEY result);

// Opens or creates the key, with all keys above it. Class, options, access and attributes are ignored;
// disposition must be NULL.
LONG WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
                            LPSECURITY_ATTRIBUTES attributes, PHKEY result, LPDWORD disposition);

// Closing one of the two hives does nothing.
LONG WINAPI RegCloseKey(HKEY key);

// *size: bytes of the buffer, and of the value afterwards. Without a buffer only type and size are returned.
// ERROR_MORE_DATA: type and size are set, the buffer is unchanged. Values of any type are returned as they are.
// ERROR_FILE_NOT_FOUND: no such value. ERROR_KEY_DELETED: the key itself is gone.
LONG WINAPI RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);

// The name of the value at `index`; values that are written meanwhile may be missed. *length: characters, terminator
// included, in; without it out. ERROR_MORE_DATA: the buffer is too small. ERROR_NO_MORE_ITEMS: there are fewer values.
// The remaining arguments must be NULL.
LONG WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR valueName, LPDWORD length, LPDWORD reserved, LPDWORD type,
                          LPBYTE data, LPDWORD size);

// Without subKey the key must exist; with one it is created if missing.
LONG WINAPI RegSetKeyValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD type, LPCVOID data, DWORD size);
LONG WINAPI RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD reserved, DWORD type, const BYTE* data, DWORD size);

LONG WINAPI RegDeleteKeyValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName);

// Deletes a key with its values; one that has keys below it is refused with ERROR_ACCESS_DENIED, as a hive itself is.
LONG WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subKey);

// A transaction over one key of each hive: what is set and deleted through the keys takes effect at the commit, unless
// anyone else has changed a key's values since it was opened; then the commit fails with
// ERROR_TRANSACTION_ALREADY_ABORTED, and nothing is written. Arguments are ignored. INVALID_HANDLE_VALUE on failure.
// Closing the handle without a commit discards what was written.
HANDLE WINAPI CreateTransaction(LPSECURITY_ATTRIBUTES attributes, GUID* unitOfWork, DWORD options, DWORD isolationLevel,
                                DWORD isolationFlags, DWORD timeout, LPWSTR description);
BOOL WINAPI CommitTransaction(HANDLE transaction);

// The key's values can be read, set, deleted and enumerated; reading sees what was written through the key. A call with
// a subKey gives ERROR_NOT_SUPPORTED, as does a second key of the same hive. Options and access are ignored.
LONG WINAPI RegOpenKeyTransactedW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result,
                                  HANDLE transaction, PVOID reserved);
