#include "kelvaroctl/doctor/surroundings.h"

#include <algorithm>

#include "kelvaroctl/doctor/doctor.h"
#include "kelvaroctl/owner.h"
#include "kelvaroctl/setting_table.h"
#include "kelvaroctl/text.h"
#include "platform/product.h"

namespace kelvaroctl {

namespace {

// The first entry of "http=a:80;https=b:81", or of "a:80" for both, that fits.
std::string ProxyOf(const std::string& list, bool secure)
{
    const std::string wanted = secure ? "https=" : "http=";
    for (const std::string_view entry : Split(list, ";")) {
        if (entry.substr(0, wanted.size()) == wanted)
            return std::string(entry.substr(wanted.size()));
        if (!entry.empty() && entry.find('=') == std::string_view::npos)
            return std::string(entry);
    }
    return "";
}

bool Fits(std::string_view pattern, std::string_view host)
{
    if (EqualIgnoringCase(pattern, "<local>"))
        return host.find('.') == std::string::npos;
    if (pattern.empty() || pattern[0] != '*')
        return EqualIgnoringCase(pattern, host);
    const std::string_view end = pattern.substr(1);
    return host.size() >= end.size() && EqualIgnoringCase(host.substr(host.size() - end.size()), end);
}

bool IsExempt(const std::string& list, const std::string& host)
{
    const std::vector<std::string_view> patterns = Split(list, "; \t\r\n");
    return std::any_of(patterns.begin(), patterns.end(), [&](std::string_view pattern) { return Fits(pattern, host); });
}

std::string Taken(LPWSTR text)
{
    const std::string taken = text ? ToNarrow(text) : "";
    GlobalFree(text);
    return taken;
}

// A value's text or number as a text; empty if there is none.
std::string ValueOf(HKEY hive, const WideText& key, const WideText& name, REGSAM view)
{
    HKEY opened = nullptr;
    if (RegOpenKeyExW(hive, key.c_str(), 0, KEY_QUERY_VALUE | view, &opened) != ERROR_SUCCESS)
        return "";
    union {
        WCHAR text[4096];
        DWORD number;
    } value = {};
    DWORD size = sizeof(value.text) - sizeof(WCHAR);
    DWORD type = 0;
    const RegistryKeyHandle owned(opened);
    if (RegQueryValueExW(opened, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) != ERROR_SUCCESS)
        return "";
    if (type == REG_DWORD && size == sizeof(value.number))
        return std::to_string(value.number);
    return type == REG_SZ || type == REG_EXPAND_SZ ? ToNarrow(value.text) : "";
}

// Empty if both have the same.
std::string Difference(const Setting& setting, const std::string& mine, const std::string& theirs)
{
    const std::string name = setting.name;
    if (mine == theirs)
        return "";
    if (theirs.empty())
        return "no " + name;
    // The same secret is protected differently each time.
    if (setting.kind == SettingKind::Secret || setting.kind == SettingKind::ProtectedSecret)
        return mine.empty() ? "a " + name : "";
    return name + "=" + theirs;
}

}  // namespace

std::string ProxyFor(const std::string& host, bool secure)
{
    WINHTTP_PROXY_INFO info = {};
    if (!WinHttpGetDefaultProxyConfiguration(&info))
        return "";
    const std::string list = Taken(info.lpszProxy);
    const std::string bypass = Taken(info.lpszProxyBypass);
    return info.dwAccessType != WINHTTP_ACCESS_TYPE_NAMED_PROXY || IsExempt(bypass, host) ? "" : ProxyOf(list, secure);
}

std::optional<std::string> RegisteredImage()
{
    // Where BCryptRegisterProvider stores it. Not every compiler's headers declare the call that reads it.
    const WideText key = TEXT("SYSTEM\\CurrentControlSet\\Control\\Cryptography\\Providers\\");
    return ValueOf(HKEY_LOCAL_MACHINE, key + kProviderName + TEXT("\\UM"), TEXT("Image"), 0);
}

std::string EventSourceProblem(const std::string& source)
{
    const std::string key = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + source;
    if (source == "Application" || !ValueOf(HKEY_LOCAL_MACHINE, ToWide(key), TEXT("EventMessageFile"), 0).empty())
        return "";
    return "the event source " + source + " isn't registered";
}

std::string OtherViewDifference(bool machine)
{
    const bool wide = sizeof(void*) == 8;
    const HKEY hive = machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    bool any = false;
    std::string differences;
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if (IsState(*setting) && setting->kind != SettingKind::ProtectedSecret)
            continue;
        const WideText name = ToWide(setting->name);
        const std::string theirs = ValueOf(hive, kSettingsKey, name, wide ? KEY_WOW64_32KEY : KEY_WOW64_64KEY);
        any = any || !theirs.empty();
        AddPart(&differences, Difference(*setting, ValueOf(hive, kSettingsKey, name, 0), theirs), ", ");
    }
    // Usually only one kind of program uses the provider.
    return any && !differences.empty() ? std::string(wide ? "32" : "64") + "-bit programs have " + differences : "";
}

}  // namespace kelvaroctl
