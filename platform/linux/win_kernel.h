// Kernel services for the Linux build: heap, last error, semaphores, locks, clock, files, names, environment, code
// pages, and the few calls of the C runtime that only Windows has. All of them may be called from any thread.
#pragma once

#include <stdio.h>
#include <time.h>

#include <atomic>

#include "platform/linux/win_constants.h"

// ---- last error, one per thread ----

DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD error);

// ---- heap ----

HANDLE WINAPI GetProcessHeap();
// NULL if out of memory. The block is aligned for every type.
LPVOID WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size);
// NULL is harmless.
BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, LPVOID block);

// Only LMEM_FIXED.
HLOCAL WINAPI LocalAlloc(UINT flags, SIZE_T size);
// Always NULL, which means success.
HLOCAL WINAPI LocalFree(HLOCAL block);

// Not removed by the optimiser.
PVOID SecureZeroMemory(PVOID block, SIZE_T size);

// ---- handles, semaphores, waiting ----

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

// Closes handles of CreateSemaphoreW, CreateFileW and CreateTransaction. FALSE and ERROR_INVALID_HANDLE for anything
// else, closed handles included.
BOOL WINAPI CloseHandle(HANDLE handle);

// TRUE, with *flags 0, for a handle that CloseHandle accepts.
BOOL WINAPI GetHandleInformation(HANDLE handle, LPDWORD flags);

// Unnamed semaphores only: a name gives ERROR_NOT_SUPPORTED.
HANDLE WINAPI CreateSemaphoreW(LPSECURITY_ATTRIBUTES attributes, LONG initialCount, LONG maximumCount, LPCWSTR name);
BOOL WINAPI ReleaseSemaphore(HANDLE semaphore, LONG releaseCount, LPLONG previousCount);
// WAIT_OBJECT_0, WAIT_TIMEOUT, or WAIT_FAILED if the handle isn't a semaphore.
DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD waitMs);

// ---- slim locks: all zero is an unlocked lock, and needs no cleanup ----

// The child of a fork may take the locks that other threads of its parent hold.
struct SRWLOCK {
    std::atomic<uint32_t> state;  // 0 or twice the holder's process, plus 1 if a thread waits
};
using PSRWLOCK = SRWLOCK*;
// clang-format off
#define SRWLOCK_INIT {}
// clang-format on

void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock);
void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock);

// ---- counters ----

// Both return the new value.
inline LONG InterlockedIncrement(LONG volatile* value)
{
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(LONG volatile* value)
{
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

// ---- clock ----

void WINAPI Sleep(DWORD waitMs);

// Milliseconds since boot, including sleep.
ULONGLONG WINAPI GetTickCount64();

using __time64_t = int64_t;

__time64_t _time64(__time64_t* time);
errno_t _gmtime64_s(struct tm* result, const __time64_t* time);
errno_t _localtime64_s(struct tm* result, const __time64_t* time);
// Local time, 24 characters, a line feed and the terminator, in a buffer of the calling thread; NULL if it is out of
// range.
WCHAR* _wctime64(const __time64_t* time);

// ---- files: paths.h says how names are mapped ----

// Only FILE_APPEND_DATA with OPEN_ALWAYS. INVALID_HANDLE_VALUE on failure. Sharing is not enforced. New files have mode
// 0600; directories are not created, except for the root of C:. Each WriteFile is one write at the end of the file,
// even if others append to it.
HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                          DWORD flags, HANDLE templateFile);
BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, LPVOID overlapped);

// The path as it would be opened from the current folder, "." and ".." resolved textually. filePart must be NULL.
DWORD WINAPI GetFullPathNameW(LPCWSTR name, DWORD room, LPWSTR buffer, LPWSTR* filePart);

// Always DRIVE_FIXED: no drive letter is a network share.
UINT WINAPI GetDriveTypeW(LPCWSTR root);

// Only the mode "rt", and only regular files.
FILE* _wfopen(const WCHAR* name, const WCHAR* mode);

// ---- names ----

// *size: characters, terminator included, in and out. ERROR_INSUFFICIENT_BUFFER: *size is the size needed.
BOOL WINAPI GetUserNameW(LPWSTR buffer, LPDWORD size);

enum COMPUTER_NAME_FORMAT {
    ComputerNameDnsFullyQualified = 3,
};

// *size: characters with terminator on the way in, without it after success; ERROR_MORE_DATA: what is needed, with it.
// From the machine's own configuration, never from the network.
BOOL WINAPI GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR buffer, LPDWORD size);

HANDLE WINAPI GetCurrentProcess();
// The path of the process's program: its length without terminator, or 0.
DWORD WINAPI K32GetProcessImageFileNameW(HANDLE process, LPWSTR buffer, DWORD size);

// The length without terminator; the size needed, with it, when the buffer is too small; 0 and ERROR_ENVVAR_NOT_FOUND.
DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size);
// A NULL value removes the variable. Not thread-safe: no other thread may read the environment.
BOOL WINAPI SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value);

// ---- code pages: the default one is UTF-8 ----

// Lengths are in units of the text; a source length of -1 means zero-terminated, and the terminator is counted
// and written too. An output size of 0 asks for the size. 0 on failure: ERROR_INSUFFICIENT_BUFFER,
// ERROR_NO_UNICODE_TRANSLATION (only with the flag; otherwise invalid input becomes U+FFFD),
// ERROR_INVALID_PARAMETER, ERROR_INVALID_FLAGS.
int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH source, int sourceLength, LPWSTR output,
                               int outputSize);
int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH source, int sourceLength, LPSTR output,
                               int outputSize, LPCCH defaultChar, LPBOOL usedDefaultChar);
