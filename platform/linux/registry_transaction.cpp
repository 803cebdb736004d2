#include "platform/linux/registry_transaction.h"

#include <algorithm>

#include "platform/linux/outcome.h"
#include "platform/linux/win_registry.h"

namespace {

bool SameValues(const RegistryKey& a, const RegistryKey& b)
{
    return std::equal(a.values.begin(), a.values.end(), b.values.begin(), b.values.end(),
                      [](const RegistryValue& left, const RegistryValue& right) {
                          return left.name == right.name && left.type == right.type && left.data == right.data;
                      });
}

// A key that has keys below it may have no line in the file.
RegistryKey KeyIn(const RegistryHive& hive, const std::u16string& path)
{
    const RegistryKey* const found = hive.FindKey(path);
    return found ? *found : RegistryKey{{}, path, {}};
}

}  // namespace

LONG Transaction::Enter(HiveId hive, const std::u16string& path)
{
    if (ended_ || keys_.count(hive))
        return ERROR_NOT_SUPPORTED;
    return ReadHive(hive, HiveContent::complete, [&](const RegistryHive& current) -> LONG {
        if (!current.HasKey(path))
            return ERROR_FILE_NOT_FOUND;
        const RegistryKey key = KeyIn(current, path);
        keys_[hive] = {key, key};
        return ERROR_SUCCESS;
    });
}

LONG Transaction::Commit()
{
    if (ended_)
        return ERROR_TRANSACTION_NOT_ACTIVE;
    ended_ = true;
    // Nothing is published before all is prepared. The map's order is the order of the locks.
    std::map<HiveId, HiveRewrite> rewrites;
    for (const auto& [hive, key] : keys_) {
        Check(rewrites[hive].Prepare(hive, [&entered = key](RegistryHive* current, bool* changed) -> LONG {
            const std::u16string& path = entered.before.path;
            if (!current->HasKey(path) || !SameValues(KeyIn(*current, path), entered.before))
                return ERROR_TRANSACTION_ALREADY_ABORTED;
            *changed = !SameValues(entered.before, entered.after);
            current->FindOrAddKey(path)->values = entered.after.values;
            return ERROR_SUCCESS;
        }));
    }
    LONG error = ERROR_SUCCESS;
    for (auto at = rewrites.begin(); at != rewrites.end() && error == ERROR_SUCCESS; ++at)
        error = at->second.Publish();
    for (auto at = rewrites.begin(); at != rewrites.end() && error != ERROR_SUCCESS; ++at)
        at->second.Undo();
    return error;
}

HANDLE WINAPI CreateTransaction(LPSECURITY_ATTRIBUTES, GUID*, DWORD, DWORD, DWORD, DWORD, LPWSTR)
{
    HANDLE handle = nullptr;
    Succeeds([&]() -> LONG {
        handle = PublishHandle(ObjectRef<KernelObject>(new Transaction));
        return handle ? ERROR_SUCCESS : ERROR_NO_SYSTEM_RESOURCES;
    });
    return handle ? handle : INVALID_HANDLE_VALUE;
}

BOOL WINAPI CommitTransaction(HANDLE handle)
{
    const auto transaction = FindObject<Transaction>(handle);
    return transaction && Succeeds([&] { return transaction->Commit(); });
}
