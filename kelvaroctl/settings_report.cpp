#include "kelvaroctl/settings_report.h"

namespace kelvaroctl {

std::string SecretState(const SettingsHive& hive)
{
    if (ReadSetting(hive, "ClientSecret").inForce)
        return "set";
    return ReadSetting(hive, "ClientDPAPISecret").inForce ? "protected" : "not set";
}

// The value as text, followed by its meaning.
static std::string Shown(const Setting& setting, const SettingState& state)
{
    std::string text = IsText(setting) ? Printable(ToNarrow(state.text)) : std::to_string(state.number);
    const std::string meaning = IsText(setting) ? "" : NumberMeaning(setting, state.number);
    if (!meaning.empty())
        text += "  " + meaning;
    return text;
}

namespace {
struct Reported {
    Json member;
    std::string text;
};
}  // namespace

static Reported ReportSetting(const Setting& setting, const SettingState& state)
{
    const std::string text = Shown(setting, state);
    Reported row = {{{"set", state.inForce}}, state.inForce ? text : text.empty() ? "not set" : text + "  (default)"};
    if (IsText(setting))
        row.member["value"] = ToNarrow(state.text);
    else
        row.member["value"] = state.number;
    return row;
}

static Reported ReportSecret(const SettingsHive& hive)
{
    const std::string state = SecretState(hive);
    return {{{"set", state != "not set"}, {"state", state}},
            state == "set" ? "set, in clear text until the provider is next opened" : state};
}

// The list of certificates only grows, so its size is shown instead of its content.
static Reported ReportState(const Setting& setting, const SettingState& state)
{
    Reported row = {{{"set", state.inForce}}, state.inForce ? Shown(setting, state) : "not set"};
    if (setting.kind == SettingKind::StateText) {
        row.member["characters"] = state.text.size();
        if (state.inForce)
            row.text = std::to_string(state.text.size()) + " characters";
    } else {
        row.member["value"] = state.number;
    }
    return row;
}

SettingsReport ReportSettings(const SettingsHive& hive)
{
    SettingsReport report;
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if ((setting->machineOnly && !hive.isMachine()) || setting->kind == SettingKind::ProtectedSecret)
            continue;
        const SettingState state = ReadSetting(hive, *setting);
        Reported row = setting->kind == SettingKind::Secret ? ReportSecret(hive)
                       : IsState(*setting)                  ? ReportState(*setting, state)
                                                            : ReportSetting(*setting, state);
        if (!state.ignored.empty()) {
            row.member["ignored"] = state.ignored;
            row.text += "  (ignored: " + state.ignored + ")";
        }
        (IsState(*setting) ? report.state : report.settings)[setting->name] = std::move(row.member);
        (IsState(*setting) ? report.stateRows : report.settingRows).push_back({setting->name, row.text});
    }
    return report;
}

}  // namespace kelvaroctl
