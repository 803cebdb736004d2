// Values of the settings key, in the machine's or the user's hive. The key is never created and never kept open.
#pragma once

#include "platform/platform.h"
#include "support/bldstr.h"

extern const WCHAR kSettingsKey[];  // Software\Zandrel\Kelvaro

// Reads a REG_SZ of at most cbBuffer bytes, terminator included, into `buffer`. A missing key or value, a value of
// another type and one that is too long all leave the buffer all zero, and the text is always terminated.
void SettingsReadText(HKEY hive, const WCHAR* valueName, WCHAR* buffer, DWORD cbBuffer);

// Reads a REG_DWORD; 0 when it is missing or of another type.
DWORD SettingsReadNumber(HKEY hive, const WCHAR* valueName);

// Writes a REG_DWORD. False when the key cannot be opened or the value not be written.
bool SettingsWriteNumber(HKEY hive, const WCHAR* valueName, DWORD number);

// Writes a REG_SZ with its terminator. False when the key cannot be opened or the value not be written.
bool SettingsWriteText(HKEY hive, const WCHAR* valueName, const WCHAR* text);

// A string value of any length: a new BldStr, empty when key or value is missing or of another type; the caller frees
// it. NULL: no memory. isMachine: non-zero for the machine hive.
BldStr* BldStrGetWStringValue(int isMachine, const WCHAR* valueName);

// Writes `text` as a REG_SZ. 1, or 0 when the key cannot be opened or the value not be written.
int BldStrSetWStringValue(int isMachine, const WCHAR* valueName, const WCHAR* text);
