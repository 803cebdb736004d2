// Conversions between wide text and byte text in the system's default code page.
#pragma once

#include "platform/platform.h"

// Both return a new zero-terminated text that the caller frees (free). NULL: no memory, or the conversion failed.
char* WStrToBytesStr(const WCHAR* text);
WCHAR* BytesStrToWStr(const char* text);
