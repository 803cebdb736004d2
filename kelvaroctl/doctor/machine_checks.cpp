// Checks 1 to 5: this machine.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "kelvaroctl/doctor/doctor.h"
#include "kelvaroctl/doctor/surroundings.h"
#include "kelvaroctl/module_log.h"
#include "kelvaroctl/owner.h"
#include "kelvaroctl/settings_report.h"

namespace kelvaroctl {

Outcome CheckModule(Facts& facts)
{
    const ChildAnswer answer = AskChild(facts, {"doctor", "--step", "module"}, facts.tool.via);
    if (!answer.problem.empty()) {
        Outcome outcome = Failed("no provider", answer.problem,
                                 "install Kelvaro again, or name the module with --module before the command");
        outcome.exit = answer.exit;
        return outcome;
    }
    return Good(JsonText(answer.object, "module") + ", version " + JsonText(answer.object, "version") + ", " +
                std::to_string(sizeof(void*) * 8) + " bits");
}

Outcome CheckRegistration(Facts& facts)
{
    const std::optional<std::string> image = RegisteredImage();
    if (!image)
        return NotNeeded("this system has no key storage router");
    const std::string found =
        "'" + ToNarrow(kProviderName) + "' " + (image->empty() ? "isn't registered" : "is registered as " + *image);
    const ChildAnswer answer = AskChild(facts, {"doctor", "--step", "module"}, "ncrypt");
    if (answer.problem.empty())
        return Good(found + "; the router opens it");
    return Failed(found, "programs don't find the provider: " + answer.problem,
                  "run kelvaro-register install as an administrator");
}

// Why the module ignores values, and what is wrong with those that it uses.
static std::string ProblemsOf(const SettingsHive& hive)
{
    std::string problems;
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if (setting->machineOnly && !hive.isMachine())
            continue;
        const SettingState state = ReadSetting(hive, *setting);
        if (!state.ignored.empty())
            AddPart(&problems, setting->name + (" is ignored: " + state.ignored));
        if (!state.inForce || setting->kind == SettingKind::Secret || IsState(*setting))
            continue;
        const std::string problem =
            IsText(*setting) ? TextProblem(*setting, state.text) : NumberProblem(*setting, state.number);
        AddPart(&problems, problem.empty() ? "" : setting->name + (": " + problem));
    }
    return problems;
}

// "KeyVault=contoso; AuthenticationType=2  client credentials"
static std::string ShownSettings(const SettingsHive& hive, bool defaults)
{
    const SettingsReport report = ReportSettings(hive);
    std::string shown;
    for (const std::vector<std::string>& row : report.settingRows) {
        if (defaults || report.settings.at(row[0]).value("set", false))
            AddPart(&shown, row[0] + "=" + row[1]);
    }
    return shown;
}

// Names in the key that aren't settings: probably misspelt.
static std::string UnknownNames(HKEY hive)
{
    std::string unknown;
    HKEY key = nullptr;
    if (RegOpenKeyW(hive, kSettingsKey, &key) != ERROR_SUCCESS)
        return "";
    const RegistryKeyHandle owned(key);
    WCHAR name[256];
    DWORD length = 256;
    for (DWORD index = 0; RegEnumValueW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
         ++index) {
        const std::string text = ToNarrow(WideView(name, length));
        if (!text.empty() && !FindSetting(text))
            AddPart(&unknown, text);
        length = 256;
    }
    return unknown;
}

static std::string ComputerName()
{
    WCHAR name[256] = {};
    DWORD size = 256;
    return GetComputerNameExW(ComputerNameDnsFullyQualified, name, &size) ? ToNarrow(name) : "";
}

// The vault's name as the module makes it.
static std::string VaultOf(std::string name)
{
    constexpr size_t kLongest = 24;
    const size_t computer = name.find("%D");
    if (computer != std::string::npos)
        name.replace(computer, 2, ComputerName());
    name.erase(std::remove(name.begin(), name.end(), '.'), name.end());
    std::transform(name.begin(), name.end(), name.begin(), LowerAscii);
    return name.substr(0, kLongest);
}

static void TakeSettings(const SettingsHive& hive, Facts* facts)
{
    const auto text = [&](const char* name) { return ToNarrow(ReadSetting(hive, name).text); };
    const auto number = [&](const char* name) { return ReadSetting(hive, name).number; };
    facts->vaultFromIdentity = text("KeyVault") == "%G";
    if (!facts->vaultFromIdentity && TextProblem(*FindSetting("KeyVault"), ToWide(text("KeyVault"))).empty())
        facts->vault = VaultOf(text("KeyVault"));
    const DWORD methods = number("AuthenticationType");
    facts->signInMethods = methods ? methods & (kSignsInAsClient | kSignsInAsIdentity) : kSignsInAsIdentity;
    facts->tenant = text("TenantId");
    facts->clientId = text("ClientId");
    facts->secret = text("ClientSecret");
    facts->sealedSecret = text("ClientDPAPISecret");
    facts->plainKeys = number("CertificatesOrKeys") != 0;
    facts->purges = number("DoDeletePurge") == 0;
}

static std::string MissingIds(const Facts& facts)
{
    std::string missing;
    if (facts.signInMethods & kSignsInAsClient) {
        AddPart(&missing, facts.tenant.empty() ? "TenantId" : "");
        AddPart(&missing, facts.clientId.empty() ? "ClientId" : "");
        AddPart(&missing, facts.secret.empty() && facts.sealedSecret.empty() ? "ClientSecret" : "");
    }
    return missing;
}

// What is set in the other hive, which these keys don't use: it may have been meant for this one.
static std::string OtherHive(const SettingsHive& other)
{
    const auto set = IfPossible([&] { return ShownSettings(other, false); });
    return other.scope() + (!set ? ": can't be read" : ", for its own keys: " + (set->empty() ? "nothing set" : *set));
}

Outcome CheckSettings(Facts& facts)
{
    const SettingsHive hive = facts.tool.hive();
    hive.RequireReadable();
    TakeSettings(hive, &facts);
    std::string bad = ProblemsOf(hive);
    const std::string missing = MissingIds(facts);
    AddPart(&bad, missing.empty() ? "" : "not set: " + missing);
    AddPart(&bad, facts.signInMethods ? "" : "AuthenticationType allows no way of signing in");
    const std::string unknown = UnknownNames(hive.handle());
    std::string dubious = unknown.empty() ? "" : "unknown in the " + hive.scope() + "'s settings: " + unknown;
    AddPart(&dubious, OtherViewDifference(hive.isMachine()));
    const std::string found = hive.scope() + ": " + ShownSettings(hive, true) + "; " +
                              OtherHive(SettingsHive(hive.isMachine() ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE));
    if (!bad.empty()) {
        Outcome outcome = Failed(
            found, bad, std::string("kelvaroctl ") + (hive.isMachine() ? "" : "--user ") + "config set NAME VALUE");
        outcome.goesOn = true;
        return outcome;
    }
    return dubious.empty() ? Good(found) : Warned(found, dubious, "compare with docs/settings.md");
}

// Unprotects the secret as the module does. An empty text: *error says why.
static std::string Unprotect(const std::string& sealedText, DWORD* error)
{
    Bytes sealed;
    *error = ERROR_INVALID_DATA;
    if (!ParseBase64(sealedText, &sealed))
        return "";
    BYTE entropyBytes[sizeof(kSecretEntropy)];
    for (size_t at = 0; at < sizeof(entropyBytes); ++at)
        entropyBytes[at] = static_cast<BYTE>(kSecretEntropy[at / 4] >> (8 * (at % 4)));
    DATA_BLOB blob = {static_cast<DWORD>(sealed.size()), sealed.data()};
    DATA_BLOB entropy = {sizeof(entropyBytes), entropyBytes};
    DATA_BLOB plain = {};
    if (!CryptUnprotectData(&blob, nullptr, &entropy, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &plain)) {
        *error = GetLastError();
        return "";
    }
    const LocalBlock owned(plain.pbData);
    const Bytes text(plain.pbData, plain.pbData + plain.cbData);
    SecureZeroMemory(plain.pbData, plain.cbData);
    return ToNarrow(TextIn(text));
}

Outcome CheckSecret(Facts& facts)
{
    if (facts.secret.empty() && facts.sealedSecret.empty())
        return Blocked("no secret is set");
    const bool clear = !facts.secret.empty();
    DWORD error = 0;
    if (!clear)
        facts.secret = Unprotect(facts.sealedSecret, &error);
    if (facts.secret.empty()) {
        return Failed("it doesn't open: error " + HexNumber(error),
                      "it was protected on another machine or by another account, or it is damaged",
                      "kelvaroctl config set ClientSecret");
    }
    const std::string dubious = TextWarning(*FindSetting("ClientSecret"), ToWide(facts.secret));
    const std::string found = clear ? "in clear text until a program opens the provider" : "protected, and opens here";
    return dubious.empty() ? Good(found) : Warned(found, dubious, "make another secret without these characters");
}

// Whether this account can write to the log, without writing.
static bool TakesLines(const std::string& file)
{
    namespace fs = std::filesystem;
    std::error_code ignored;
    if (fs::exists(fs::u8path(file), ignored))
        return static_cast<bool>(std::ofstream(fs::u8path(file), std::ios::app));
    // Doesn't create today's file: it would belong to this account and lock the others out.
    const fs::path probe = fs::u8path(file + ".probe");
    const bool taken = static_cast<bool>(std::ofstream(probe, std::ios::app));  // it may be a link to another file
    fs::remove(probe, ignored);
    return taken;
}

Outcome CheckLog(Facts&)
{
    const std::optional<LogPlace> log = IfPossible(FindLog);
    if (!log)
        return NotNeeded("this account can't read the machine's settings, which name the log");
    if (!log->level)
        return Warned("off", "LoggingLevel is 0", "kelvaroctl config set LoggingLevel 1");
    const std::string found = "level " + std::to_string(log->level) + ", " + log->file;
    if (!log->folderExists)
        return Failed(found, "the folder doesn't exist", "create it, for the accounts that use the provider");
    if (!TakesLines(log->file)) {
        return Failed(found, "this account can't write there: the owner or the rights of the file or its folder",
                      "let all accounts that use the provider write there");
    }
    const SettingsHive machine(HKEY_LOCAL_MACHINE);
    const std::string problem = ReadSetting(machine, "EVLoggingLevel").number
                                    ? EventSourceProblem(ToNarrow(ReadSetting(machine, "EventLog").text))
                                    : "";
    return problem.empty() ? Good(found) : Warned(found, problem, "install Kelvaro again, or set EventLog");
}

}  // namespace kelvaroctl
