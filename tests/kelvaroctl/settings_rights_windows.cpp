#include <sddl.h>

#include <filesystem>
#include <stdexcept>

#include "platform/platform.h"
#include "tests/kelvaroctl/settings_rights.h"

// Gives an object the rights of a text; set(rights) says whether that worked.
template <class Set>
static void GiveRights(const WCHAR* text, Set set)
{
    PSECURITY_DESCRIPTOR rights = nullptr;
    const bool done =
        ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &rights, nullptr) && set(rights);
    LocalFree(rights);
    if (!done)
        throw std::runtime_error("the rights can't be set");
}

void LetEverybodyReadSettings(const std::string&)
{
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), 0, WRITE_DAC, &key);
    GiveRights(TEXT("D:P(A;CI;KA;;;SY)(A;CI;KA;;;BA)(A;CI;KR;;;BU)"), [=](PSECURITY_DESCRIPTOR rights) {
        return RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, rights) == ERROR_SUCCESS;
    });
    RegCloseKey(key);
}

void LetEverybodyWriteTo(const std::string& folder)
{
    GiveRights(TEXT("D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;WD)"), [&](PSECURITY_DESCRIPTOR rights) {
        return SetFileSecurityW(std::filesystem::u8path(folder).c_str(), DACL_SECURITY_INFORMATION, rights);
    });
}

std::string AccountToAllow()
{
    return "NETWORK SERVICE";
}
