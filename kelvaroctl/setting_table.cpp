#include "kelvaroctl/setting_table.h"

#include <algorithm>
#include <charconv>

namespace kelvaroctl {

const Setting kSettings[] = {
    {"KeyVault", SettingKind::Text, 1024, 0, false, ReadWhen::ProviderOpen, "%G",
     "the vault's short name; %D: the machine's DNS name, %G: named after the signed-in identity"},
    {"AuthenticationType", SettingKind::Number, 4, 3, false, ReadWhen::ProviderOpen, "1",
     "sign-in: 1 managed identity, 2 client credentials, 3 client credentials, then managed identity"},
    {"TenantId", SettingKind::Text, 1024, 0, false, ReadWhen::ProviderOpen, "", "directory tenant of the application"},
    {"ClientId", SettingKind::Text, 1024, 0, false, ReadWhen::ProviderOpen, "", "application (client) id"},
    {"ClientSecret", SettingKind::Secret, 1024, 0, false, ReadWhen::ProviderOpen, "", "the application's secret"},
    {"ClientDPAPISecret", SettingKind::ProtectedSecret, 8192, 0, false, ReadWhen::ProviderOpen, "",
     "the secret in protected form"},
    {"ClientCertID", SettingKind::Text, 1024, 0, false, ReadWhen::ProviderOpen, "",
     "id of a client certificate; not used"},
    {"DoDeletePurge", SettingKind::Number, 4, 1, false, ReadWhen::ProviderOpen, "0",
     "0: deleted keys are purged too, 1: they are not"},
    {"CertificatesOrKeys", SettingKind::Number, 4, 1, false, ReadWhen::ProviderOpen, "0",
     "0: keys live in the vault as certificates, 1: as plain keys"},
    {"ExportableOption", SettingKind::Number, 4, 1, false, ReadWhen::ProviderOpen, "0",
     "0: requests for exportable keys are refused, 1: accepted, without effect"},
    {"LoggingLevel", SettingKind::Number, 4, 10, true, ReadWhen::ModuleLoad, "0",
     "level of the log file: 0 off, 1 errors, 2 warnings, 4 calls, 8 steps, 10 everything"},
    {"EVLoggingLevel", SettingKind::Number, 4, 10, true, ReadWhen::ModuleLoad, "0", "the same for the event log"},
    {"EventLog", SettingKind::Text, 256, 0, true, ReadWhen::ModuleLoad, "Application", "name of the event source"},
    {"LogfilePath", SettingKind::Text, 512, 0, true, ReadWhen::LogLine,
     "C:", "folder of the log files, without a trailing backslash"},
    {"FromKVLastSyncTime", SettingKind::StateNumber, 4, 0xFFFFFFFF, true, ReadWhen::ProviderOpen, "",
     "last certificate sync"},
    {"CertSync", SettingKind::StateText, 0, 0, false, ReadWhen::ProviderOpen, "", "certificates that count as in step"},
    {nullptr, SettingKind::Text, 0, 0, false, ReadWhen::ProviderOpen, nullptr, nullptr},
};

const Setting* FindSetting(std::string_view name)
{
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if (EqualIgnoringCase(name, setting->name))
            return setting;
    }
    return nullptr;
}

std::vector<std::string> SettingNames()
{
    std::vector<std::string> names;
    for (const Setting* row = kSettings; row->name; ++row) {
        if (!IsState(*row))
            names.emplace_back(row->name);
    }
    return names;
}

bool IsText(const Setting& setting)
{
    return setting.kind != SettingKind::Number && setting.kind != SettingKind::StateNumber;
}

bool IsState(const Setting& setting)
{
    return setting.kind == SettingKind::StateNumber || setting.kind == SettingKind::StateText ||
           setting.kind == SettingKind::ProtectedSecret;
}

static bool IsNamed(const Setting& setting, std::string_view name)
{
    return setting.name == name;
}

static bool IsVaultCharacter(WCHAR ch)
{
    return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') || ch == '-';
}

static std::string VaultTemplateProblem(WideView value)
{
    bool expands = false;
    for (size_t at = 0; at < value.size(); ++at) {
        if (value[at] == '.')
            return "a vault's name has no dots: give the short name, \"contoso\", not its host name";
        if (value[at] == '%') {
            const WCHAR escape = at + 1 < value.size() ? value[++at] : WCHAR{0};
            if (escape != 'D' && escape != 'G')
                return "only %D and %G have a meaning";
            if (escape == 'G' && value.size() != 2)
                return "%G must be the whole value";
            expands = true;
        } else if (!IsVaultCharacter(value[at])) {
            return "a vault's name consists of letters, digits and hyphens";
        }
    }
    if (!expands && (value.size() < 3 || value.size() > 24))
        return "a vault's name has 3 to 24 characters";
    return "";
}

std::string ShortForm(const Setting& setting, const std::string& value)
{
    constexpr std::string_view kScheme = "https://";
    constexpr std::string_view kSuffix = ".vault.azure.net";
    if (!IsNamed(setting, "KeyVault"))
        return value;
    const size_t begin =
        EqualIgnoringCase(std::string_view(value).substr(0, kScheme.size()), kScheme) ? kScheme.size() : 0;
    const std::string host = value.substr(begin, value.find_first_of(":/", begin) - begin);
    const size_t name = host.size() - std::min(host.size(), kSuffix.size());
    return EqualIgnoringCase(std::string_view(host).substr(name), kSuffix) ? host.substr(0, name) : value;
}

// These are sent in the sign-in request without escaping.
static bool HasReserved(WideView value)
{
    return value.find_first_of(TEXT(" /?#&%+=\"\\")) != WideView::npos;
}

static std::string FolderProblem(WideView value)
{
    if (value.back() == '\\' || value.back() == '/')
        return "write the folder without a trailing separator";
    const bool drive = value.size() >= 2 && value[1] == ':';
    if (!drive && value[0] != '/' && value[0] != '\\')
        return "write the folder's full path: programs run in many folders";
    return "";
}

std::string TextProblem(const Setting& setting, WideView value)
{
    const size_t size = (value.size() + 1) * sizeof(WCHAR);
    if (value.empty())
        return "the value is empty; use 'kelvaroctl config unset' to remove a setting";
    for (const WCHAR ch : value) {
        if (ch < ' ' || ch == 0x7F)
            return "the value contains a control character";
        if (ch == 0xFEFF)
            return "the value contains a byte order mark, which is invisible: type it again";
    }
    if (setting.limit && size > setting.limit) {
        return "the value has " + std::to_string(value.size()) + " characters; at most " +
               std::to_string(setting.limit / sizeof(WCHAR) - 1) + " are read";
    }
    if (IsNamed(setting, "KeyVault"))
        return VaultTemplateProblem(value);
    if ((IsNamed(setting, "TenantId") || IsNamed(setting, "ClientId")) && HasReserved(value))
        return "the value contains a character that is not allowed in an id";
    if (IsNamed(setting, "LogfilePath"))
        return FolderProblem(value);
    return "";
}

std::string NumberProblem(const Setting& setting, DWORD value)
{
    if (value <= setting.maximum)
        return "";
    return "the value must be a number from 0 to " + std::to_string(setting.maximum);
}

std::string TextWarning(const Setting& setting, WideView value)
{
    if (setting.kind == SettingKind::Secret && value.find_first_of(TEXT(" &+%=#")) != WideView::npos) {
        return "the secret contains a space or one of & + % = #, which the sign-in request does not escape: the "
               "directory will probably reject it; create another secret if sign-in is refused";
    }
    return "";
}

std::optional<DWORD> ParseNumber(const std::string& text)
{
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    uint32_t number = 0;
    const auto result = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != end || begin == end)
        return std::nullopt;
    return number;
}

std::string NumberMeaning(const Setting& setting, DWORD value)
{
    if (IsNamed(setting, "AuthenticationType")) {
        // The module reads the two low bits; the default is 1.
        switch (value ? value & 3 : 1) {
            case 1:
                return "managed identity";
            case 2:
                return "client credentials";
            case 3:
                return "client credentials, then managed identity";
            default:
                return "no sign-in method: every sign-in fails";
        }
    }
    if (IsNamed(setting, "DoDeletePurge"))
        return value ? "deleted keys can be recovered" : "deleted keys are purged too";
    if (IsNamed(setting, "CertificatesOrKeys"))
        return value ? "plain keys" : "keys as certificates";
    if (IsNamed(setting, "ExportableOption"))
        return value == 0   ? "exportable keys are refused"
               : value == 1 ? "exportable keys are accepted, without effect"
                            : "every export policy is refused";
    if (setting.kind == SettingKind::StateNumber && value)
        return "last certificate sync " + UtcText(int64_t{value} - 600, "%Y-%m-%d %H:%M:%S UTC");
    return "";
}

}  // namespace kelvaroctl
