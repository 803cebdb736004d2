#include "kelvaroctl/statuses.h"

#include <iterator>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

namespace {
struct StatusRow {
    SECURITY_STATUS status;
    const char* name;
    ExitCode exit;
    const char* meaning;
};

#define STATUS(name) name, #name
constexpr StatusRow kStatuses[] = {
    {STATUS(NTE_BAD_KEY), ExitCode::Usage, "the key material is malformed"},
    {STATUS(NTE_BAD_DATA), ExitCode::Usage, "the data is malformed"},
    {STATUS(NTE_BAD_SIGNATURE), ExitCode::Negative, "the signature does not match this key and this data"},
    {STATUS(NTE_BAD_FLAGS), ExitCode::Internal, "the module does not accept a flag of this call"},
    {STATUS(NTE_BAD_KEY_STATE), ExitCode::Usage, "the key has not been finalized"},
    {STATUS(NTE_NO_MEMORY), ExitCode::Internal, "the machine is out of memory"},
    {STATUS(NTE_EXISTS), ExitCode::Usage, "a key of this name already exists"},
    {STATUS(NTE_PERM), ExitCode::Usage, "the key's usage does not allow it"},
    {STATUS(NTE_NOT_FOUND), ExitCode::NotFound, "not found"},
    {STATUS(NTE_FAIL), ExitCode::Refused, "the vault refused the request, or it could not be reached"},
    {STATUS(NTE_INVALID_HANDLE), ExitCode::Internal, "the module does not know the handle"},
    {STATUS(NTE_INVALID_PARAMETER), ExitCode::Internal, "the module does not accept an argument of this call"},
    {STATUS(NTE_BUFFER_TOO_SMALL), ExitCode::Internal, "the answer is larger than announced"},
    {STATUS(NTE_NOT_SUPPORTED), ExitCode::Usage, "the provider does not offer this"},
    {STATUS(NTE_NO_MORE_ITEMS), ExitCode::Internal, "there are no more items"},
    {STATUS(NTE_INTERNAL_ERROR), ExitCode::Internal, "the module failed"},
    {STATUS(SEC_E_LOGON_DENIED), ExitCode::SignIn,
     "sign-in to the vault was refused, or the sign-in service could not be reached: see AuthenticationType, TenantId, "
     "ClientId and ClientSecret in 'kelvaroctl config show'"},
    {static_cast<SECURITY_STATUS>(kListingFailed), "KEY_LISTING_FAILED", ExitCode::Refused,
     "the vault refused the list of its keys, or could not be reached, or a key on the list could not be read"},
};
#undef STATUS

// What a status means for a certain operation.
struct MeaningRow {
    Operation operation;
    SECURITY_STATUS status;
    ExitCode exit;
    const char* meaning;
};

constexpr MeaningRow kMeanings[] = {
    {Operation::OpenKey, NTE_NOT_FOUND, ExitCode::NotFound,
     "the vault has no key of this name, or refused to return it, or could not be reached; only the log says which"},
    {Operation::OpenKey, NTE_INVALID_PARAMETER, ExitCode::Internal, "the module could not create its vault client"},
    {Operation::ExportKey, NTE_INVALID_PARAMETER, ExitCode::Usage, "the public key is not available in this form"},
    {Operation::Sign, NTE_FAIL, ExitCode::Refused,
     "the vault refused to sign, or could not be reached: the account may lack the permission to sign, or the key is "
     "disabled, expired, or not meant for signing"},
    {Operation::Sign, NTE_PERM, ExitCode::Usage, "the key is not meant for signing"},
    {Operation::Sign, NTE_INVALID_PARAMETER, ExitCode::Refused, "the vault's response had no signature"},
    {Operation::Verify, NTE_FAIL, ExitCode::Refused,
     "the vault refused to verify, or could not be reached: the account may lack the permission to verify, or the key "
     "is disabled or not meant for it"},
    {Operation::Verify, NTE_INVALID_PARAMETER, ExitCode::Refused, "the vault's response had no verdict"},
    {Operation::Encrypt, NTE_FAIL, ExitCode::Refused,
     "the vault refused to encrypt, or could not be reached: the account may lack the permission to encrypt, or the "
     "key is disabled or not meant for it"},
    {Operation::Encrypt, NTE_INVALID_PARAMETER, ExitCode::Refused, "the vault's response had no result"},
    {Operation::Decrypt, NTE_FAIL, ExitCode::Refused,
     "the vault refused to decrypt, or could not be reached: the input may not be this key's with this padding, the "
     "account may lack the permission to decrypt, or the key is disabled or not meant for it"},
    {Operation::Decrypt, NTE_PERM, ExitCode::Usage, "the key is not meant for decryption"},
    {Operation::Decrypt, NTE_INVALID_PARAMETER, ExitCode::Refused, "the vault's response had no result"},
    {Operation::CreateKey, NTE_EXISTS, ExitCode::Usage,
     "the vault has a key of this name; --overwrite creates a new version of it"},
    {Operation::CreateKey, NTE_INVALID_PARAMETER, ExitCode::Internal, "the module could not create its vault client"},
    {Operation::CreateKey, NTE_NOT_SUPPORTED, ExitCode::Usage, "the provider does not offer this algorithm"},
    {Operation::ImportKey, NTE_BAD_DATA, ExitCode::Usage, "the key in the file is malformed, or the password is wrong"},
    {Operation::ImportKey, NTE_EXISTS, ExitCode::Usage,
     "the vault has a key of this name, and an import never replaces one: choose another name"},
    {Operation::ImportKey, NTE_INVALID_PARAMETER, ExitCode::Usage,
     "the provider does not accept the name or the password"},
    {Operation::ImportKey, NTE_NOT_SUPPORTED, ExitCode::Usage,
     "the provider only imports RSA keys of 2048 to 4096 bits"},
    {Operation::ImportKey, NTE_INTERNAL_ERROR, ExitCode::Usage,
     "the password is wrong, or the key's encryption is not supported"},
    {Operation::SetLength, NTE_NOT_SUPPORTED, ExitCode::Usage,
     "an RSA key has 2048 to 4096 bits in steps of 8; the length of a curve key is fixed"},
    {Operation::FinalizeKey, NTE_FAIL, ExitCode::Refused,
     "the vault refused to create it, or could not be reached: the account may lack the permission to create keys or "
     "certificates, or a key of this name is deleted but not purged"},
    {Operation::DeleteKey, NTE_FAIL, ExitCode::Refused,
     "the vault refused to delete it, or could not be reached: the account may lack the permission to delete, or the "
     "key belongs to a certificate and CertificatesOrKeys is 1, or the reverse"},
};

// In the order of Operation.
constexpr const char* kOperations[] = {
    "open the provider",
    "read the provider property",
    "list the algorithms",
    "list the keys",
    "open the key",
    "read the property",
    "export the public key of",
    "sign with",
    "verify with",
    "encrypt with",
    "decrypt with",
    "create the key",
    "import",
    "set the length of the key",
    "create the key",
    "delete the key",
};
static_assert(std::size(kOperations) == static_cast<size_t>(Operation::DeleteKey) + 1);

const StatusRow* FindStatus(SECURITY_STATUS status)
{
    for (const StatusRow& row : kStatuses) {
        if (row.status == status)
            return &row;
    }
    return nullptr;
}
}  // namespace

std::string StatusName(SECURITY_STATUS status)
{
    const StatusRow* const row = FindStatus(status);
    return row ? row->name : "unknown status";
}

std::string StatusText(SECURITY_STATUS status)
{
    return StatusName(status) + " (" + HexNumber(static_cast<DWORD>(status)) + ")";
}

Failure StatusFailure(Operation operation, SECURITY_STATUS status, const std::string& subject)
{
    const StatusRow* const row = FindStatus(status);
    ExitCode exit = row ? row->exit : ExitCode::Internal;
    std::string meaning = row ? row->meaning : "a status unknown to this tool";
    for (const MeaningRow& special : kMeanings) {
        if (special.operation == operation && special.status == status) {
            exit = special.exit;
            meaning = special.meaning;
        }
    }
    std::string words = kOperations[static_cast<size_t>(operation)];
    if (!subject.empty())
        words += " '" + subject + "'";
    Failure failure(exit, StatusName(status), "cannot " + words + ": " + StatusText(status) + ": " + meaning);
    failure.status = status;
    failure.operation = words;
    return failure;
}

Failure ForeignAnswerFailure(const std::string& attempt)
{
    return Failure(ExitCode::Refused, kForeignAnswer,
                   "cannot " + attempt +
                       ": what answered is not the vault: a proxy or a captive portal may have sent its own page");
}

}  // namespace kelvaroctl
