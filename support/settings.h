// Values of the settings key in the machine's or the user's hive. The key is never created or kept open.
#pragma once

#include "platform/platform.h"

// Reads a REG_SZ of at most cbBuffer bytes, terminator included, into `buffer`, which is always terminated. It is all
// zero if the key or the value is missing, of another type, or too long.
void SettingsReadText(HKEY hive, const WCHAR* valueName, WCHAR* buffer, DWORD cbBuffer);

// The size of a value of any type in bytes; 0 if the key or the value is missing.
DWORD SettingsValueSize(HKEY hive, const WCHAR* valueName);

// Reads a REG_DWORD; 0 if it is missing or of another type.
DWORD SettingsReadNumber(HKEY hive, const WCHAR* valueName);

// Writes a REG_DWORD. False if the key can't be opened or the value can't be written.
bool SettingsWriteNumber(HKEY hive, const WCHAR* valueName, DWORD number);

// Writes a REG_SZ with its terminator. False if the key can't be opened or the value can't be written.
bool SettingsWriteText(HKEY hive, const WCHAR* valueName, const WCHAR* text);

// The longest text setting in characters, terminator included.
constexpr size_t kSettingTextLimit = 4096;

// A text setting and its text, now or when the caller read it.
struct SettingText {
    const WCHAR* name;
    const WCHAR* text;
};

// Writes `value` as a REG_SZ, unless a value in `seen` no longer has the text that the caller read; a missing one
// counts as empty. False if nothing was written. Atomic where the machine has registry transactions. Elsewhere a value
// that another process writes between the comparison and the write is lost.
bool SettingsWriteTextIf(HKEY hive, const SettingText& value, const SettingText* seen, size_t seenCount);
