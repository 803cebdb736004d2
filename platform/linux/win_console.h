// Standard handles and the terminal's echo for the Linux build.
#pragma once

#include "platform/linux/win_types.h"

constexpr DWORD STD_INPUT_HANDLE = static_cast<DWORD>(-10);
constexpr DWORD STD_ERROR_HANDLE = static_cast<DWORD>(-12);

constexpr DWORD ENABLE_ECHO_INPUT = 0x0004;

// Only for the two calls below; must not be closed.
HANDLE WINAPI GetStdHandle(DWORD which);

// FALSE and ERROR_INVALID_HANDLE if the handle isn't a terminal. Only ENABLE_ECHO_INPUT is supported.
BOOL WINAPI GetConsoleMode(HANDLE console, LPDWORD mode);
BOOL WINAPI SetConsoleMode(HANDLE console, DWORD mode);
