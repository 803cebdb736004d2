#include <sddl.h>

#include <filesystem>
#include <stdexcept>

#include "platform/platform.h"
#include "tests/kelvaroctl/settings_rights.h"

void LetEverybodyReadSettings(const std::string&)
{
    HKEY key = nullptr;
    PSECURITY_DESCRIPTOR rights = nullptr;
    const WCHAR users[] = TEXT("D:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)");
    const bool done =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), 0, WRITE_DAC, &key) == ERROR_SUCCESS &&
        ConvertStringSecurityDescriptorToSecurityDescriptorW(users, SDDL_REVISION_1, &rights, nullptr) &&
        RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, rights) == ERROR_SUCCESS;
    LocalFree(rights);
    RegCloseKey(key);
    if (!done)
        throw std::runtime_error("the rights to the settings cannot be set");
}

void LetEverybodyWriteTo(const std::string& folder)
{
    PSECURITY_DESCRIPTOR rights = nullptr;
    const bool done =
        ConvertStringSecurityDescriptorToSecurityDescriptorW(
            TEXT("D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;WD)"), SDDL_REVISION_1, &rights, nullptr) &&
        SetFileSecurityW(std::filesystem::u8path(folder).c_str(), DACL_SECURITY_INFORMATION, rights);
    LocalFree(rights);
    if (!done)
        throw std::runtime_error("the rights to the folder cannot be set");
}

std::string AccountToAllow()
{
    return "NETWORK SERVICE";
}
