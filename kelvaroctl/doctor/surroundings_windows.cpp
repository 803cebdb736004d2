#include "kelvaroctl/doctor/surroundings.h"

#include <memory>
#include <sstream>

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

// The text of a value; empty if there is none.
std::string ValueOf(const WideText& key, const WCHAR* name, REGSAM view)
{
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE | view, &opened) != ERROR_SUCCESS)
        return "";
    WCHAR text[1024] = {};
    DWORD size = sizeof(text) - sizeof(WCHAR);
    DWORD type = 0;
    const LONG error = RegQueryValueExW(opened, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
    RegCloseKey(opened);
    return error == ERROR_SUCCESS && (type == REG_SZ || type == REG_EXPAND_SZ) ? ToNarrow(text) : "";
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
    if (source == "Application" || !ValueOf(ToWide(key), TEXT("EventMessageFile"), 0).empty())
        return "";
    return "the event source " + source + " isn't registered";
}

std::string OtherViewDifference()
{
    const REGSAM other = sizeof(void*) == 8 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
    const std::string mine = ValueOf(kSettingsKey, TEXT("KeyVault"), 0);
    const std::string theirs = ValueOf(kSettingsKey, TEXT("KeyVault"), other);
    if (mine == theirs)
        return "";
    return std::string(sizeof(void*) == 8 ? "32" : "64") + "-bit programs have " +
           (theirs.empty() ? "no KeyVault" : "KeyVault " + theirs);
}

}  // namespace kelvaroctl
