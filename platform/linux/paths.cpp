#include "platform/linux/paths.h"

#include <stdlib.h>

#include <algorithm>

#include "platform/linux/account.h"
#include "platform/linux/text.h"

namespace {

constexpr char kDefaultRoot[] = "/var/lib/kelvaro";

// Empty when the variable is unset or empty. A privileged program ignores its caller's
// environment.
std::string DirectoryFrom(const char* variable)
{
    const char* value = secure_getenv(variable);
    std::string directory = value ? value : "";
    while (directory.size() > 1 && directory.back() == '/')
        directory.pop_back();
    return directory;
}

bool HasDrive(std::u16string_view name)
{
    return name.size() >= 2 && name[1] == u':';
}

}  // namespace

std::string RootDirectory()
{
    std::string root = DirectoryFrom("KELVARO_ROOT");
    if (root.empty())
        root = kDefaultRoot;
    return root;
}

std::string UserDirectory()
{
    std::string user = DirectoryFrom("KELVARO_USER_ROOT");
    if (!user.empty())
        return user;
    const std::string root = DirectoryFrom("KELVARO_ROOT");
    if (!root.empty())
        return root + "/user";
    const std::string home = DirectoryFrom("HOME");
    return (home.empty() ? CallerAccount().home : home) + "/.kelvaro";
}

std::string DriveDirectory()
{
    return RootDirectory() + "/drive_c";
}

bool IsOnDrive(LPCWSTR name)
{
    const std::u16string_view text = ViewOf(name);
    return HasDrive(text) && UpperCase(text[0]) == u'C';
}

std::string NativePath(LPCWSTR name)
{
    std::u16string_view text = ViewOf(name);
    if (HasDrive(text) && !IsOnDrive(name))
        return "";
    const bool onDrive = IsOnDrive(name);
    if (onDrive)
        text.remove_prefix(2);
    std::string path = ToUtf8(text);
    std::replace(path.begin(), path.end(), '\\', '/');
    if (!onDrive)
        return path;
    const bool divided = path.empty() || path.front() == '/';
    return DriveDirectory() + (divided ? "" : "/") + path;
}
