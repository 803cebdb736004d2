#include <algorithm>

#include "kelvaroctl/commands.h"
#include "kelvaroctl/config_import.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/module_log.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/settings_access.h"
#include "kelvaroctl/settings_report.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

constexpr size_t kLargestImport = 4 * 1024 * 1024;

static Json HiveObject(const SettingsHive& hive)
{
    return {{"hive", hive.name()}, {"key", ToNarrow(kSettingsKey)}, {"place", SettingsPlace(hive.handle())}};
}

// The answer of a command for one setting.
static Answer AnswerFor(const SettingsHive& hive, const Setting& setting)
{
    Answer answer = {HiveObject(hive)};
    answer.object["name"] = setting.name;
    return answer;
}

// Adds who can read the machine's settings.
static void AddAccess(const SettingsAccess& access, const std::string& words, Answer* answer)
{
    answer->object["readers"] = access.readers;
    answer->object["open"] = access.open;
    answer->text += words + (access.readers.empty() ? "nobody yet" : Joined(access.readers)) + "\n";
}

Answer ShowConfig(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    Answer answer = {HiveObject(hive)};
    answer.object["exists"] = hive.Exists();
    const SettingsReport report = ReportSettings(hive);
    answer.object["settings"] = report.settings;
    answer.object["state"] = report.state;
    answer.text = hive.scope() + " settings, " + SettingsPlace(hive.handle()) +
                  (hive.Exists() ? "\n" : " (none yet)\n") + Columns(report.settingRows, 2);
    answer.text += "kept by the provider\n" + Columns(report.stateRows, 2);
    if (const auto access = hive.isMachine() ? IfPossible(ReadSettingsAccess) : std::nullopt)
        AddAccess(*access, "read by ", &answer);
    return answer;
}

Answer ProtectConfig(Tool& tool)
{
    if (tool.user)
        throw UsageFailure("only the user can read the user's settings; 'config protect' is for the machine's");
    ProtectSettings(tool.accounts);
    const SettingsAccess access = ReadSettingsAccess();
    if (access.open)
        tool.Warn("ordinary users can still read the settings: one of the accounts given is a group of all users");
    Answer answer = {HiveObject(tool.hive())};
    AddAccess(access, "the machine's settings can be read by ", &answer);
    return answer;
}

// Anyone on this machine who can read the machine's secret can decrypt it.
static void CheckAccess(Tool& tool)
{
    if (!ReadSettingsAccess().open)
        return;
    const std::string problem = "ordinary users can read the settings in " + SettingsPlace(HKEY_LOCAL_MACHINE) +
                                ", and so recover the secret: run 'kelvaroctl config protect' first";
    if (!tool.anyway)
        throw Failure(ExitCode::Configuration, "open", problem + "; --anyway sets the secret regardless");
    tool.Warn(problem);
}

// The setting of that name, if the user can read or set it in that hive.
static const Setting& SettingFor(const std::string& name, const SettingsHive& hive)
{
    const Setting* const setting = FindSetting(name);
    if (!setting)
        throw UsageFailure("unknown setting: '" + name + "'" + DidYouMean(name, SettingNames()) + "; choose one of " +
                           Joined(SettingNames()));
    if (IsState(*setting))
        throw UsageFailure(std::string(setting->name) + " is the provider's own state and cannot be set by hand");
    if (setting->machineOnly && !hive.isMachine())
        throw UsageFailure(std::string(setting->name) + " is only read from the machine's settings");
    return *setting;
}

// Prints only the value that the module uses.
Answer GetSetting(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const Setting& setting = SettingFor(tool.name, hive);
    const Json member = ReportSettings(hive).settings[setting.name];
    const Json& value = member.contains("state") ? member["state"] : member["value"];
    Answer answer = AnswerFor(hive, setting);
    answer.object.update(member);
    answer.text = (value.is_string() ? Printable(value.get<std::string>()) : value.dump()) + "\n";
    return answer;
}

static void RefuseProblem(const Setting& setting, const std::string& problem)
{
    if (!problem.empty())
        throw UsageFailure(std::string(setting.name) + ": " + problem);
}

// The provider encrypts a clear secret when it is opened, so it is opened here.
static void ProtectSecret(Tool& tool)
{
    try {
        tool.OpenProvider();
    } catch (const Failure& failure) {
        tool.Warn(std::string("the secret stays in clear text until the provider is first opened: ") + failure.what());
    }
}

static void WriteText(Tool& tool, const SettingsHive& hive, const Setting& setting, std::string_view narrow)
{
    const SecretText text = ToWideSecret(narrow);
    RefuseProblem(setting, TextProblem(setting, text));
    const std::string warning = TextWarning(setting, text);
    hive.Write(setting.name, TextValue(text));
    if (!warning.empty())
        tool.Warn(warning);
}

static std::string WhenItCounts(const Setting& setting)
{
    switch (setting.readWhen) {
        case ReadWhen::ModuleLoad:
            return "it takes effect when a program next starts";
        case ReadWhen::LogLine:
            return "it takes effect with the next line logged";
        default:
            return "it takes effect when a program next opens the provider";
    }
}

static Answer SetSecret(Tool& tool, const SettingsHive& hive, const Setting& setting)
{
    if (hive.isMachine())
        CheckAccess(tool);
    WriteText(tool, hive, setting, ReadSecretLine("Client secret: "));
    Answer answer = AnswerFor(hive, setting);
    ProtectSecret(tool);
    answer.object["state"] = SecretState(hive);
    answer.text = "ClientSecret of the " + hive.scope() + " is " + answer.object["state"].get<std::string>() + "\n";
    return answer;
}

static void WarnOfLogFolder(Tool& tool)
{
    const LogPlace log = FindLog();
    if (!log.folderExists)
        tool.Warn("the folder does not exist, and the provider does not create it: nothing is logged until it exists");
    if (log.othersCanWrite)
        tool.Warn("ordinary users can write to this folder, and redirect what privileged programs log: " +
                  std::string("choose one that only administrators can change"));
}

Answer SetSetting(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const Setting& setting = SettingFor(tool.name, hive);
    if (setting.kind == SettingKind::Secret) {
        if (tool.value) {
            throw UsageFailure(
                "ClientSecret cannot be an argument, which other users and the shell's history would "
                "see: leave it out and type it when asked, or pipe it to standard input");
        }
        return SetSecret(tool, hive, setting);
    }
    if (!tool.value)
        throw UsageFailure(std::string("missing value for ") + setting.name);
    Answer answer = AnswerFor(hive, setting);
    if (IsText(setting)) {
        const std::string text = ShortForm(setting, *tool.value);
        WriteText(tool, hive, setting, text);
        answer.object["value"] = text;
        if (setting.name == std::string_view("LogfilePath"))
            WarnOfLogFolder(tool);
    } else {
        const std::optional<DWORD> number = ParseNumber(*tool.value);
        RefuseProblem(setting, number ? NumberProblem(setting, *number) : NumberProblem(setting, 0xFFFFFFFF));
        hive.Write(setting.name, NumberValue(*number));
        answer.object["value"] = *number;
    }
    answer.text = std::string(setting.name) + " of the " + hive.scope() + " is set; " + WhenItCounts(setting) + "\n";
    return answer;
}

Answer UnsetSetting(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const Setting& setting = SettingFor(tool.name, hive);
    bool removed = hive.Remove(setting.name);
    // The secret has two forms.
    if (setting.kind == SettingKind::Secret && hive.Remove("ClientDPAPISecret"))
        removed = true;
    Answer answer = AnswerFor(hive, setting);
    answer.object["removed"] = removed;
    answer.text = std::string(setting.name) + " of the " + hive.scope() +
                  (removed ? " is no longer set; " + WhenItCounts(setting) : " was not set") + "\n";
    return answer;
}

// The changes that set a secret, in either form.
static std::vector<SettingChange> SecretsOf(const std::vector<SettingChange>& changes)
{
    std::vector<SettingChange> secrets;
    for (const SettingChange& change : changes) {
        const SettingKind kind = change.setting->kind;
        if ((kind == SettingKind::Secret || kind == SettingKind::ProtectedSecret) && !change.remove &&
            !TextIn(change.value.bytes).empty())
            secrets.push_back(change);
    }
    return secrets;
}

static void WarnOfSecrets(Tool& tool, const std::vector<SettingChange>& secrets)
{
    bool clear = false;
    for (const SettingChange& change : secrets) {
        clear = clear || change.setting->kind == SettingKind::Secret;
        tool.Warn(change.setting->kind == SettingKind::Secret
                      ? "the imported file contains a secret in clear text: delete it or keep it safe"
                      : "ClientDPAPISecret can only be decrypted on the machine, or by the user, that encrypted it; if "
                        "sign-in is refused, run 'kelvaroctl config set ClientSecret'");
    }
    if (clear)
        ProtectSecret(tool);
}

Answer ImportConfig(Tool& tool)
{
    std::vector<SettingChange> changes;
    try {
        const Bytes content = ReadInput(tool.input, kLargestImport);
        changes = CheckImport(AsText(content));
    } catch (const Failure& failure) {
        throw Failure(failure.exit(), failure.code(), tool.input + ": " + failure.what() + "; nothing was imported");
    }
    const std::vector<SettingChange> secrets = SecretsOf(changes);
    if (std::any_of(secrets.begin(), secrets.end(),
                    [](const SettingChange& change) { return change.hive == HKEY_LOCAL_MACHINE; }))
        CheckAccess(tool);
    ApplyChanges(changes);
    WarnOfSecrets(tool, secrets);
    Answer answer;
    answer.object["imported"] = Json::array();
    for (const SettingChange& change : changes) {
        const SettingsHive hive(change.hive);
        answer.object["imported"].push_back(
            {{"hive", hive.name()}, {"name", change.setting->name}, {"removed", change.remove}});
        answer.text +=
            std::string(change.setting->name) + " of the " + hive.scope() + (change.remove ? " removed\n" : " set\n");
    }
    answer.text += std::to_string(changes.size()) + " values imported\n";
    return answer;
}

}  // namespace kelvaroctl
