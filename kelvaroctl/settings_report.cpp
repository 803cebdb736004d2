#include "kelvaroctl/settings_report.h"

namespace kelvaroctl {

std::string SecretState(const SettingsHive& hive)
{
    if (ReadSetting(hive, *FindSetting("ClientSecret")).inForce)
        return "set";
    return ReadSetting(hive, *FindSetting("ClientDPAPISecret")).inForce ? "protected" : "not set";
}

// The value for people, followed by its meaning.
static std::string Shown(const Setting& setting, const SettingState& state)
{
    std::string text = IsText(setting) ? Printable(ToNarrow(state.text)) : std::to_string(state.number);
    const std::string meaning = IsText(setting) ? "" : NumberMeaning(setting, state.number);
    if (!meaning.empty())
        text += "  " + meaning;
    return text;
}

static void ReportSetting(const Setting& setting, const SettingState& state, SettingsReport* report)
{
    Json member = {{"set", state.inForce}};
    if (IsText(setting))
        member["value"] = ToNarrow(state.text);
    else
        member["value"] = state.number;
    std::string text = Shown(setting, state);
    if (!state.inForce)
        text = text.empty() ? "not set" : text + "  (default)";
    if (!state.ignored.empty()) {
        member["ignored"] = state.ignored;
        text += "  (ignored: " + state.ignored + ")";
    }
    report->settings[setting.name] = std::move(member);
    report->settingRows.push_back({setting.name, text});
}

static void ReportSecret(const Setting& setting, const SettingsHive& hive, SettingsReport* report)
{
    const std::string state = SecretState(hive);
    const std::string ignored = ReadSetting(hive, setting).ignored;
    Json member = {{"set", state != "not set"}, {"state", state}};
    std::string text = state == "set" ? "set, in clear text until the provider is next opened" : state;
    if (!ignored.empty()) {
        member["ignored"] = ignored;
        text += "  (ignored: " + ignored + ")";
    }
    report->settings[setting.name] = std::move(member);
    report->settingRows.push_back({setting.name, text});
}

// The list of certificates only grows, so its size is shown instead of its content.
static void ReportState(const Setting& setting, const SettingState& state, SettingsReport* report)
{
    Json member = {{"set", state.inForce}};
    std::string text = state.inForce ? Shown(setting, state) : "not set";
    if (setting.kind == SettingKind::StateText) {
        const size_t size = state.text.size();
        member["characters"] = size;
        text = state.inForce ? std::to_string(size) + " characters" : "not set";
    } else {
        member["value"] = state.number;
    }
    report->state[setting.name] = std::move(member);
    report->stateRows.push_back({setting.name, text});
}

SettingsReport ReportSettings(const SettingsHive& hive)
{
    SettingsReport report;
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if ((setting->machineOnly && !hive.isMachine()) || setting->kind == SettingKind::ProtectedSecret)
            continue;
        if (setting->kind == SettingKind::Secret)
            ReportSecret(*setting, hive, &report);
        else if (IsState(*setting))
            ReportState(*setting, ReadSetting(hive, *setting), &report);
        else
            ReportSetting(*setting, ReadSetting(hive, *setting), &report);
    }
    return report;
}

}  // namespace kelvaroctl
