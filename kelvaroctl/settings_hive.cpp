#include "kelvaroctl/settings_hive.h"

#include <cstring>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/places.h"

namespace kelvaroctl {

namespace {
[[noreturn]] void ThrowHiveFailure(HKEY hive, const std::string& attempt, LONG error)
{
    const std::string place = SettingsPlace(hive);
    if (error == ERROR_BADDB) {
        throw ConfigurationFailure("the settings in " + place +
                                   " are damaged: repair the file or restore a good copy; "
                                   "until then the provider runs without settings and none can be written");
    }
    throw ConfigurationFailure("cannot " + attempt + " in " + place + ": " +
                               (error == ERROR_ACCESS_DENIED ? "access denied; run the command as an administrator"
                                : error == ERROR_LOCK_VIOLATION
                                    ? "another process has locked the file; end it or try again"
                                    : "error " + std::to_string(error)));
}

// The key; NULL if there is none.
class OpenedKey {
  public:
    explicit OpenedKey(HKEY hive)
    {
        const LONG error = RegOpenKeyW(hive, kSettingsKey, &key_);
        if (error != ERROR_SUCCESS)
            key_ = nullptr;
        if (error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
            ThrowHiveFailure(hive, "read the settings", error);
    }
    ~OpenedKey()
    {
        if (key_)
            RegCloseKey(key_);
    }
    OpenedKey(const OpenedKey&) = delete;
    OpenedKey& operator=(const OpenedKey&) = delete;

    HKEY get() const { return key_; }

  private:
    HKEY key_ = nullptr;
};
}  // namespace

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
    return OpenedKey(hive_).get() != nullptr;
}

void SettingsHive::RequireReadable() const
{
    OpenedKey key(hive_);
}

std::optional<RawValue> SettingsHive::Read(const std::string& valueName) const
{
    const OpenedKey key(hive_);
    if (!key.get())
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
        ThrowHiveFailure(hive_, "read " + valueName, error);
    return value;
}

static HKEY CreateSettingsKey(HKEY hive, const std::string& attempt)
{
    HKEY key = nullptr;
    const LONG error = RegCreateKeyExW(hive, kSettingsKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                                       nullptr, &key, nullptr);
    if (error != ERROR_SUCCESS)
        ThrowHiveFailure(hive, attempt, error);
    return key;
}

void SettingsHive::Create() const
{
    RegCloseKey(CreateSettingsKey(hive_, "make the settings"));
}

void SettingsHive::Write(const std::string& valueName, const RawValue& value) const
{
    const HKEY key = CreateSettingsKey(hive_, "write " + valueName);
    const LONG error = RegSetValueExW(key, ToWide(valueName).c_str(), 0, value.type, value.bytes.data(),
                                      static_cast<DWORD>(value.bytes.size()));
    RegCloseKey(key);
    if (error != ERROR_SUCCESS)
        ThrowHiveFailure(hive_, "write " + valueName, error);
}

bool SettingsHive::Remove(const std::string& valueName) const
{
    if (!Exists())
        return false;
    const LONG error = RegDeleteKeyValueW(hive_, kSettingsKey, ToWide(valueName).c_str());
    if (error == ERROR_FILE_NOT_FOUND)
        return false;
    if (error != ERROR_SUCCESS)
        ThrowHiveFailure(hive_, "remove " + valueName, error);
    return true;
}

WideText TextOf(const RawValue& value)
{
    WideText text(value.bytes.size() / sizeof(WCHAR), 0);
    if (!text.empty())
        std::memcpy(text.data(), value.bytes.data(), text.size() * sizeof(WCHAR));
    return text.substr(0, text.find(WCHAR{0}));
}

DWORD NumberOf(const RawValue& value)
{
    DWORD number = 0;
    if (value.bytes.size() >= sizeof(number))
        std::memcpy(&number, value.bytes.data(), sizeof(number));
    return number;
}

RawValue TextValue(const WideText& text)
{
    RawValue value;
    value.type = REG_SZ;
    const BYTE* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    value.bytes.assign(bytes, bytes + (text.size() + 1) * sizeof(WCHAR));
    return value;
}

RawValue NumberValue(DWORD number)
{
    RawValue value;
    value.type = REG_DWORD;
    const BYTE* const bytes = reinterpret_cast<const BYTE*>(&number);
    value.bytes.assign(bytes, bytes + sizeof(number));
    return value;
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
    state.stored = value.has_value();
    if (value)
        state.ignored = WhyIgnored(setting, *value);
    state.inForce = value && state.ignored.empty();
    if (IsText(setting)) {
        if (state.inForce)
            state.text = TextOf(*value);
        state.inForce = !state.text.empty();
        if (!state.inForce)
            state.text = ToWide(setting.fallback);
    } else {
        state.number = state.inForce ? NumberOf(*value) : ParseNumber(setting.fallback).value_or(0);
    }
    return state;
}

}  // namespace kelvaroctl
