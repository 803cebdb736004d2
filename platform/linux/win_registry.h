// The registry for the Linux build, on two text files in the registry editor's export form.
//
// Every call reads the file afresh when it has changed, and every write replaces it as a whole, under a lock that holds
// between processes. Key and value names are compared without regard to case. All results are error codes.
// ERROR_BADDB: the file is damaged. Nothing can be opened in it or written to it until someone has mended it.
// A handle is used by one thread at a time.
#pragma once

#include "platform/linux/win_types.h"

struct HKEY__ {
    int unused;
};
using HKEY = HKEY__*;
using PHKEY = HKEY*;
using REGSAM = DWORD;

#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000001U)))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0x80000002U)))

constexpr DWORD REG_NONE = 0;
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;
constexpr DWORD REG_MULTI_SZ = 7;
constexpr DWORD REG_QWORD = 11;

constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
constexpr REGSAM KEY_SET_VALUE = 0x0002;
constexpr REGSAM KEY_READ = 0x20019;
constexpr REGSAM KEY_WRITE = 0x20006;
constexpr DWORD REG_OPTION_NON_VOLATILE = 0;

// ERROR_FILE_NOT_FOUND when there is no such key. A NULL or empty subKey opens the key itself again.
LONG WINAPI RegOpenKeyW(HKEY key, LPCWSTR subKey, PHKEY result);

// Opens or creates the key, with all keys above it. Class, options, access and attributes are not looked at; which of
// the two it was is not told (disposition is NULL).
LONG WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD reserved, LPWSTR keyClass, DWORD options, REGSAM access,
                            LPSECURITY_ATTRIBUTES attributes, PHKEY result, LPDWORD disposition);

// The two hives themselves may be closed too, which does nothing.
LONG WINAPI RegCloseKey(HKEY key);

// *size: bytes of the buffer, and of the value afterwards. Without a buffer only type and size are told.
// ERROR_MORE_DATA: type and size have been told, the buffer is as it was. A value of any type is handed over as it is.
// ERROR_FILE_NOT_FOUND: no such value. ERROR_KEY_DELETED: the key itself is gone.
LONG WINAPI RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);

// Without subKey the key must exist; with one it is created when it is missing.
LONG WINAPI RegSetKeyValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD type, LPCVOID data, DWORD size);
LONG WINAPI RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD reserved, DWORD type, const BYTE* data, DWORD size);

LONG WINAPI RegDeleteKeyValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName);

// Deletes a key with its values; one that has keys below it is refused with ERROR_ACCESS_DENIED, as a hive itself is.
LONG WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subKey);

// A transaction over one key: what RegSetValueExW writes through the key takes effect at the commit, unless anybody
// else has changed the key's values since it was opened; then the commit fails with ERROR_TRANSACTION_ALREADY_ABORTED,
// and nothing is written. No argument is looked at; a failure is INVALID_HANDLE_VALUE. Closing the handle without a
// commit drops what was written.
HANDLE WINAPI CreateTransaction(LPSECURITY_ATTRIBUTES attributes, GUID* unitOfWork, DWORD options, DWORD isolationLevel,
                                DWORD isolationFlags, DWORD timeout, LPWSTR description);
BOOL WINAPI CommitTransaction(HANDLE transaction);

// The key takes RegQueryValueExW, which sees what was written through it, and RegSetValueExW; any other call gives
// ERROR_NOT_SUPPORTED, as does a second key of the same transaction. Options and access are not looked at.
LONG WINAPI RegOpenKeyTransactedW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result,
                                  HANDLE transaction, PVOID reserved);
