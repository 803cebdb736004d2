#include <algorithm>

#include "platform/linux/der.h"
#include "platform/linux/outcome.h"
#include "platform/linux/registry_hive.h"
#include "platform/linux/registry_transaction.h"
#include "platform/linux/text.h"
#include "platform/linux/two_call.h"
#include "platform/linux/win_registry.h"

namespace {

constexpr size_t kMaxKeyNameLength = 255;
constexpr size_t kMaxValueNameLength = 16383;
constexpr DWORD kMaxValueSize = 16u << 20;

struct OpenedKey : HKEY__ {
    HiveId hive;
    std::u16string path;
    ObjectRef<Transaction> transaction;  // NULL: none
};

// The key that a call works on: the opened key, and below it the subKey argument.
struct Place {
    HiveId hive = HiveId::machine;
    std::u16string path;
};

bool IsHiveItself(HKEY key)
{
    return key == HKEY_LOCAL_MACHINE || key == HKEY_CURRENT_USER;
}

bool IsTransacted(HKEY key)
{
    return key && !IsHiveItself(key) && static_cast<OpenedKey*>(key)->transaction;
}

// The key in its transaction.
RegistryKey& KeyInTransaction(HKEY key)
{
    const OpenedKey* const opened = static_cast<OpenedKey*>(key);
    RegistryKey* const found = opened->transaction->key(opened->hive);
    if (!found)
        throw Failure(ERROR_TRANSACTION_NOT_ACTIVE);
    return *found;
}

void CheckPath(std::u16string_view path)
{
    if (!IsPlainText(path))
        throw Failure(ERROR_INVALID_PARAMETER);
    size_t length = 0;
    for (const char16_t c : path) {
        const bool divides = c == u'\\';
        if (divides && length == 0)
            throw Failure(ERROR_BAD_PATHNAME);
        length = divides ? 0 : length + 1;
        if (length > kMaxKeyNameLength)
            throw Failure(ERROR_INVALID_PARAMETER);
    }
}

Place FindPlace(HKEY key, LPCWSTR subKey)
{
    if (!key)
        throw Failure(ERROR_INVALID_HANDLE);
    if (IsTransacted(key))
        throw Failure(ERROR_NOT_SUPPORTED);
    Place place;
    if (IsHiveItself(key)) {
        place.hive = key == HKEY_LOCAL_MACHINE ? HiveId::machine : HiveId::user;
    } else {
        place.hive = static_cast<OpenedKey*>(key)->hive;
        place.path = static_cast<OpenedKey*>(key)->path;
    }
    std::u16string_view below = ViewOf(subKey);
    if (!below.empty() && below.back() == u'\\')
        below.remove_suffix(1);
    if (below.empty())
        return place;
    CheckPath(below);
    if (!place.path.empty())
        place.path += u'\\';
    place.path += below;
    return place;
}

HKEY NewKey(Place place)
{
    auto* key = new OpenedKey;
    key->hive = place.hive;
    key->path = std::move(place.path);
    return key;
}

// The type always; size and bytes by the two-call contract.
LONG HandOver(const RegistryValue& value, LPDWORD type, LPBYTE data, LPDWORD size)
{
    if (type)
        *type = value.type;
    return size ? GiveOut(BytesOf(value.data.data(), value.data.size()), data, size) : ERROR_SUCCESS;
}

// Returns whether this changed the key.
bool PutValue(RegistryKey* key, const RegistryValue& value)
{
    RegistryValue* stored = key->FindValue(value.name);
    if (!stored) {
        key->values.push_back(value);
        return true;
    }
    const bool changes = stored->type != value.type || stored->data != value.data;
    stored->type = value.type;
    stored->data = value.data;
    return changes;
}

// Returns whether there was one.
bool RemoveValue(RegistryKey* key, LPCWSTR name)
{
    RegistryValue* const value = key ? key->FindValue(ViewOf(name)) : nullptr;
    if (value)
        key->values.erase(key->values.begin() + (value - key->values.data()));
    return value;
}

LONG SetValue(const Place& place, bool creates, const RegistryValue& value)
{
    return ChangeHive(place.hive, [&](RegistryHive* hive, bool* changed) -> LONG {
        if (!creates && !hive->HasKey(place.path))
            return ERROR_KEY_DELETED;
        *changed = PutValue(hive->FindOrAddKey(place.path), value);
        return ERROR_SUCCESS;
    });
}

LONG StoreValue(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD type, LPCVOID data, DWORD size)
{
    return CodeOf([&]() -> LONG {
        const bool transacted = !subKey && IsTransacted(key);
        const Place place = transacted ? Place() : FindPlace(key, subKey);
        const std::u16string_view name = ViewOf(valueName);
        if (!IsPlainText(name) || name.size() > kMaxValueNameLength || (!data && size > 0))
            return ERROR_INVALID_PARAMETER;
        if (size > kMaxValueSize)
            return ERROR_NO_SYSTEM_RESOURCES;
        RegistryValue value;
        value.name = name;
        value.type = type;
        if (size > 0) {
            const BYTE* bytes = static_cast<const BYTE*>(data);
            value.data.assign(bytes, bytes + size);
        }
        if (!transacted)
            return SetValue(place, !ViewOf(subKey).empty(), value);
        PutValue(&KeyInTransaction(key), value);
        return ERROR_SUCCESS;
    });
}

// Runs `visit` on an opened key, or on NULL when the file has only keys below it.
template <typename Visit>
LONG VisitKey(HKEY key, HiveContent content, const Visit& visit)
{
    return CodeOf([&]() -> LONG {
        if (IsTransacted(key))
            return visit(&KeyInTransaction(key));
        const Place place = FindPlace(key, nullptr);
        return ReadHive(place.hive, content, [&](const RegistryHive& hive) -> LONG {
            // A handle stays valid when its key is removed from the file.
            return hive.HasKey(place.path) ? visit(hive.FindKey(place.path)) : ERROR_KEY_DELETED;
        });
    });
}

}  // namespace

LONG WINAPI RegOpenKeyW(HKEY key, LPCWSTR subKey, PHKEY result)
{
    if (!result)
        return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    return CodeOf([&]() -> LONG {
        const Place place = FindPlace(key, subKey);
        const LONG error = ReadHive(place.hive, HiveContent::kept, [&place](const RegistryHive& hive) {
            return hive.HasKey(place.path) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
        });
        if (error == ERROR_SUCCESS)
            *result = place.path.empty() ? key : NewKey(place);
        return error;
    });
}

LONG WINAPI RegOpenKeyTransactedW(HKEY key, LPCWSTR subKey, DWORD, REGSAM, PHKEY result, HANDLE transaction, PVOID)
{
    if (!result)
        return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    return CodeOf([&]() -> LONG {
        ObjectRef<Transaction> object = FindObject<Transaction>(transaction);
        if (!object)
            return ERROR_INVALID_HANDLE;
        const Place place = FindPlace(key, subKey);
        Check(object->Enter(place.hive, place.path));
        *result = NewKey(place);
        static_cast<OpenedKey*>(*result)->transaction = std::move(object);
        return ERROR_SUCCESS;
    });
}

LONG WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subKey, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY result,
                            LPDWORD disposition)
{
    if (!result || disposition)
        return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    return CodeOf([&]() -> LONG {
        const Place place = FindPlace(key, subKey);
        Check(ChangeHive(place.hive, [&](RegistryHive* hive, bool* changed) -> LONG {
            *changed = !hive->HasKey(place.path);
            if (*changed)
                hive->FindOrAddKey(place.path);
            return ERROR_SUCCESS;
        }));
        *result = place.path.empty() ? key : NewKey(place);
        return ERROR_SUCCESS;
    });
}

LONG WINAPI RegCloseKey(HKEY key)
{
    if (!key)
        return ERROR_INVALID_HANDLE;
    if (!IsHiveItself(key))
        delete static_cast<OpenedKey*>(key);
    return ERROR_SUCCESS;
}

LONG WINAPI RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size)
{
    if (reserved || (data && !size))
        return ERROR_INVALID_PARAMETER;
    const std::u16string_view name = ViewOf(valueName);
    const HiveContent content = EqualIgnoringCase(name, kClearSecret) ? HiveContent::complete : HiveContent::kept;
    return VisitKey(key, content, [&](const RegistryKey* found) -> LONG {
        const RegistryValue* value = found ? found->FindValue(name) : nullptr;
        return value ? HandOver(*value, type, data, size) : ERROR_FILE_NOT_FOUND;
    });
}

LONG WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR valueName, LPDWORD length, LPDWORD reserved, LPDWORD type,
                          LPBYTE data, LPDWORD size)
{
    if (!valueName || !length || reserved || type || data || size)
        return ERROR_INVALID_PARAMETER;
    return VisitKey(key, HiveContent::complete, [&](const RegistryKey* found) -> LONG {
        if (!found || index >= found->values.size())
            return ERROR_NO_MORE_ITEMS;
        const std::u16string& name = found->values[index].name;
        if (name.size() >= *length)
            return ERROR_MORE_DATA;
        *length = static_cast<DWORD>(name.copy(valueName, name.size()));
        valueName[*length] = 0;
        return ERROR_SUCCESS;
    });
}

LONG WINAPI RegSetKeyValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName, DWORD type, LPCVOID data, DWORD size)
{
    return StoreValue(key, subKey, valueName, type, data, size);
}

LONG WINAPI RegSetValueExW(HKEY key, LPCWSTR valueName, DWORD, DWORD type, const BYTE* data, DWORD size)
{
    return StoreValue(key, nullptr, valueName, type, data, size);
}

LONG WINAPI RegDeleteKeyValueW(HKEY key, LPCWSTR subKey, LPCWSTR valueName)
{
    return CodeOf([&]() -> LONG {
        if (!subKey && IsTransacted(key))
            return RemoveValue(&KeyInTransaction(key), valueName) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
        const Place place = FindPlace(key, subKey);
        return ChangeHive(place.hive, [&](RegistryHive* hive, bool* changed) -> LONG {
            *changed = RemoveValue(hive->FindKey(place.path), valueName);
            return *changed ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
        });
    });
}

LONG WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subKey)
{
    if (!subKey)
        return ERROR_INVALID_PARAMETER;
    return CodeOf([&]() -> LONG {
        const Place place = FindPlace(key, subKey);
        return ChangeHive(place.hive, [&place](RegistryHive* hive, bool* changed) -> LONG {
            if (!hive->HasKey(place.path))
                return ERROR_FILE_NOT_FOUND;
            const RegistryKey* found = hive->FindKey(place.path);
            if (place.path.empty() || !found || hive->HasKeyBelow(place.path))
                return ERROR_ACCESS_DENIED;
            hive->keys.erase(hive->keys.begin() + (found - hive->keys.data()));
            *changed = true;
            return ERROR_SUCCESS;
        });
    });
}
