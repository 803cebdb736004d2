#include "kelvaroctl/doctor/surroundings.h"

#include <memory>
#include <sstream>

#include "kelvaroctl/setting_table.h"
#include "kelvaroctl/text.h"
#include "platform/product.h"

namespace kelvaroctl {

namespace {

// The first entry of "http=a:80;https=b:81", or of "a:80" for both, that fits.
std::string ProxyOf(const std::string& list, bool secure)
{
    const std::string wanted = secure ? "https=" : "http=";
    std::istringstream entries(list);
    for (std::string entry; std::getline(entries, entry, ';');) {
        if (entry.compare(0, wanted.size(), wanted) == 0)
            return entry.substr(wanted.size());
        if (!entry.empty() && entry.find('=') == std::string::npos)
            return entry;
    }
    return "";
}

bool Fits(const std::string& pattern, const std::string& host)
{
    if (EqualIgnoringCase(pattern, "<local>"))
        return host.find('.') == std::string::npos;
    if (pattern.empty() || pattern[0] != '*')
        return EqualIgnoringCase(pattern, host);
    const std::string end = pattern.substr(1);
    return host.size() >= end.size() && EqualIgnoringCase(host.substr(host.size() - end.size()), end);
}

bool IsExempt(std::string list, const std::string& host)
{
    for (char& ch : list)
        ch = ch == ';' || ch == '\t' ? ' ' : ch;
    std::istringstream patterns(list);
    for (std::string pattern; patterns >> pattern;) {
        if (Fits(pattern, host))
            return true;
    }
    return false;
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
    const LONG error = RegQueryValueExW(opened, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    RegCloseKey(opened);
    if (error != ERROR_SUCCESS)
        return "";
    if (type == REG_DWORD && size == sizeof(value.number))
        return std::to_string(value.number);
    return type == REG_SZ || type == REG_EXPAND_SZ ? ToNarrow(value.text) : "";
}

// The settings of one name that programs of this kind and of the other kind (32 or 64 bits) read differ.
std::string DifferenceIn(HKEY hive, const Setting& setting)
{
    const REGSAM other = sizeof(void*) == 8 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
    const std::string mine = ValueOf(hive, kSettingsKey, ToWide(setting.name), 0);
    const std::string theirs = ValueOf(hive, kSettingsKey, ToWide(setting.name), other);
    if (mine == theirs)
        return "";
    if (theirs.empty())
        return std::string("no ") + setting.name;
    // The same secret is sealed differently each time.
    if (setting.kind == SettingKind::Secret || setting.kind == SettingKind::ProtectedSecret)
        return mine.empty() ? std::string("a ") + setting.name : "";
    return std::string(setting.name) + "=" + theirs;
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

std::optional<bool> IsListedWithRouter()
{
    DWORD count = 0;
    NCryptProviderName* names = nullptr;
    if (NCryptEnumStorageProviders(&count, &names, 0) != ERROR_SUCCESS)
        return false;
    bool listed = false;
    for (DWORD at = 0; at < count; ++at)
        listed = listed || WideView(names[at].pszName) == kProviderName;
    NCryptFreeBuffer(names);
    return listed;
}

std::string EventSourceProblem(const std::string& source)
{
    const std::string key = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\" + source;
    if (source == "Application" || !ValueOf(HKEY_LOCAL_MACHINE, ToWide(key), TEXT("EventMessageFile"), 0).empty())
        return "";
    return "the event source " + source + " isn't registered";
}

std::string RegisteredImage()
{
    // Not declared by every compiler's header.
    using Query = NTSTATUS(WINAPI*)(LPCWSTR, ULONG, ULONG, ULONG*, PCRYPT_PROVIDER_REG*);
    const HMODULE bcrypt = GetModuleHandleW(TEXT("bcrypt.dll"));
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void (*)()>(bcrypt ? GetProcAddress(bcrypt, "BCryptQueryProviderRegistration") : nullptr));
    ULONG size = 0;
    PCRYPT_PROVIDER_REG found = nullptr;
    if (!query || query(kProviderName, CRYPT_UM, NCRYPT_KEY_STORAGE_INTERFACE, &size, &found) != 0 || !found)
        return "";
    const std::string image = found->pUM && found->pUM->pszImage ? ToNarrow(found->pUM->pszImage) : "";
    BCryptFreeBuffer(found);
    return image;
}

std::string OtherViewDifference(bool machine)
{
    std::string differences;
    for (const Setting* setting = kSettings; setting->name; ++setting) {
        if (IsState(*setting) && setting->kind != SettingKind::ProtectedSecret)
            continue;
        const std::string difference = DifferenceIn(machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, *setting);
        if (!difference.empty())
            differences += (differences.empty() ? "" : ", ") + difference;
    }
    if (differences.empty())
        return "";
    return std::string(sizeof(void*) == 8 ? "32" : "64") + "-bit programs have " + differences;
}

}  // namespace kelvaroctl
