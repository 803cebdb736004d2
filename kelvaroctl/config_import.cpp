#include "kelvaroctl/config_import.h"

namespace kelvaroctl {

namespace {
struct HiveName {
    const char* name;
    HKEY hive;
};

// The hive whose settings key the path is; NULL when it is another key.
HKEY HiveOfKey(const std::string& path)
{
    const HiveName names[] = {
        {"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
        {"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
    };
    for (const HiveName& row : names) {
        if (EqualIgnoringCase(path, std::string(row.name) + "\\" + ToNarrow(kSettingsKey)))
            return row.hive;
    }
    return nullptr;
}

void CheckType(const RegistryEntry& entry, const Setting& setting)
{
    const DWORD expected = IsText(setting) ? REG_SZ : REG_DWORD;
    if (entry.value.type != expected) {
        throw LineFailure(entry.line, std::string(setting.name) + " must be a " + TypeName(expected) + ", not a " +
                                          TypeName(entry.value.type));
    }
    const bool whole =
        IsText(setting) ? entry.value.bytes.size() % sizeof(WCHAR) == 0 : entry.value.bytes.size() == sizeof(DWORD);
    if (!whole)
        throw LineFailure(entry.line, std::string("the bytes of ") + setting.name + " end in the middle");
}

// An empty text is what an export holds for a setting that was emptied, the clear secret above all.
std::string ValueProblem(const Setting& setting, const RawValue& value)
{
    if (!IsText(setting))
        return NumberProblem(setting, NumberOf(value));
    const WideText text = TextOf(value);
    return text.empty() ? "" : TextProblem(setting, text);
}

SettingChange JudgeEntry(const RegistryEntry& entry)
{
    const Setting* const setting = FindSetting(entry.name);
    if (!setting)
        throw LineFailure(entry.line, "there is no setting \"" + entry.name + "\"");
    SettingChange change{HiveOfKey(entry.key), setting, entry.remove, entry.value};
    if (setting->machineOnly && change.hive != HKEY_LOCAL_MACHINE)
        throw LineFailure(entry.line, std::string(setting->name) + " is read from HKEY_LOCAL_MACHINE alone");
    if (entry.remove)
        return change;
    CheckType(entry, *setting);
    const std::string problem = ValueProblem(*setting, entry.value);
    if (!problem.empty())
        throw LineFailure(entry.line, std::string(setting->name) + ": " + problem);
    if (IsText(*setting))
        change.value = TextValue(TextOf(entry.value));
    return change;
}

void Put(const SettingsHive& hive, const Setting& setting, const std::optional<RawValue>& value)
{
    if (value)
        hive.Write(setting.name, *value);
    else
        hive.Remove(setting.name);
}
}  // namespace

std::vector<SettingChange> JudgeImport(const RegistryText& text)
{
    for (const RegistryText::Key& key : text.keys) {
        if (!HiveOfKey(key.path)) {
            throw LineFailure(key.line, "only the settings key is taken, [HKEY_LOCAL_MACHINE\\" +
                                            ToNarrow(kSettingsKey) + "] or [HKEY_CURRENT_USER\\" +
                                            ToNarrow(kSettingsKey) + "]");
        }
    }
    std::vector<SettingChange> changes;
    for (const RegistryEntry& entry : text.entries) {
        const SettingChange change = JudgeEntry(entry);
        for (const SettingChange& earlier : changes) {
            if (earlier.hive == change.hive && earlier.setting == change.setting)
                throw LineFailure(entry.line, std::string(change.setting->name) + " is given twice");
        }
        changes.push_back(change);
    }
    return changes;
}

void ApplyChanges(const std::vector<SettingChange>& changes)
{
    std::vector<std::optional<RawValue>> before;
    for (const SettingChange& change : changes)
        before.push_back(SettingsHive(change.hive).Read(change.setting->name));
    size_t done = 0;
    try {
        for (; done < changes.size(); ++done) {
            const SettingChange& change = changes[done];
            Put(SettingsHive(change.hive), *change.setting,
                change.remove ? std::nullopt : std::optional<RawValue>(change.value));
        }
    } catch (const Failure&) {
        while (done--) {
            try {
                Put(SettingsHive(changes[done].hive), *changes[done].setting, before[done]);
            } catch (const Failure&) {
                // The first failure is the one to tell.
            }
        }
        throw;
    }
}

}  // namespace kelvaroctl
