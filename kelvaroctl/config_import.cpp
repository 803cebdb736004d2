#include "kelvaroctl/config_import.h"

#include <map>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/places.h"
#include "platform/registry_key.h"
#include "platform/registry_text.h"

namespace kelvaroctl {

static Failure LineFailure(size_t line, const std::string& problem)
{
    return UsageFailure("line " + std::to_string(line) + ": " + problem);
}

namespace {
struct HiveName {
    const char* name;
    HKEY hive;
};

// The hive, if the path is its settings key; else NULL.
HKEY HiveOfKey(const WideText& path)
{
    const HiveName names[] = {
        {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
    };
    for (const HiveName& row : names) {
        if (EqualIgnoringCase(ToNarrow(path), std::string(row.name) + "\\" + ToNarrow(kSettingsKey)))
            return row.hive;
    }
    return nullptr;
}

void CheckKey(const RegistryTextKey& key)
{
    if (key.removed)
        throw LineFailure(key.line, "a whole key cannot be removed; 'kelvaroctl config unset' removes settings");
    if (!HiveOfKey(key.path)) {
        throw LineFailure(key.line, "only the settings key is accepted, [HKEY_LOCAL_MACHINE\\" +
                                        ToNarrow(kSettingsKey) + "] or [HKEY_CURRENT_USER\\" + ToNarrow(kSettingsKey) +
                                        "]");
    }
}

void CheckType(const RegistryValue& entry, const Setting& setting)
{
    const DWORD expected = IsText(setting) ? REG_SZ : REG_DWORD;
    if (entry.type != expected) {
        throw LineFailure(entry.line, std::string(setting.name) + " must be a " + TypeName(expected) + ", not a " +
                                          TypeName(entry.type));
    }
    const bool whole = IsText(setting) ? entry.data.size() % sizeof(WCHAR) == 0 : entry.data.size() == sizeof(DWORD);
    if (!whole)
        throw LineFailure(entry.line,
                          std::string("the bytes of ") + setting.name + " end in the middle of a character or number");
}

// Empty texts are valid here: the module empties the clear secret, and an export includes the empty value.
std::string ValueProblem(const Setting& setting, const RawValue& value)
{
    if (!IsText(setting))
        return NumberProblem(setting, WordIn(value.bytes));
    const SecretText text = TextIn(value.bytes);
    return text.empty() ? "" : TextProblem(setting, text);
}

const Setting& SettingOf(const RegistryValue& entry)
{
    if (entry.name.empty())
        throw LineFailure(entry.line, "the key's default value is not a setting");
    const Setting* const setting = FindSetting(ToNarrow(entry.name));
    if (!setting)
        throw LineFailure(entry.line, "unknown setting \"" + ToNarrow(entry.name) + "\"");
    return *setting;
}

SettingChange CheckEntry(HKEY hive, const RegistryValue& entry)
{
    const Setting& setting = SettingOf(entry);
    SettingChange change{hive, &setting, entry.removed, {entry.type, Bytes(entry.data.begin(), entry.data.end())}};
    if (setting.machineOnly && hive != HKEY_LOCAL_MACHINE)
        throw LineFailure(entry.line, std::string(setting.name) + " is only read from HKEY_LOCAL_MACHINE");
    if (entry.removed)
        return change;
    CheckType(entry, setting);
    const std::string problem = ValueProblem(setting, change.value);
    if (!problem.empty())
        throw LineFailure(entry.line, std::string(setting.name) + ": " + problem);
    if (IsText(setting))
        change.value = TextValue(TextIn(change.value.bytes));
    return change;
}

void Put(const SettingsHive& hive, const Setting& setting, const std::optional<RawValue>& value)
{
    if (value)
        hive.Write(setting.name, *value);
    else
        hive.Remove(setting.name);
}

std::optional<RawValue> NewValue(const SettingChange& change)
{
    return change.remove ? std::nullopt : std::optional<RawValue>(change.value);
}

// In one transaction. Returns false, with nothing changed, if the machine has no registry transactions.
bool ApplyTogether(const std::vector<SettingChange>& changes)
{
    RegistryTransaction transaction;
    std::map<HKEY, SettingsHive> hives;
    for (const SettingChange& change : changes) {
        if (change.remove && !SettingsHive(change.hive).Exists())
            continue;
        const auto [hive, isNew] = hives.try_emplace(change.hive, change.hive);
        if (isNew && !hive->second.Enter(&transaction, std::string("write ") + change.setting->name))
            return false;
        Put(hive->second, *change.setting, NewValue(change));
    }
    if (hives.empty() || transaction.Commit())
        return true;
    const LONG error = static_cast<LONG>(GetLastError());
    std::string places;  // the system doesn't say which of them failed
    for (const auto& [handle, hive] : hives)
        AddPart(&places, SettingsPlace(handle), " or ");
    ThrowSettingsFailure("write the settings", places, error);
}

// One by one. If one fails, undoes the others as far as the system lets it.
void ApplySingly(const std::vector<SettingChange>& changes)
{
    std::vector<std::optional<RawValue>> before;
    before.reserve(changes.size());
    for (const SettingChange& change : changes)
        before.push_back(SettingsHive(change.hive).Read(change.setting->name));
    size_t done = 0;
    try {
        for (; done < changes.size(); ++done)
            Put(SettingsHive(changes[done].hive), *changes[done].setting, NewValue(changes[done]));
    } catch (const Failure&) {
        while (done--) {
            try {
                Put(SettingsHive(changes[done].hive), *changes[done].setting, before[done]);
            } catch (const Failure&) {
                // The first failure is the one to report.
            }
        }
        throw;
    }
}
}  // namespace

std::vector<SettingChange> CheckImport(std::string_view content)
{
    RegistryText text;
    RegistryTextProblem problem;
    if (!ParseRegistryText(content, &text, &problem))
        throw problem.line ? LineFailure(problem.line, problem.what) : UsageFailure(problem.what);
    std::vector<SettingChange> changes;
    for (const RegistryTextKey& key : text.keys) {
        CheckKey(key);
        for (const RegistryValue& entry : key.values) {
            const SettingChange change = CheckEntry(HiveOfKey(key.path), entry);
            for (const SettingChange& earlier : changes) {
                if (earlier.hive == change.hive && earlier.setting == change.setting)
                    throw LineFailure(entry.line, std::string(change.setting->name) + " is given twice");
            }
            changes.push_back(change);
        }
    }
    return changes;
}

void ApplyChanges(const std::vector<SettingChange>& changes)
{
    if (!ApplyTogether(changes))
        ApplySingly(changes);
}

}  // namespace kelvaroctl
