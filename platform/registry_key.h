// Registry keys with one owner, and transactions over them.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"

using RegistryKeyHandle = Owner<std::remove_pointer_t<HKEY>, RegCloseKey>;

// On a machine that has transactions: what is written through its keys takes effect as a whole at Commit, or not at
// all.
class RegistryTransaction : private NonCopyable {
  public:
    RegistryTransaction() : handle_(CreateTransaction(nullptr, nullptr, 0, 0, 0, 0, nullptr))
    {
        // Wine returns an invalid handle other than INVALID_HANDLE_VALUE, and ends the process when it is used.
        DWORD flags = 0;
        usable_ = handle_ != INVALID_HANDLE_VALUE && GetHandleInformation(handle_, &flags);
    }
    ~RegistryTransaction()
    {
        if (handle_ != INVALID_HANDLE_VALUE)
            CloseHandle(handle_);  // rolls back what isn't committed
    }

    // Opens an existing key for writing. Another transaction may be using it. Once the transaction has written to the
    // key, the system rolls it back if anyone else writes there.
    LONG Open(HKEY hive, const WCHAR* path, RegistryKeyHandle* key)
    {
        HKEY opened = nullptr;
        const LONG error = usable_ ? RegOpenKeyTransactedW(hive, path, 0, KEY_SET_VALUE, &opened, handle_, nullptr)
                                   : ERROR_NOT_SUPPORTED;
        key->reset(error == ERROR_SUCCESS ? opened : nullptr);
        return error;
    }

    // Whether Open failed because the machine has no registry transactions, or they don't work for this hive.
    static bool IsUnsupported(LONG error)
    {
        return error == ERROR_NOT_SUPPORTED || error == ERROR_CALL_NOT_IMPLEMENTED || error == ERROR_RM_NOT_ACTIVE;
    }

    // False with GetLastError, and nothing written, if it fails.
    bool Commit() { return CommitTransaction(handle_); }

  private:
    HANDLE handle_;
    bool usable_ = false;
};
