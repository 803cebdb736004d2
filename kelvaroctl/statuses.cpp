#include "kelvaroctl/statuses.h"

#include "kelvaroctl/text.h"

namespace kelvaroctl {

namespace {
struct StatusRow {
    DWORD status;
    const char* name;
    ExitCode exit;
    const char* meaning;
};

constexpr StatusRow kStatuses[] = {
    {0x80090003, "NTE_BAD_KEY", ExitCode::Usage, "the key material is malformed"},
    {0x80090005, "NTE_BAD_DATA", ExitCode::Usage, "the data is malformed"},
    {0x80090006, "NTE_BAD_SIGNATURE", ExitCode::Negative, "the signature does not match this key and this data"},
    {0x80090009, "NTE_BAD_FLAGS", ExitCode::Internal, "the module does not accept a flag of this call"},
    {0x8009000B, "NTE_BAD_KEY_STATE", ExitCode::Usage, "the key has not been finalized"},
    {0x8009000E, "NTE_NO_MEMORY", ExitCode::Internal, "the machine is out of memory"},
    {0x8009000F, "NTE_EXISTS", ExitCode::Usage, "a key of this name already exists"},
    {0x80090010, "NTE_PERM", ExitCode::Usage, "the key's usage does not allow it"},
    {0x80090011, "NTE_NOT_FOUND", ExitCode::NotFound, "not found"},
    {0x80090020, "NTE_FAIL", ExitCode::Refused, "the vault refused the request, or it could not be reached"},
    {0x80090026, "NTE_INVALID_HANDLE", ExitCode::Internal, "the module does not know the handle"},
    {0x80090027, "NTE_INVALID_PARAMETER", ExitCode::Internal, "the module does not accept an argument of this call"},
    {0x80090028, "NTE_BUFFER_TOO_SMALL", ExitCode::Internal, "the answer is larger than announced"},
    {0x80090029, "NTE_NOT_SUPPORTED", ExitCode::Usage, "the provider does not offer this"},
    {0x8009002A, "NTE_NO_MORE_ITEMS", ExitCode::Internal, "there are no more items"},
    {0x8009002D, "NTE_INTERNAL_ERROR", ExitCode::Internal, "the module failed"},
    {0x8009030C, "SEC_E_LOGON_DENIED", ExitCode::SignIn,
     "sign-in to the vault was refused, or the sign-in service could not be reached: see AuthenticationType, TenantId, "
     "ClientId and ClientSecret in 'kelvaroctl config show'"},
    {kListingFailed, "KEY_LISTING_FAILED", ExitCode::Refused,
     "the vault refused the list of its keys, or could not be reached, or a key on the list could not be read"},
};

// What a status means for a certain operation.
struct MeaningRow {
    Operation operation;
    DWORD status;
    ExitCode exit;
    const char* meaning;
};

constexpr MeaningRow kMeanings[] = {
    {Operation::OpenKey, 0x80090011, ExitCode::NotFound,
     "the vault has no key of this name, or refused to return it, or could not be reached; only the log says which"},
    {Operation::OpenKey, 0x80090027, ExitCode::Internal, "the module could not create its vault client"},
    {Operation::ExportKey, 0x80090027, ExitCode::Usage, "the public key is not available in this form"},
    {Operation::Sign, 0x80090020, ExitCode::Refused,
     "the vault refused to sign, or could not be reached: the account may lack the permission to sign, or the key is "
     "disabled, expired, or not meant for signing"},
    {Operation::Sign, 0x80090010, ExitCode::Usage, "the key is not meant for signing"},
    {Operation::Sign, 0x80090027, ExitCode::Refused, "the vault's response had no signature"},
    {Operation::Verify, 0x80090020, ExitCode::Refused,
     "the vault refused to verify, or could not be reached: the account may lack the permission to verify, or the key "
     "is disabled or not meant for it"},
    {Operation::Verify, 0x80090027, ExitCode::Refused, "the vault's response had no verdict"},
    {Operation::Encrypt, 0x80090020, ExitCode::Refused,
     "the vault refused to encrypt, or could not be reached: the account may lack the permission to encrypt, or the "
     "key is disabled or not meant for it"},
    {Operation::Encrypt, 0x80090027, ExitCode::Refused, "the vault's response had no result"},
    {Operation::Decrypt, 0x80090020, ExitCode::Refused,
     "the vault refused to decrypt, or could not be reached: the input may not be this key's with this padding, the "
     "account may lack the permission to decrypt, or the key is disabled or not meant for it"},
    {Operation::Decrypt, 0x80090010, ExitCode::Usage, "the key is not meant for decryption"},
    {Operation::Decrypt, 0x80090027, ExitCode::Refused, "the vault's response had no result"},
    {Operation::CreateKey, 0x8009000F, ExitCode::Usage,
     "the vault has a key of this name; --overwrite creates a new version of it"},
    {Operation::CreateKey, 0x80090027, ExitCode::Internal, "the module could not create its vault client"},
    {Operation::CreateKey, 0x80090029, ExitCode::Usage, "the provider does not offer this algorithm"},
    {Operation::ImportKey, 0x80090005, ExitCode::Usage, "the key in the file is malformed, or the password is wrong"},
    {Operation::ImportKey, 0x8009000F, ExitCode::Usage,
     "the vault has a key of this name, and an import never replaces one: choose another name"},
    {Operation::ImportKey, 0x80090027, ExitCode::Usage, "the provider does not accept the name or the password"},
    {Operation::ImportKey, 0x80090029, ExitCode::Usage, "the provider only imports RSA keys of 2048 to 4096 bits"},
    {Operation::ImportKey, 0x8009002D, ExitCode::Usage,
     "the password is wrong, or the key's encryption is not supported"},
    {Operation::SetLength, 0x80090029, ExitCode::Usage,
     "an RSA key has 2048 to 4096 bits in steps of 8; the length of a curve key is fixed"},
    {Operation::FinalizeKey, 0x80090020, ExitCode::Refused,
     "the vault refused to create it, or could not be reached: the account may lack the permission to create keys or "
     "certificates, or a key of this name is deleted but not purged"},
    {Operation::DeleteKey, 0x80090020, ExitCode::Refused,
     "the vault refused to delete it, or could not be reached: the account may lack the permission to delete, or the "
     "key belongs to a certificate and CertificatesOrKeys is 1, or the reverse"},
};

struct OperationRow {
    Operation operation;
    const char* words;
};

constexpr OperationRow kOperations[] = {
    {Operation::OpenProvider, "open the provider"},
    {Operation::ReadProviderProperty, "read the provider property"},
    {Operation::ListAlgorithms, "list the algorithms"},
    {Operation::ListKeys, "list the keys"},
    {Operation::OpenKey, "open the key"},
    {Operation::ReadKeyProperty, "read the property"},
    {Operation::ExportKey, "export the public key of"},
    {Operation::Sign, "sign with"},
    {Operation::Verify, "verify with"},
    {Operation::Encrypt, "encrypt with"},
    {Operation::Decrypt, "decrypt with"},
    {Operation::CreateKey, "create the key"},
    {Operation::ImportKey, "import"},
    {Operation::SetLength, "set the length of the key"},
    {Operation::FinalizeKey, "create the key"},
    {Operation::DeleteKey, "delete the key"},
};

const StatusRow* FindStatus(SECURITY_STATUS status)
{
    for (const StatusRow& row : kStatuses) {
        if (row.status == static_cast<DWORD>(status))
            return &row;
    }
    return nullptr;
}

const char* OperationWords(Operation operation)
{
    for (const OperationRow& row : kOperations) {
        if (row.operation == operation)
            return row.words;
    }
    return "do this";
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
        if (special.operation == operation && special.status == static_cast<DWORD>(status)) {
            exit = special.exit;
            meaning = special.meaning;
        }
    }
    std::string words = OperationWords(operation);
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
