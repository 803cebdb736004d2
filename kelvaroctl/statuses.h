// What the module's statuses are called and what they mean to an administrator.
#pragma once

#include <string>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

// What the tool was about when the module answered.
enum class Operation {
    OpenProvider,
    ReadProviderProperty,
    ListAlgorithms,
    ListKeys,
    OpenKey,
    ReadKeyProperty,
    ExportKey,
    Sign,
    Verify,
    Encrypt,
    Decrypt,
    CreateKey,
    ImportKey,
    SetLength,
    FinalizeKey,
    DeleteKey,
};

// The provider's own status of a listing that failed.
constexpr DWORD kListingFailed = 0x801B8002;

// "NTE_NOT_FOUND", or "unknown status".
std::string StatusName(SECURITY_STATUS status);
// "NTE_NOT_FOUND (0x80090011)"
std::string StatusText(SECURITY_STATUS status);

// subject: what the operation was done to, "" for the provider itself.
Failure StatusFailure(Operation operation, SECURITY_STATUS status, const std::string& subject);

}  // namespace kelvaroctl
