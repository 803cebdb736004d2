// Who may use a registry key or a folder.
#pragma once

#include <aclapi.h>

#include <stdexcept>
#include <string>

#include "platform/owner.h"
#include "platform/platform.h"

namespace kelvaro_register {

// A step that Windows refused, or that would be unsafe. The text says which and why, in UTF-8.
class RefusedStep : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws RefusedStep unless `error`, a DWORD or a LONG, is ERROR_SUCCESS.
void CheckError(const std::string& step, DWORD error);
template <typename Error>
void Check(const std::string& step, Error error)
{
    CheckError(step, static_cast<DWORD>(error));
}

using LocalBlock = Owner<void, LocalFree>;

// An owner and an access list without inheritance, from their SDDL text.
class Access {
  public:
    explicit Access(const WCHAR* text);

    // To create an object with it.
    SECURITY_ATTRIBUTES* attributes() { return &attributes_; }
    // For an existing object. An access list that an administrator protected from inheritance stays as it is.
    void Impose(HANDLE object, SE_OBJECT_TYPE type, const std::string& name) const;

  private:
    LocalBlock descriptor_;
    SECURITY_ATTRIBUTES attributes_ = {};
};

// Whether the owner is the system, TrustedInstaller, the administrators or the caller.
bool IsOwnedByAdministrators(HANDLE object, SE_OBJECT_TYPE type, const std::string& name);

// Whether ordinary users have any of `rights`, a generic right or one to change the access.
bool IsOpenToUsers(HANDLE object, SE_OBJECT_TYPE type, ACCESS_MASK rights, const std::string& name);

}  // namespace kelvaro_register
