#include "kelvaroctl/settings_access.h"

#include "kelvaroctl/failure.h"
#include "kelvaroctl/owner.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/settings_hive.h"
#include "platform/ordinary_users_windows.h"

#include <sddl.h>

namespace kelvaroctl {

namespace {

constexpr DWORD kReadOrChange = KEY_QUERY_VALUE | KEY_SET_VALUE | WRITE_DAC | WRITE_OWNER | GENERIC_READ |
                                GENERIC_WRITE | GENERIC_ALL | MAXIMUM_ALLOWED;

[[noreturn]] void ThrowFailure(const std::string& attempt, LONG error)
{
    throw ConfigurationFailure("cannot " + attempt + " " + SettingsPlace(HKEY_LOCAL_MACHINE) + ": " +
                               (error == ERROR_ACCESS_DENIED ? "access denied; run the command as an administrator"
                                                             : "error " + std::to_string(error)));
}

// NULL if there is none.
RegistryKeyHandle OpenKey(REGSAM rights)
{
    HKEY key = nullptr;
    const LONG error = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, rights, &key);
    if (error == ERROR_SUCCESS)
        return RegistryKeyHandle(key);
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
        ThrowFailure("open", error);
    return nullptr;
}

std::string SidText(PSID sid)
{
    WCHAR* text = nullptr;
    if (!ConvertSidToStringSidW(sid, &text))
        return "an unknown account";
    const LocalBlock owned(text);
    return ToNarrow(text);
}

std::string AccountName(PSID sid)
{
    WCHAR name[256];
    WCHAR domain[256];
    DWORD nameSize = 256;
    DWORD domainSize = 256;
    SID_NAME_USE use;
    if (!LookupAccountSidW(nullptr, sid, name, &nameSize, domain, &domainSize, &use))
        return SidText(sid);
    return domain[0] ? ToNarrow(domain) + "\\" + ToNarrow(name) : ToNarrow(name);
}

// The SID of an account, given by its name or as a SID.
std::string FindSid(const std::string& account)
{
    const WideText wide = ToWide(account);
    PSID given = nullptr;
    if (ConvertStringSidToSidW(wide.c_str(), &given)) {
        const LocalBlock owned(given);
        return SidText(given);
    }
    std::vector<ULONGLONG> sid(SECURITY_MAX_SID_SIZE / sizeof(ULONGLONG) + 1);
    DWORD size = static_cast<DWORD>(sid.size() * sizeof(ULONGLONG));
    WCHAR domain[256];
    DWORD domainSize = 256;
    SID_NAME_USE use;
    if (!LookupAccountNameW(nullptr, wide.c_str(), sid.data(), &size, domain, &domainSize, &use))
        throw UsageFailure("there is no account or group '" + account + "'");
    return SidText(sid.data());
}

void AddReader(const ACCESS_ALLOWED_ACE& entry, SettingsAccess* access)
{
    const BYTE type = entry.Header.AceType;
    if ((type != ACCESS_ALLOWED_ACE_TYPE && type != ACCESS_ALLOWED_CALLBACK_ACE_TYPE) ||
        (entry.Header.AceFlags & INHERIT_ONLY_ACE) || !(entry.Mask & kReadOrChange))
        return;
    const PSID sid = const_cast<DWORD*>(&entry.SidStart);
    access->readers.push_back(AccountName(sid));
    access->open = access->open || IsOrdinaryUser(sid);
}

}  // namespace

SettingsAccess ReadSettingsAccess()
{
    const RegistryKeyHandle key = OpenKey(READ_CONTROL);
    SettingsAccess access;
    if (!key) {
        // A key created later inherits the rights of Software, which all users can read.
        access.open = true;
        return access;
    }
    DWORD size = 0;
    LONG error = RegGetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, nullptr, &size);
    std::vector<ULONGLONG> descriptor(size / sizeof(ULONGLONG) + 1);
    if (error == ERROR_INSUFFICIENT_BUFFER)
        error = RegGetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, descriptor.data(), &size);
    if (error != ERROR_SUCCESS)
        ThrowFailure("read the rights to", error);
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL list = nullptr;
    if (!GetSecurityDescriptorDacl(descriptor.data(), &present, &list, &defaulted))
        ThrowFailure("read the rights to", static_cast<LONG>(GetLastError()));
    if (!present || !list) {
        access.readers.push_back("everyone");
        access.open = true;
        return access;
    }
    for (DWORD index = 0; index < list->AceCount; ++index) {
        void* entry = nullptr;
        if (GetAce(list, index, &entry))
            AddReader(*static_cast<const ACCESS_ALLOWED_ACE*>(entry), &access);
    }
    return access;
}

void ProtectSettings(const std::vector<std::string>& accounts)
{
    // Nothing is inherited; SYSTEM and administrators have full control, the accounts can read.
    std::string rights = "D:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)";
    for (const std::string& account : accounts)
        rights += "(A;CI;KR;;;" + FindSid(account) + ")";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(ToWide(rights).c_str(), SDDL_REVISION_1, &descriptor,
                                                              nullptr))
        ThrowFailure("make the rights to", static_cast<LONG>(GetLastError()));
    const LocalBlock owned(descriptor);
    SettingsHive(HKEY_LOCAL_MACHINE).Create();
    const RegistryKeyHandle key = OpenKey(READ_CONTROL | WRITE_DAC);
    const LONG error =
        RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, descriptor);
    if (error != ERROR_SUCCESS)
        ThrowFailure("set the rights to", error);
}

}  // namespace kelvaroctl
