#include "support/settings.h"

#include <string.h>

#include "platform/product.h"
#include "support/text.h"

namespace {

// The settings key of one hive, closed at the end of the scope; NULL if there is none.
class SettingsKey {
  public:
    explicit SettingsKey(HKEY hive)
    {
        if (RegOpenKeyW(hive, kSettingsKey, &key_) != ERROR_SUCCESS)
            key_ = nullptr;
    }
    ~SettingsKey()
    {
        if (key_)
            RegCloseKey(key_);
    }
    SettingsKey(const SettingsKey&) = delete;
    SettingsKey& operator=(const SettingsKey&) = delete;

    HKEY get() const { return key_; }

  private:
    HKEY key_ = nullptr;
};

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
    const SettingsKey key(hive);
    if (!key.get())
        return false;
    for (size_t i = 0; i < seenCount; i++) {
        if (!HasText(key.get(), seen[i]))
            return false;
    }
    return true;
}

// The settings key in a transaction: writes take effect at Commit. Once the transaction has written to the key, the
// system rolls it back if anyone else writes there.
class SettingsTransaction {
  public:
    explicit SettingsTransaction(HKEY hive) : transaction_(CreateTransaction(nullptr, nullptr, 0, 0, 0, 0, nullptr))
    {
        // Wine returns an invalid handle other than INVALID_HANDLE_VALUE, and ends the process when it is used.
        DWORD flags = 0;
        if (transaction_ != INVALID_HANDLE_VALUE && GetHandleInformation(transaction_, &flags))
            error_ = RegOpenKeyTransactedW(hive, kSettingsKey, 0, KEY_SET_VALUE, &key_, transaction_, nullptr);
    }
    ~SettingsTransaction()
    {
        if (error_ == ERROR_SUCCESS)
            RegCloseKey(key_);
        if (transaction_ != INVALID_HANDLE_VALUE)
            CloseHandle(transaction_);  // rolls back what isn't committed
    }
    SettingsTransaction(const SettingsTransaction&) = delete;
    SettingsTransaction& operator=(const SettingsTransaction&) = delete;

    // False if the machine has no registry transactions, or they don't work for this hive.
    bool Exists() const
    {
        return error_ != ERROR_NOT_SUPPORTED && error_ != ERROR_CALL_NOT_IMPLEMENTED && error_ != ERROR_RM_NOT_ACTIVE;
    }

    // False if the key couldn't be opened (another transaction may be using it) or written.
    bool Write(const SettingText& value)
    {
        const DWORD size = static_cast<DWORD>((View(value.text).size() + 1) * sizeof(WCHAR));
        const BYTE* text = reinterpret_cast<const BYTE*>(value.text);
        return error_ == ERROR_SUCCESS && RegSetValueExW(key_, value.name, 0, REG_SZ, text, size) == ERROR_SUCCESS;
    }

    bool Commit() { return CommitTransaction(transaction_); }

  private:
    HANDLE transaction_;
    HKEY key_ = nullptr;
    LONG error_ = ERROR_NOT_SUPPORTED;
};

}  // namespace

void SettingsReadText(HKEY hive, const WCHAR* valueName, WCHAR* buffer, DWORD cbBuffer)
{
    const SettingsKey key(hive);
    if (key.get())
        ReadText(key.get(), valueName, buffer, cbBuffer);
    else
        memset(buffer, 0, cbBuffer);
}

DWORD SettingsReadNumber(HKEY hive, const WCHAR* valueName)
{
    const SettingsKey key(hive);
    if (!key.get())
        return 0;
    DWORD type = 0;
    DWORD number = 0;
    DWORD size = sizeof(number);
    const LONG error = RegQueryValueExW(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
    return error == ERROR_SUCCESS && type == REG_DWORD && size == sizeof(number) ? number : 0;
}

bool SettingsWriteNumber(HKEY hive, const WCHAR* valueName, DWORD number)
{
    const SettingsKey key(hive);
    return key.get() &&
           RegSetKeyValueW(key.get(), nullptr, valueName, REG_DWORD, &number, sizeof(number)) == ERROR_SUCCESS;
}

bool SettingsWriteText(HKEY hive, const WCHAR* valueName, const WCHAR* text)
{
    const SettingsKey key(hive);
    if (!key.get())
        return false;
    const DWORD size = static_cast<DWORD>((View(text).size() + 1) * sizeof(WCHAR));
    return RegSetKeyValueW(key.get(), nullptr, valueName, REG_SZ, text, size) == ERROR_SUCCESS;
}

bool SettingsWriteTextIf(HKEY hive, const SettingText& value, const SettingText* seen, size_t seenCount)
{
    // Write first: only then does another process's write roll back the transaction. Then compare, reading outside the
    // transaction, where all values, including the one being replaced, are still what everyone else sees. So another
    // process's write is either seen by the comparison or makes the commit fail.
    SettingsTransaction transaction(hive);
    if (transaction.Exists())
        return transaction.Write(value) && HasTexts(hive, seen, seenCount) && transaction.Commit();
    // No transactions. The gap between the comparison and the write is a few instructions.
    return HasTexts(hive, seen, seenCount) && SettingsWriteText(hive, value.name, value.text);
}

DWORD SettingsValueSize(HKEY hive, const WCHAR* valueName)
{
    const SettingsKey key(hive);
    DWORD size = 0;
    if (!key.get() || RegQueryValueExW(key.get(), valueName, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return 0;
    return size;
}
