#include "register/security_windows.h"

#include <sddl.h>

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

// Groups of ordinary users.
static constexpr std::initializer_list<const WCHAR*> kOrdinary = {
    TEXT("S-1-1-0"),       // Everyone
    TEXT("S-1-2-0"),       // local accounts
    TEXT("S-1-5-2"),       // network
    TEXT("S-1-5-3"),       // batch
    TEXT("S-1-5-4"),       // interactive
    TEXT("S-1-5-7"),       // anonymous
    TEXT("S-1-5-11"),      // authenticated users
    TEXT("S-1-5-32-545"),  // Users
    TEXT("S-1-5-32-546"),  // Guests
    TEXT("S-1-5-32-547"),  // Power Users
    TEXT("S-1-15-2-1"),    // all application packages
};

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
    // Without an access list, everybody has access.
    if (!found.list)
        return true;
    for (DWORD at = 0; at < found.list->AceCount; ++at) {
        void* entry = nullptr;
        if (!GetAce(found.list, at, &entry))
            continue;
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE ||
            !(allowed->Mask & (rights | GENERIC_ALL | GENERIC_READ)))
            continue;
        if (IsOneOf(&allowed->SidStart, kOrdinary))
            return true;
    }
    return false;
}

}  // namespace kelvaro_register
