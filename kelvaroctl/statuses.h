// Names of the module's statuses and what they mean to an administrator.
#pragma once

#include <string>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

// What the tool asked the module to do.
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

// The provider's own status for a key listing that failed.
constexpr DWORD kListingFailed = 0x801B8002;

// "NTE_NOT_FOUND", or "unknown status".
std::string StatusName(SECURITY_STATUS status);
// "NTE_NOT_FOUND (0x80090011)"
std::string StatusText(SECURITY_STATUS status);

// subject: the key or property concerned, "" for the provider itself.
Failure StatusFailure(Operation operation, SECURITY_STATUS status, const std::string& subject);

// For an answer that isn't the service's, such as the page of a proxy. attempt: "open the key 'k'".
constexpr char kForeignAnswer[] = "foreign_answer";  // its code
Failure ForeignAnswerFailure(const std::string& attempt);

}  // namespace kelvaroctl
