#include <errno.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "platform/linux/account.h"
#include "platform/linux/outcome.h"
#include "platform/linux/text.h"

namespace {

// The fully qualified name of `host` in /etc/hosts, or an empty string.
std::string NameFromHostsFile(const std::string& host)
{
    std::ifstream lines("/etc/hosts");
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string address;
        words >> address;
        const std::vector<std::string> names{std::istream_iterator<std::string>(words), {}};
        if (std::find(names.begin(), names.end(), host) == names.end())
            continue;
        const auto full = std::find_if(names.begin(), names.end(), [&host](const std::string& name) {
            return name.compare(0, host.size() + 1, host + ".") == 0;
        });
        if (full != names.end())
            return *full;
    }
    return "";
}

// Host and domain, or just the host if the domain is unknown.
std::string QualifiedName()
{
    struct utsname names;
    if (uname(&names) != 0)
        return "";
    std::string host = names.nodename;
    if (host.find('.') != std::string::npos)
        return host;
    const std::string domain = names.domainname;
    if (!domain.empty() && domain != "(none)")
        return host + "." + domain;
    const std::string full = NameFromHostsFile(host);
    return full.empty() ? host : full;
}

void CopyText(const std::u16string& text, LPWSTR buffer)
{
    memcpy(buffer, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
}

}  // namespace

Account CallerAccount()
{
    const uid_t user = geteuid();
    std::vector<char> room(16384);
    struct passwd entry;
    struct passwd* found = nullptr;
    while (getpwuid_r(user, &entry, room.data(), room.size(), &found) == ERANGE && room.size() < (1u << 20))
        room.resize(room.size() * 2);
    if (!found)
        return {std::to_string(user), "/"};
    const std::string home = entry.pw_dir ? entry.pw_dir : "";
    return {entry.pw_name, home.empty() ? "/" : home};
}

std::u16string ProgramPath()
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    Check(error ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS);
    return ToUtf16(path.native());
}

BOOL WINAPI GetUserNameW(LPWSTR buffer, LPDWORD size)
{
    return Succeeds([&]() -> LONG {
        const std::u16string name = ToUtf16(CallerAccount().name);
        const DWORD room = *size;
        *size = static_cast<DWORD>(name.size() + 1);
        if (!buffer || room < *size)
            return ERROR_INSUFFICIENT_BUFFER;
        CopyText(name, buffer);
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR buffer, LPDWORD size)
{
    return Succeeds([&]() -> LONG {
        if (format != ComputerNameDnsFullyQualified)
            return ERROR_INVALID_PARAMETER;
        const std::u16string name = ToUtf16(QualifiedName());
        const DWORD length = static_cast<DWORD>(name.size());
        const DWORD room = *size;
        if (!buffer || room <= length) {
            *size = length + 1;
            return ERROR_MORE_DATA;
        }
        CopyText(name, buffer);
        *size = length;
        return ERROR_SUCCESS;
    });
}

HANDLE WINAPI GetCurrentProcess()
{
    return INVALID_HANDLE_VALUE;
}

DWORD WINAPI K32GetProcessImageFileNameW(HANDLE process, LPWSTR buffer, DWORD size)
{
    return ResultOf([&] {
        if (process != GetCurrentProcess())
            throw Failure(ERROR_INVALID_HANDLE);
        const std::u16string name = ProgramPath();
        if (!buffer || size <= name.size())
            throw Failure(ERROR_INSUFFICIENT_BUFFER);
        CopyText(name, buffer);
        return static_cast<DWORD>(name.size());
    });
}

DWORD WINAPI GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size)
{
    return ResultOf([&] {
        // A privileged program ignores its caller's environment.
        const char* value = secure_getenv(ToUtf8(ViewOf(name)).c_str());
        if (!value)
            throw Failure(ERROR_ENVVAR_NOT_FOUND);
        const std::u16string text = ToUtf16(value);
        const DWORD length = static_cast<DWORD>(text.size());
        // The last error distinguishes an empty value from a missing one.
        SetLastError(ERROR_SUCCESS);
        if (!buffer || size <= length)
            return length + 1;
        CopyText(text, buffer);
        return length;
    });
}
