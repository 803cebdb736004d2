#include "kelvaroctl/file_access.h"

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/owner.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/text.h"
#include "platform/ordinary_users_windows.h"

namespace kelvaroctl {

namespace {
[[noreturn]] void ThrowAccessFailure(const std::string& attempt, const std::string& name, DWORD error)
{
    throw UsageFailure("cannot " + attempt + " " + name + ": " + LoaderMessage(error));
}

// Full control for the system, administrators and the user, nothing for others.
LocalBlock AccessOfOwner(PSID user)
{
    WCHAR* text = nullptr;
    if (!user || !ConvertSidToStringSidW(user, &text))
        return nullptr;
    const LocalBlock owned(text);
    const WideText rights = TEXT("D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;") + WideText(text) + TEXT(")");
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &descriptor, nullptr);
    return LocalBlock(descriptor);
}

// Returns whether it is a file on a disk.
bool CreateWith(const std::string& name, PSECURITY_DESCRIPTOR access)
{
    SECURITY_ATTRIBUTES attributes = {sizeof(attributes), access, FALSE};
    const HANDLE file =
        CreateFileW(ToWide(name).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    &attributes, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        ThrowAccessFailure("write", name, GetLastError());
    const bool onDisk = GetFileType(file) == FILE_TYPE_DISK;
    CloseHandle(file);
    return onDisk;
}

void CheckOwner(const std::string& name, PSID user)
{
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetNamedSecurityInfoW(ToWide(name).c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                                              nullptr, nullptr, nullptr, &descriptor);
    const LocalBlock owned(descriptor);
    if (error != ERROR_SUCCESS)
        ThrowAccessFailure("read the owner of", name, error);
    if (!EqualSid(owner, user) && !IsWellKnownSid(owner, WinBuiltinAdministratorsSid) &&
        !IsWellKnownSid(owner, WinLocalSystemSid))
        throw UsageFailure(name + " belongs to another user, who could read the result: choose another file");
}

// NULL if it cannot be read.
LocalBlock AccessTo(const std::filesystem::path& folder, PACL* list)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, list, nullptr,
                          &descriptor);
    return LocalBlock(descriptor);
}

bool IsOpen(const std::filesystem::path& folder, ACCESS_MASK rights)
{
    PACL list = nullptr;
    const LocalBlock descriptor = AccessTo(folder, &list);
    return descriptor && GrantsToOrdinaryUsers(list, rights);
}
}  // namespace

void CreateForOwner(const std::string& name)
{
    const CurrentUser user;
    const LocalBlock access = AccessOfOwner(user.sid());
    if (!access)
        ThrowAccessFailure("protect", name, GetLastError());
    if (!CreateWith(name, access.get()))
        return;
    CheckOwner(name, user.sid());
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    GetSecurityDescriptorDacl(access.get(), &present, &list, &defaulted);
    WideText path = ToWide(name);
    // Also for a new file: a volume without access lists is found here.
    const DWORD error = SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT,
                                              DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr,
                                              nullptr, list, nullptr);
    if (error != ERROR_SUCCESS)
        ThrowAccessFailure("protect", name, error);
}

bool OthersCanWrite(const std::string& folder)
{
    std::filesystem::path path = std::filesystem::u8path(folder);
    if (IsOpen(path, FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY | FILE_DELETE_CHILD | DELETE | GENERIC_WRITE))
        return true;
    while (path.has_relative_path()) {
        path = path.parent_path();
        if (IsOpen(path, FILE_DELETE_CHILD))
            return true;
    }
    return false;
}

}  // namespace kelvaroctl
