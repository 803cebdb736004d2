#include "platform/platform.h"
// platform.h comes first.
#include <sddl.h>

#include <stdexcept>

#include "tests/provider/read_only_settings.h"

static void Protect(const WCHAR* access)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    HKEY key = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(access, SDDL_REVISION_1, &descriptor, nullptr) ||
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), 0, WRITE_DAC, &key) != ERROR_SUCCESS ||
        RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, descriptor) != ERROR_SUCCESS)
        throw std::runtime_error("the settings' access cannot be changed");
    RegCloseKey(key);
    LocalFree(descriptor);
}

// Setting a value is denied to everyone.
ReadOnlySettings::ReadOnlySettings(const TestRoot&)
{
    Protect(TEXT("D:(D;;0x2;;;WD)(A;;KA;;;WD)"));
}

ReadOnlySettings::~ReadOnlySettings()
{
    Protect(TEXT("D:(A;;KA;;;WD)"));
}
