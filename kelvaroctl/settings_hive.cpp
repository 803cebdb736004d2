#include "kelvaroctl/settings_hive.h"

#include "kelvaroctl/failure.h"
#include "kelvaroctl/owner.h"
#include "kelvaroctl/places.h"

namespace kelvaroctl {

// The key; NULL if there is none.
static RegistryKeyHandle OpenSettings(const SettingsHive& hive)
{
    HKEY key = nullptr;
    const LONG error = RegOpenKeyW(hive.handle(), kSettingsKey, &key);
    if (error == ERROR_SUCCESS)
        return RegistryKeyHandle(key);
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
        hive.ThrowFailure("read the settings", error);
    return nullptr;
}

// ERROR_TRANSACTION_ALREADY_ABORTED and ERROR_TRANSACTIONAL_CONFLICT, which not every Windows SDK defines.
constexpr LONG kTransactionAborted = 6704;
constexpr LONG kTransactionConflict = 6800;

void ThrowSettingsFailure(const std::string& attempt, const std::string& place, LONG error)
{
    if (error == ERROR_BADDB) {
        throw ConfigurationFailure("the settings in " + place +
                                   " are damaged: repair the file or restore a good copy; "
                                   "until then the provider runs without settings and none can be written");
    }
    if (error == kTransactionAborted || error == kTransactionConflict) {
        throw ConfigurationFailure("cannot " + attempt + " in " + place +
                                   ": another program changed the settings meanwhile; nothing was written, run the "
                                   "command again");
    }
    throw ConfigurationFailure("cannot " + attempt + " in " + place + ": " +
                               (error == ERROR_ACCESS_DENIED ? "access denied; run the command as an administrator"
                                : error == ERROR_LOCK_VIOLATION
                                    ? "another process has locked the file; end it or try again"
                                    : "error " + std::to_string(error)));
}

void SettingsHive::ThrowFailure(const std::string& attempt, LONG error) const
{
    ThrowSettingsFailure(attempt, SettingsPlace(hive_), error);
}

std::string SettingsHive::name() const
{
    return isMachine() ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER";
}

std::string SettingsHive::scope() const
{
    return isMachine() ? "machine" : "user";
}

bool SettingsHive::Exists() const
{
    return OpenSettings(*this) != nullptr;
}

void SettingsHive::RequireReadable() const
{
    OpenSettings(*this);
}

std::optional<RawValue> SettingsHive::Read(const std::string& valueName) const
{
    const RegistryKeyHandle key = OpenSettings(*this);
    if (!key)
        return std::nullopt;
    const WideText wide = ToWide(valueName);
    RawValue value;
    LONG error = ERROR_MORE_DATA;
    // The value may grow between the two calls.
    while (error == ERROR_MORE_DATA) {
        DWORD size = 0;
        error = RegQueryValueExW(key.get(), wide.c_str(), nullptr, nullptr, nullptr, &size);
        if (error == ERROR_FILE_NOT_FOUND)
            return std::nullopt;
        if (error != ERROR_SUCCESS)
            break;
        value.bytes.resize(size + sizeof(WCHAR));
        size = static_cast<DWORD>(value.bytes.size());
        error = RegQueryValueExW(key.get(), wide.c_str(), nullptr, &value.type, value.bytes.data(), &size);
        if (error == ERROR_SUCCESS)
            value.bytes.resize(size);
    }
    if (error == ERROR_FILE_NOT_FOUND)
        return std::nullopt;
    if (error != ERROR_SUCCESS)
        ThrowFailure("read " + valueName, error);
    return value;
}

static RegistryKeyHandle CreateSettings(const SettingsHive& hive, const std::string& attempt)
{
    HKEY key = nullptr;
    const LONG error = RegCreateKeyExW(hive.handle(), kSettingsKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                       KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
    if (error != ERROR_SUCCESS)
        hive.ThrowFailure(attempt, error);
    return RegistryKeyHandle(key);
}

void SettingsHive::Create() const
{
    CreateSettings(*this, "make the settings");
}

void SettingsHive::Write(const std::string& valueName, const RawValue& value) const
{
    const RegistryKeyHandle created = key_ ? nullptr : CreateSettings(*this, "write " + valueName);
    const LONG error = RegSetValueExW((key_ ? key_ : created).get(), ToWide(valueName).c_str(), 0, value.type,
                                      value.bytes.data(), static_cast<DWORD>(value.bytes.size()));
    if (error != ERROR_SUCCESS)
        ThrowFailure("write " + valueName, error);
}

bool SettingsHive::Remove(const std::string& valueName) const
{
    if (!Exists())
        return false;
    const LONG error =
        RegDeleteKeyValueW(key_ ? key_.get() : hive_, key_ ? nullptr : kSettingsKey, ToWide(valueName).c_str());
    if (error == ERROR_FILE_NOT_FOUND)
        return false;
    if (error != ERROR_SUCCESS)
        ThrowFailure("remove " + valueName, error);
    return true;
}

bool SettingsHive::Enter(RegistryTransaction* transaction, const std::string& attempt)
{
    CreateSettings(*this, attempt);
    const LONG error = transaction->Open(hive_, kSettingsKey, &key_);
    if (!key_ && !RegistryTransaction::IsUnsupported(error))
        ThrowFailure(attempt, error);
    return key_ != nullptr;
}

RawValue TextValue(WideView text)
{
    const BYTE* const bytes = reinterpret_cast<const BYTE*>(text.data());
    RawValue value = {REG_SZ, Bytes(bytes, bytes + text.size() * sizeof(WCHAR))};
    value.bytes.resize(value.bytes.size() + sizeof(WCHAR));
    return value;
}

RawValue NumberValue(DWORD number)
{
    const BYTE* const bytes = reinterpret_cast<const BYTE*>(&number);
    return {REG_DWORD, Bytes(bytes, bytes + sizeof(number))};
}

std::string TypeName(DWORD type)
{
    static const struct {
        DWORD type;
        const char* name;
    } rows[] = {{REG_NONE, "REG_NONE"},     {REG_SZ, "REG_SZ"},       {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
                {REG_BINARY, "REG_BINARY"}, {REG_DWORD, "REG_DWORD"}, {REG_MULTI_SZ, "REG_MULTI_SZ"},
                {REG_QWORD, "REG_QWORD"}};
    for (const auto& row : rows) {
        if (row.type == type)
            return row.name;
    }
    return "registry type " + std::to_string(type);
}

// Why the module ignores a stored value; empty if it doesn't.
static std::string WhyIgnored(const Setting& setting, const RawValue& value)
{
    const DWORD expected = IsText(setting) ? REG_SZ : REG_DWORD;
    if (value.type != expected)
        return "the value is a " + TypeName(value.type) + "; only a " + TypeName(expected) + " is read";
    if (setting.limit && value.bytes.size() > setting.limit)
        return "the value has " + std::to_string(value.bytes.size()) + " bytes; at most " +
               std::to_string(setting.limit) + " are read";
    return "";
}

SettingState ReadSetting(const SettingsHive& hive, const Setting& setting)
{
    SettingState state;
    const std::optional<RawValue> value = hive.Read(setting.name);
    if (value)
        state.ignored = WhyIgnored(setting, *value);
    state.inForce = value && state.ignored.empty();
    if (IsText(setting)) {
        if (state.inForce)
            state.text = TextIn(value->bytes);
        state.inForce = !state.text.empty();
        if (!state.inForce)
            state.text = ToWideSecret(setting.fallback);
    } else {
        state.number = state.inForce ? WordIn(value->bytes) : ParseNumber(setting.fallback).value_or(0);
    }
    return state;
}

SettingState ReadSetting(const SettingsHive& hive, const char* name)
{
    return ReadSetting(hive, *FindSetting(name));
}

}  // namespace kelvaroctl
