// The caller's name, for the log.
#pragma once

#include "platform/platform.h"

constexpr DWORD kUserNameChars = 257;

// Empty if the platform has none.
void FetchUserName(WCHAR (&name)[kUserNameChars]);
