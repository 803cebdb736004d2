#include "register/security_windows.h"

#include <sddl.h>

#include "platform/ordinary_users_windows.h"

namespace kelvaro_register {

void CheckError(const std::string& step, DWORD error)
{
    if (error == ERROR_SUCCESS)
        return;
    throw RefusedStep(step + ": error " + std::to_string(error) +
                      (error == ERROR_ACCESS_DENIED ? ": run this as an administrator" : ""));
}

Access::Access(const WCHAR* text)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor, nullptr))
        Check("ConvertStringSecurityDescriptorToSecurityDescriptor", GetLastError());
    descriptor_.reset(descriptor);
    attributes_ = {sizeof(attributes_), descriptor, FALSE};
}

namespace {
// An object's owner and access list.
struct Found {
    LocalBlock descriptor;
    PSID owner = nullptr;
    PACL list = nullptr;

    Found(HANDLE object, SE_OBJECT_TYPE type, const std::string& name)
    {
        PSECURITY_DESCRIPTOR found = nullptr;
        Check("reading the access to " + name,
              GetSecurityInfo(object, type, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, nullptr,
                              &list, nullptr, &found));
        descriptor.reset(found);
    }
};

bool IsAdministrator(PSID account)
{
    for (const WCHAR* const text :
         {TEXT("S-1-5-18"), TEXT("S-1-5-32-544"),
          TEXT("S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464")}) {  // TrustedInstaller
        PSID sid = nullptr;
        ConvertStringSidToSidW(text, &sid);
        const LocalBlock owned(sid);
        if (sid && account && EqualSid(sid, account))
            return true;
    }
    return false;
}
}  // namespace

void Access::Impose(HANDLE object, SE_OBJECT_TYPE type, const std::string& name) const
{
    const Found found(object, type, name);
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (GetSecurityDescriptorControl(found.descriptor.get(), &control, &revision) && (control & SE_DACL_PROTECTED))
        return;
    PSID owner = nullptr;
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL ignored = FALSE;
    GetSecurityDescriptorOwner(descriptor_.get(), &owner, &ignored);
    GetSecurityDescriptorDacl(descriptor_.get(), &present, &list, &ignored);
    Check("closing " + name,
          SetSecurityInfo(object, type,
                          OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                          owner, nullptr, list, nullptr));
}

bool IsOwnedByAdministrators(HANDLE object, SE_OBJECT_TYPE type, const std::string& name)
{
    const Found found(object, type, name);
    const CurrentUser user;
    return IsAdministrator(found.owner) || (user.sid() && EqualSid(user.sid(), found.owner));
}

bool IsOpenToUsers(HANDLE object, SE_OBJECT_TYPE type, ACCESS_MASK rights, const std::string& name)
{
    const Found found(object, type, name);
    return GrantsToOrdinaryUsers(found.list, rights | GENERIC_READ | GENERIC_WRITE);
}

}  // namespace kelvaro_register
