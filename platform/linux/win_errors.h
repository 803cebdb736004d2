// Error and status codes, as published.
#pragma once

#include "platform/linux/win_types.h"

constexpr LONG ERROR_SUCCESS = 0;
constexpr LONG NO_ERROR = 0;
constexpr LONG ERROR_FILE_NOT_FOUND = 2;
constexpr LONG ERROR_PATH_NOT_FOUND = 3;
constexpr LONG ERROR_ACCESS_DENIED = 5;
constexpr LONG ERROR_INVALID_HANDLE = 6;
constexpr LONG ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr LONG ERROR_INVALID_DATA = 13;
constexpr LONG ERROR_OUTOFMEMORY = 14;
constexpr LONG ERROR_WRITE_FAULT = 29;
constexpr LONG ERROR_READ_FAULT = 30;
constexpr LONG ERROR_SHARING_VIOLATION = 32;
constexpr LONG ERROR_NOT_SUPPORTED = 50;
constexpr LONG ERROR_FILE_EXISTS = 80;
constexpr LONG ERROR_INVALID_PARAMETER = 87;
constexpr LONG ERROR_DISK_FULL = 112;
constexpr LONG ERROR_CALL_NOT_IMPLEMENTED = 120;
constexpr LONG ERROR_INSUFFICIENT_BUFFER = 122;
constexpr LONG ERROR_INVALID_NAME = 123;
constexpr LONG ERROR_MOD_NOT_FOUND = 126;
constexpr LONG ERROR_PROC_NOT_FOUND = 127;
constexpr LONG ERROR_ALREADY_EXISTS = 183;
constexpr LONG ERROR_ENVVAR_NOT_FOUND = 203;
constexpr LONG ERROR_BAD_PATHNAME = 161;
constexpr LONG ERROR_FILE_TOO_LARGE = 223;
constexpr LONG ERROR_MORE_DATA = 234;
constexpr LONG ERROR_NO_MORE_ITEMS = 259;
constexpr LONG ERROR_TOO_MANY_POSTS = 298;
constexpr LONG ERROR_INVALID_FLAGS = 1004;
constexpr LONG ERROR_BADDB = 1009;
constexpr LONG ERROR_BADKEY = 1010;
constexpr LONG ERROR_KEY_DELETED = 1018;
constexpr LONG ERROR_IO_DEVICE = 1117;
constexpr LONG ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr LONG ERROR_NOT_FOUND = 1168;
constexpr LONG ERROR_INTERNAL_ERROR = 1359;
constexpr LONG ERROR_NO_SYSTEM_RESOURCES = 1450;

constexpr HRESULT PlatformStatus(DWORD code)
{
    return static_cast<HRESULT>(code);
}

constexpr HRESULT NTE_BAD_UID = PlatformStatus(0x80090001);
constexpr HRESULT NTE_BAD_HASH = PlatformStatus(0x80090002);
constexpr HRESULT NTE_BAD_KEY = PlatformStatus(0x80090003);
constexpr HRESULT NTE_BAD_LEN = PlatformStatus(0x80090004);
constexpr HRESULT NTE_BAD_DATA = PlatformStatus(0x80090005);
constexpr HRESULT NTE_BAD_SIGNATURE = PlatformStatus(0x80090006);
constexpr HRESULT NTE_BAD_VER = PlatformStatus(0x80090007);
constexpr HRESULT NTE_BAD_ALGID = PlatformStatus(0x80090008);
constexpr HRESULT NTE_BAD_FLAGS = PlatformStatus(0x80090009);
constexpr HRESULT NTE_BAD_TYPE = PlatformStatus(0x8009000A);
constexpr HRESULT NTE_BAD_KEY_STATE = PlatformStatus(0x8009000B);
constexpr HRESULT NTE_NO_KEY = PlatformStatus(0x8009000D);
constexpr HRESULT NTE_NO_MEMORY = PlatformStatus(0x8009000E);
constexpr HRESULT NTE_EXISTS = PlatformStatus(0x8009000F);
constexpr HRESULT NTE_PERM = PlatformStatus(0x80090010);
constexpr HRESULT NTE_NOT_FOUND = PlatformStatus(0x80090011);
constexpr HRESULT NTE_BAD_KEYSET = PlatformStatus(0x80090016);
constexpr HRESULT NTE_FAIL = PlatformStatus(0x80090020);
constexpr HRESULT NTE_SILENT_CONTEXT = PlatformStatus(0x80090022);
constexpr HRESULT NTE_INVALID_HANDLE = PlatformStatus(0x80090026);
constexpr HRESULT NTE_INVALID_PARAMETER = PlatformStatus(0x80090027);
constexpr HRESULT NTE_BUFFER_TOO_SMALL = PlatformStatus(0x80090028);
constexpr HRESULT NTE_NOT_SUPPORTED = PlatformStatus(0x80090029);
constexpr HRESULT NTE_NO_MORE_ITEMS = PlatformStatus(0x8009002A);
constexpr HRESULT NTE_DECRYPTION_FAILURE = PlatformStatus(0x8009002C);
constexpr HRESULT NTE_INTERNAL_ERROR = PlatformStatus(0x8009002D);
constexpr HRESULT SEC_E_LOGON_DENIED = PlatformStatus(0x8009030C);

constexpr NTSTATUS STATUS_SUCCESS = 0;
constexpr NTSTATUS STATUS_UNSUCCESSFUL = PlatformStatus(0xC0000001);
constexpr NTSTATUS STATUS_INVALID_HANDLE = PlatformStatus(0xC0000008);
constexpr NTSTATUS STATUS_INVALID_PARAMETER = PlatformStatus(0xC000000D);
constexpr NTSTATUS STATUS_NOT_FOUND = PlatformStatus(0xC0000225);
constexpr NTSTATUS STATUS_NO_MEMORY = PlatformStatus(0xC0000017);
