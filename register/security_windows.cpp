#include "register/security_windows.h"

#include <sddl.h>

#include "platform/ordinary_users_windows.h"

namespace kelvaro_register {

void Check(const std::string& step, DWORD error)
{
    if (error == ERROR_SUCCESS)
        return;
    throw RefusedStep(step + ": error " + std::to_string(error) +
                      (error == ERROR_ACCESS_DENIED ? ": run this as an administrator" : ""));
}

Access::Access(const WCHAR* text)
{
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor_, nullptr))
        Check("ConvertStringSecurityDescriptorToSecurityDescriptor", GetLastError());
    attributes_ = {sizeof(attributes_), descriptor_, FALSE};
}

namespace {
// An object's owner and access list.
struct Found {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    PSID owner = nullptr;
    PACL list = nullptr;

    Found(HANDLE object, SE_OBJECT_TYPE type, const std::string& name)
    {
        Check("reading the access to " + name,
              GetSecurityInfo(object, type, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner, nullptr,
                              &list, nullptr, &descriptor));
    }
    ~Found() { LocalFree(descriptor); }
    Found(const Found&) = delete;
    Found& operator=(const Found&) = delete;
};

class Sid {
  public:
    explicit Sid(const WCHAR* text) { ConvertStringSidToSidW(text, &sid_); }
    ~Sid() { LocalFree(sid_); }
    Sid(const Sid&) = delete;
    Sid& operator=(const Sid&) = delete;

    bool Is(PSID other) const { return sid_ && other && EqualSid(sid_, other); }

  private:
    PSID sid_ = nullptr;
};
}  // namespace

static bool IsOneOf(PSID sid, std::initializer_list<const WCHAR*> texts)
{
    for (const WCHAR* const text : texts) {
        if (Sid(text).Is(sid))
            return true;
    }
    return false;
}

void Access::Impose(HANDLE object, SE_OBJECT_TYPE type, const std::string& name) const
{
    const Found found(object, type, name);
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (GetSecurityDescriptorControl(found.descriptor, &control, &revision) && (control & SE_DACL_PROTECTED))
        return;
    PSID owner = nullptr;
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL ignored = FALSE;
    GetSecurityDescriptorOwner(descriptor_, &owner, &ignored);
    GetSecurityDescriptorDacl(descriptor_, &present, &list, &ignored);
    Check("closing " + name,
          SetSecurityInfo(object, type,
                          OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                          owner, nullptr, list, nullptr));
}

static bool IsCaller(PSID sid)
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return false;
    alignas(TOKEN_USER) BYTE user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    const bool known = GetTokenInformation(token, TokenUser, user, sizeof(user), &size);
    CloseHandle(token);
    return known && EqualSid(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, sid);
}

bool IsOwnedByAdministrators(HANDLE object, SE_OBJECT_TYPE type, const std::string& name)
{
    const Found found(object, type, name);
    static const WCHAR kTrustedInstaller[] = TEXT("S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464");
    return IsOneOf(found.owner, {TEXT("S-1-5-18"), TEXT("S-1-5-32-544"), kTrustedInstaller}) || IsCaller(found.owner);
}

bool IsOpenToUsers(HANDLE object, SE_OBJECT_TYPE type, ACCESS_MASK rights, const std::string& name)
{
    const Found found(object, type, name);
    return GrantsToOrdinaryUsers(found.list, rights | GENERIC_READ | GENERIC_WRITE);
}

}  // namespace kelvaro_register
