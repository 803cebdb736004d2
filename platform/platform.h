// The only header through which system code reaches the operating system, and the only one that tests _WIN32.
//
// Windows: the SDK headers in the order in which they need each other. Linux: the same names, types and constants,
// as far as the system uses them; implemented in platform/linux/.
// UNICODE, _UNICODE and _WIN32_WINNT are set by the build.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#ifdef _WIN32

// CRYPT_DECRYPT_MESSAGE_PARA with its flags.
#define CRYPT_DECRYPT_MESSAGE_PARA_HAS_EXTRA_FIELDS

#include <windows.h>
// windows.h comes first.
#include <bcrypt.h>
#include <ktmw32.h>
#include <psapi.h>
#include <rpc.h>
#include <wchar.h>
#include <wincrypt.h>
#include <winhttp.h>
// bcrypt.h comes before it.
#include <ncrypt.h>

#define PLATFORM_LINE_END "\r\n"

// Published constants that mingw-w64's headers lack.
#ifndef CRYPT_MESSAGE_SILENT_KEYSET_FLAG
#define CRYPT_MESSAGE_SILENT_KEYSET_FLAG 0x00000040
#endif
#ifndef ERROR_RM_NOT_ACTIVE
#define ERROR_RM_NOT_ACTIVE 6801L
#endif

#else

#include "platform/linux/win_types.h"
// win_types.h comes first.
#include "platform/linux/win_bcrypt.h"
#include "platform/linux/win_certificates.h"
#include "platform/linux/win_cng.h"
#include "platform/linux/win_cng_configuration.h"
#include "platform/linux/win_console.h"
#include "platform/linux/win_constants.h"
#include "platform/linux/win_crypt.h"
#include "platform/linux/win_eventlog.h"
#include "platform/linux/win_kernel.h"
#include "platform/linux/win_module.h"
#include "platform/linux/win_ncrypt.h"
#include "platform/linux/win_private_keys.h"
#include "platform/linux/win_registry.h"
#include "platform/linux/win_rpc.h"
#include "platform/linux/win_security.h"
#include "platform/linux/winhttp.h"

#define PLATFORM_LINE_END "\n"

#endif
