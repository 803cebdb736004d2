#include "support/settings.h"

#include <string.h>

#include "platform/product.h"
#include "platform/registry_key.h"
#include "support/text.h"

namespace {

// NULL if there is none.
RegistryKeyHandle OpenSettings(HKEY hive)
{
    HKEY key = nullptr;
    return RegistryKeyHandle(RegOpenKeyW(hive, kSettingsKey, &key) == ERROR_SUCCESS ? key : nullptr);
}

void ReadText(HKEY key, const WCHAR* valueName, WCHAR* buffer, DWORD cbBuffer)
{
    memset(buffer, 0, cbBuffer);
    DWORD type = 0;
    DWORD size = cbBuffer;
    const LONG error = RegQueryValueExW(key, valueName, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &size);
    // If the value is too long, the buffer's contents are undefined.
    if (error != ERROR_SUCCESS || type != REG_SZ) {
        SecureZeroMemory(buffer, cbBuffer);
        return;
    }
    // A stored text may lack its terminator.
    buffer[cbBuffer / sizeof(WCHAR) - 1] = 0;
}

bool HasText(HKEY key, const SettingText& seen)
{
    WCHAR text[kSettingTextLimit];
    ReadText(key, seen.name, text, sizeof(text));
    const bool same = TextEqual(text, seen.text);
    SecureZeroMemory(text, sizeof(text));
    return same;
}

bool HasTexts(HKEY hive, const SettingText* seen, size_t seenCount)
{
    const RegistryKeyHandle key = OpenSettings(hive);
    if (!key)
        return false;
    for (size_t i = 0; i < seenCount; i++) {
        if (!HasText(key.get(), seen[i]))
            return false;
    }
    return true;
}

// False if the text couldn't be written.
bool PutText(HKEY key, const SettingText& value)
{
    const DWORD size = static_cast<DWORD>((View(value.text).size() + 1) * sizeof(WCHAR));
    return RegSetValueExW(key, value.name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.text), size) == ERROR_SUCCESS;
}

}  // namespace

void SettingsReadText(HKEY hive, const WCHAR* valueName, WCHAR* buffer, DWORD cbBuffer)
{
    const RegistryKeyHandle key = OpenSettings(hive);
    if (key)
        ReadText(key.get(), valueName, buffer, cbBuffer);
    else
        memset(buffer, 0, cbBuffer);
}

DWORD SettingsReadNumber(HKEY hive, const WCHAR* valueName)
{
    const RegistryKeyHandle key = OpenSettings(hive);
    if (!key)
        return 0;
    DWORD type = 0;
    DWORD number = 0;
    DWORD size = sizeof(number);
    const LONG error = RegQueryValueExW(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
    return error == ERROR_SUCCESS && type == REG_DWORD && size == sizeof(number) ? number : 0;
}

bool SettingsWriteNumber(HKEY hive, const WCHAR* valueName, DWORD number)
{
    const RegistryKeyHandle key = OpenSettings(hive);
    return key && RegSetKeyValueW(key.get(), nullptr, valueName, REG_DWORD, &number, sizeof(number)) == ERROR_SUCCESS;
}

bool SettingsWriteText(HKEY hive, const WCHAR* valueName, const WCHAR* text)
{
    const RegistryKeyHandle key = OpenSettings(hive);
    if (!key)
        return false;
    const DWORD size = static_cast<DWORD>((View(text).size() + 1) * sizeof(WCHAR));
    return RegSetKeyValueW(key.get(), nullptr, valueName, REG_SZ, text, size) == ERROR_SUCCESS;
}

bool SettingsWriteTextIf(HKEY hive, const SettingText& value, const SettingText* seen, size_t seenCount)
{
    // Write first: only then does another process's write roll back the transaction. Then compare, reading outside the
    // transaction, where all values, including the one being replaced, are still what everyone else sees. So another
    // process's write is either seen by the comparison or makes the commit fail.
    RegistryTransaction transaction;
    RegistryKeyHandle key;
    const LONG error = transaction.Open(hive, kSettingsKey, &key);
    if (!RegistryTransaction::IsUnsupported(error))
        return key && PutText(key.get(), value) && HasTexts(hive, seen, seenCount) && transaction.Commit();
    // No transactions. The gap between the comparison and the write is a few instructions.
    return HasTexts(hive, seen, seenCount) && SettingsWriteText(hive, value.name, value.text);
}

DWORD SettingsValueSize(HKEY hive, const WCHAR* valueName)
{
    const RegistryKeyHandle key = OpenSettings(hive);
    DWORD size = 0;
    if (!key || RegQueryValueExW(key.get(), valueName, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return 0;
    return size;
}
