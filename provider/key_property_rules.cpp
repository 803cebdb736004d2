#include <string.h>

#include <utility>

#include "provider/descriptor_check.h"
#include "provider/kept_buffer.h"
#include "provider/key_object.h"
#include "support/log.h"
#include "support/text.h"

static constexpr DWORD kExportPolicyBits = 0xF;

struct LengthRule {
    const WCHAR* part;  // of the algorithm's name
    NCRYPT_SUPPORTED_LENGTHS lengths;
};
static constexpr NCRYPT_SUPPORTED_LENGTHS kRsaLengths = {2048, 4096, 8, 2048};
static constexpr LengthRule kCurveLengths[] = {
    {TEXT("256"), {256, 256, 0, 256}},
    {TEXT("384"), {384, 384, 0, 384}},
    {TEXT("521"), {521, 521, 0, 521}},
};

const NCRYPT_SUPPORTED_LENGTHS* SupportedLengths(const WCHAR* pszAlgName)
{
    if (TextEqual(pszAlgName, TEXT("RSA")))
        return &kRsaLengths;
    for (const LengthRule& rule : kCurveLengths) {
        if (TextContains(pszAlgName, rule.part))
            return &rule.lengths;
    }
    return nullptr;
}

static bool LengthAllowed(const WCHAR* algName, DWORD bits)
{
    const NCRYPT_SUPPORTED_LENGTHS* lengths = SupportedLengths(algName);
    if (!lengths)
        return true;
    return bits >= lengths->dwMinLength && bits <= lengths->dwMaxLength &&
           (lengths->dwIncrement == 0 || (bits - lengths->dwMinLength) % lengths->dwIncrement == 0);
}

// The first 32-bit word; bytes that are not there count as 0.
static DWORD FirstWord(const BYTE* input, DWORD cbInput)
{
    DWORD word = 0;
    memcpy(&word, input, cbInput < sizeof(word) ? cbInput : sizeof(word));
    return word;
}

// Only judges: a policy survives as the entry that the caller stores, and dwExportPolicy is 0 whatever was asked for.
static SECURITY_STATUS ApplyExportPolicy(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD /*flags*/)
{
    const DWORD policy = FirstWord(input, cbInput);
    if (policy & ~kExportPolicyBits)
        return NTE_NOT_SUPPORTED;
    key->dwExportPolicy = 0;
    // A key without a client is held to the strictest setting.
    const DWORD option = key->kvc ? key->kvc->exportableOption : 0;
    if (option == 1 || (option == 0 && policy == 0))
        return ERROR_SUCCESS;
    if (option == 0)
        LogError(TEXT("SetBuildinKeyProperty EXPORTABLE_KEYS_UNSUPPORTED"), NTE_NOT_SUPPORTED, LOG_STEP_LEVEL);
    else
        LogNumber(TEXT("SetBuildinKeyProperty bad Exportable Value"), TEXT(""), static_cast<LONG>(option),
                  LOG_STEP_LEVEL);
    return NTE_NOT_SUPPORTED;
}

static SECURITY_STATUS ApplyKeyUsage(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD /*flags*/)
{
    const DWORD usage = FirstWord(input, cbInput);
    key->dwKeyUsage = usage;
    LogNumber(TEXT("Key Usage"), TEXT("="), static_cast<LONG>(usage), LOG_DETAIL_LEVEL);
    return ERROR_SUCCESS;
}

// A refused length stays in the key object.
static SECURITY_STATUS ApplyLength(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD /*flags*/)
{
    const DWORD bits = FirstWord(input, cbInput);
    key->dwBitLength = bits;
    return LengthAllowed(key->pszAlgName, bits) ? ERROR_SUCCESS : NTE_NOT_SUPPORTED;
}

static SECURITY_STATUS ApplySecurityDescr(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD flags)
{
    if (!HoldsSecurityDescriptor(input, cbInput))
        return NTE_BAD_DATA;
    HeapPtr<BYTE> copy(static_cast<BYTE*>(HeapAlloc(GetProcessHeap(), 0, cbInput)));
    const DWORD cbCopy = copy ? cbInput : 0;
    if (copy)
        memcpy(copy.get(), input, cbCopy);
    const ExclusiveLock lock(&key->lock);
    key->dwSecurityInfo = flags;
    ReplaceBuffer(&key->pbSecurityDescr, &key->cbSecurityDescr, std::move(copy), cbCopy);
    return key->pbSecurityDescr ? ERROR_SUCCESS : NTE_NO_MEMORY;  // the old one is gone then
}

static SECURITY_STATUS ApplyPrivateBlob(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD /*flags*/)
{
    const WCHAR* type = nullptr;
    switch (FirstWord(input, cbInput)) {
        case BCRYPT_RSAPRIVATE_MAGIC:
            type = BCRYPT_RSAPRIVATE_BLOB;
            break;
        case BCRYPT_RSAFULLPRIVATE_MAGIC:
            type = BCRYPT_RSAFULLPRIVATE_BLOB;
            break;
        default:
            return NTE_BAD_DATA;
    }
    const SECURITY_STATUS status = CheckRsaBlob(key, input, cbInput);
    return status == ERROR_SUCCESS ? ProtectPrivateBlob(key, input, cbInput, type) : status;
}

static SECURITY_STATUS ApplyWindow(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD /*flags*/)
{
    key->hParentWnd = FirstWord(input, cbInput);
    return ERROR_SUCCESS;
}

// Bytes of a terminated wide text at any address, terminator included.
static size_t TerminatedSize(const BYTE* text)
{
    size_t size = 0;
    WCHAR ch;
    do {
        memcpy(&ch, text + size, sizeof(ch));
        size += sizeof(ch);
    } while (ch);
    return size;
}

// Hosts pass the context with and without its terminator counted, so that the terminator alone tells the size.
static SECURITY_STATUS ApplyUseContext(KSP_KEY* key, const BYTE* input, DWORD /*cbInput*/, DWORD /*flags*/)
{
    const size_t size = TerminatedSize(input);
    HeapPtr<WCHAR> copy(static_cast<WCHAR*>(HeapAlloc(GetProcessHeap(), 0, size)));
    if (!copy)
        return NTE_NO_MEMORY;
    memcpy(copy.get(), input, size);
    const ExclusiveLock lock(&key->lock);
    ReplaceBuffer(&key->pszUseContext, &key->cbUseContext, std::move(copy), SIZE_T{size});
    return ERROR_SUCCESS;
}

static SECURITY_STATUS Accept(KSP_KEY* /*key*/, const BYTE* /*input*/, DWORD /*cbInput*/, DWORD /*flags*/)
{
    return ERROR_SUCCESS;
}

enum class Store { AsAsked, Always, Never };

struct KeyPropertyRule {
    const WCHAR* name;
    bool oneWord;      // the value has 4 bytes, else NTE_BAD_DATA
    bool pendingOnly;  // not on a finalized key: NTE_BAD_KEY_STATE
    SECURITY_STATUS (*apply)(KSP_KEY* key, const BYTE* input, DWORD cbInput, DWORD flags);
    Store store;  // whether the caller keeps the value in the list too
};
static constexpr KeyPropertyRule kRules[] = {
    {TEXT("Export Policy"), true, true, ApplyExportPolicy, Store::Always},
    {TEXT("Key Usage"), true, true, ApplyKeyUsage, Store::Always},
    {TEXT("Length"), true, true, ApplyLength, Store::Never},
    {TEXT("Security Descr"), false, false, ApplySecurityDescr, Store::Never},
    {TEXT("PRIVATEBLOB"), false, true, ApplyPrivateBlob, Store::Never},
    {TEXT("HWND Handle"), false, false, ApplyWindow, Store::AsAsked},
    {TEXT("UI Policy"), false, false, Accept, Store::AsAsked},
    {TEXT("Use Context"), false, false, ApplyUseContext, Store::AsAsked},
    {TEXT("SmartCardKeyCertificate"), false, false, Accept, Store::AsAsked},
};

static const KeyPropertyRule* FindRule(const WCHAR* name)
{
    for (const KeyPropertyRule& rule : kRules) {
        if (TextEqual(name, rule.name))
            return &rule;
    }
    return nullptr;
}

SECURITY_STATUS SetBuildinKeyProperty(KSP_KEY* pKey, const WCHAR* pszProperty, const BYTE* pbInput, DWORD cbInput,
                                      DWORD* dwFlags)
{
    LogString(TEXT("SetBuildinKeyProperty"), pszProperty, LOG_DETAIL_LEVEL);
    const KeyPropertyRule* rule = FindRule(pszProperty);
    if (!rule)
        return NTE_NOT_SUPPORTED;
    if (rule->oneWord && cbInput != sizeof(DWORD))
        return NTE_BAD_DATA;
    if (rule->pendingOnly && pKey->fFinalized)
        return NTE_BAD_KEY_STATE;
    const SECURITY_STATUS status = rule->apply(pKey, pbInput, cbInput, *dwFlags);
    if (status != ERROR_SUCCESS)
        return status;
    if (rule->store == Store::Always)
        *dwFlags |= NCRYPT_PERSIST_FLAG;
    if (rule->store == Store::Never)
        *dwFlags &= ~NCRYPT_PERSIST_FLAG;
    return ERROR_SUCCESS;
}
