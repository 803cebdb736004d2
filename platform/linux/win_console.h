// Standard handles and the terminal's echo for the Linux build.
#pragma once

#include "platform/linux/win_constants.h"

// Only for the two calls below; must not be closed.
HANDLE WINAPI GetStdHandle(DWORD which);

// FALSE and ERROR_INVALID_HANDLE if the handle isn't a terminal. Only ENABLE_ECHO_INPUT is supported.
BOOL WINAPI GetConsoleMode(HANDLE console, LPDWORD mode);
BOOL WINAPI SetConsoleMode(HANDLE console, DWORD mode);
