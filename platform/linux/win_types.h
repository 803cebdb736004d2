// Windows' basic types for the Linux build. Text is UTF-16, DWORD and LONG have 32 bits.
#pragma once

#include <stddef.h>
#include <stdint.h>

using BYTE = unsigned char;
using UCHAR = unsigned char;
using CHAR = char;
using WCHAR = char16_t;
using WORD = unsigned short;
using USHORT = unsigned short;
using UINT = unsigned int;
using BOOL = int;
using LONG = int32_t;
using ULONG = uint32_t;
using DWORD = uint32_t;
using ULONGLONG = unsigned long long;
using INT_PTR = intptr_t;
using LONG_PTR = intptr_t;
using ULONG_PTR = uintptr_t;
using DWORD_PTR = uintptr_t;
using SIZE_T = size_t;
using VOID = void;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using PUCHAR = UCHAR*;
using LPDWORD = DWORD*;
using LPLONG = LONG*;
using LPBOOL = BOOL*;

using LPSTR = CHAR*;
using LPCSTR = const CHAR*;
using LPCCH = const CHAR*;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPCWCH = const WCHAR*;

using HANDLE = void*;
using HLOCAL = HANDLE;
using HMODULE = void*;
using HINSTANCE = void*;
using HWND = void*;

using HRESULT = LONG;
using NTSTATUS = LONG;
using SECURITY_STATUS = LONG;
using errno_t = int;

#define WINAPI

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260
#define INFINITE 0xFFFFFFFFU

#define PLATFORM_WIDE_LITERAL(text) u##text
#define TEXT(text) PLATFORM_WIDE_LITERAL(text)

// 100 ns since 1601-01-01 UTC.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
using UUID = GUID;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

using PSID = void*;
using PSECURITY_DESCRIPTOR = void*;
