// Values of the settings key, in the machine's or the user's hive. The key is never created and never kept open.
#pragma once

#include "platform/platform.h"

// Reads a REG_SZ of at most cbBuffer bytes, terminator included, into `buffer`. A missing key or value, a value of
// another type and one that is too long all leave the buffer all zero, and the text is always terminated.
void SettingsReadText(HKEY hive, const WCHAR* valueName, WCHAR* buffer, DWORD cbBuffer);

// The size of a value of any type in bytes; 0 if the key or the value is missing.
DWORD SettingsValueSize(HKEY hive, const WCHAR* valueName);

// Reads a REG_DWORD; 0 when it is missing or of another type.
DWORD SettingsReadNumber(HKEY hive, const WCHAR* valueName);

// Writes a REG_DWORD. False when the key cannot be opened or the value not be written.
bool SettingsWriteNumber(HKEY hive, const WCHAR* valueName, DWORD number);

// Writes a REG_SZ with its terminator. False when the key cannot be opened or the value not be written.
bool SettingsWriteText(HKEY hive, const WCHAR* valueName, const WCHAR* text);

// The longest text setting in characters, terminator included.
constexpr size_t kSettingTextLimit = 4096;

// A text setting and what it says, or said when the caller read it.
struct SettingText {
    const WCHAR* name;
    const WCHAR* text;
};

// Writes `value` as a REG_SZ, unless one of the values in `seen` no longer has the text that the caller read; a missing
// one counts as empty. False when nothing was written. Comparison and write are one step, whoever else writes to the
// key, where the machine has registry transactions; elsewhere they follow each other at once, and a value that somebody
// writes in the moment between is lost.
bool SettingsWriteTextIf(HKEY hive, const SettingText& value, const SettingText* seen, size_t seenCount);
