#include "provider/key_properties.h"

#include <string.h>

#include <utility>

#include "keyvault/key_algorithms.h"
#include "platform/find_row.h"
#include "provider/descriptor_check.h"
#include "provider/kept_buffer.h"
#include "provider/private_blob.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr DWORD kExportPolicyBits = 0xF;

template <std::atomic<DWORD> KSP_KEY::*field>
SECURITY_STATUS ReadNumber(const KSP_KEY& key, PropertyValue* value)
{
    value->Set((key.*field).load());
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadName(const KSP_KEY& key, PropertyValue* value)
{
    if (!key.pszKeyName)
        return NTE_NOT_SUPPORTED;
    value->SetText(key.pszKeyName);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadAlgorithmName(const KSP_KEY& key, PropertyValue* value)
{
    value->SetText(key.pszAlgName);
    return ERROR_SUCCESS;
}

// "RSA" for curve keys too, since hosts rely on it.
SECURITY_STATUS ReadAlgorithmGroup(const KSP_KEY& /*key*/, PropertyValue* value)
{
    value->SetText(BCRYPT_RSA_ALGORITHM);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadBlockLength(const KSP_KEY& key, PropertyValue* value)
{
    // Written so that no length wraps.
    const DWORD bits = key.dwBitLength;
    value->Set(static_cast<DWORD>(bits / 8 + (bits % 8 != 0)));
    return ERROR_SUCCESS;
}

// If any length is allowed, a host can only get the size.
SECURITY_STATUS ReadLengths(const KSP_KEY& key, PropertyValue* value)
{
    NCRYPT_SUPPORTED_LENGTHS lengths;
    if (SupportedLengths(key.pszAlgName, &lengths))
        value->Set(lengths);
    else
        value->SetSizeOnly(sizeof(lengths));
    return ERROR_SUCCESS;
}

// 0 for machine keys too.
SECURITY_STATUS ReadKeyType(const KSP_KEY& /*key*/, PropertyValue* value)
{
    value->Set(DWORD{0});
    return ERROR_SUCCESS;
}

// An empty one: what the host sets is only kept.
SECURITY_STATUS ReadSecurityDescr(const KSP_KEY& /*key*/, PropertyValue* value)
{
    SECURITY_DESCRIPTOR descriptor = {};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    value->Set(descriptor);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadUiPolicy(const KSP_KEY& /*key*/, PropertyValue* value)
{
    NCRYPT_UI_POLICY policy = {};
    policy.dwVersion = 1;
    value->Set(policy);
    return ERROR_SUCCESS;
}

SECURITY_STATUS ReadUseContext(const KSP_KEY& key, PropertyValue* value)
{
    value->SetText(key.pszUseContext ? key.pszUseContext : TEXT(""));
    return ERROR_SUCCESS;
}

// The value that a host sets.
struct Input {
    const BYTE* bytes;  // of any alignment
    DWORD size;
    DWORD dwFlags;
};

// The first 32-bit word; missing bytes count as 0.
DWORD FirstWord(const Input& input)
{
    DWORD word = 0;
    memcpy(&word, input.bytes, input.size < sizeof(word) ? input.size : sizeof(word));
    return word;
}

// Only checks the policy; it is kept in the entry that the caller stores. dwExportPolicy is always 0.
SECURITY_STATUS ApplyExportPolicy(KSP_KEY* key, const Input& input)
{
    const DWORD policy = FirstWord(input);
    if (policy & ~kExportPolicyBits)
        return NTE_NOT_SUPPORTED;
    key->dwExportPolicy = 0;
    // Without a client the strictest setting applies.
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

SECURITY_STATUS ApplyKeyUsage(KSP_KEY* key, const Input& input)
{
    const DWORD usage = FirstWord(input);
    key->dwKeyUsage = usage;
    LogNumber(TEXT("Key Usage"), TEXT("="), static_cast<LONG>(usage), LOG_DETAIL_LEVEL);
    return ERROR_SUCCESS;
}

// A refused length stays in the key object.
SECURITY_STATUS ApplyLength(KSP_KEY* key, const Input& input)
{
    const DWORD bits = FirstWord(input);
    key->dwBitLength = bits;
    NCRYPT_SUPPORTED_LENGTHS lengths;
    if (SupportedLengths(key->pszAlgName, &lengths) && !LengthAllowed(lengths, bits))
        return NTE_NOT_SUPPORTED;
    return ERROR_SUCCESS;
}

// If memory runs out, the old descriptor is still lost.
SECURITY_STATUS ApplySecurityDescr(KSP_KEY* key, const Input& input)
{
    if (!HoldsSecurityDescriptor(input.bytes, input.size))
        return NTE_BAD_DATA;
    HeapPtr<BYTE> copy = HeapCopy<BYTE>(input.bytes, input.size);
    const ExclusiveLock lock(&key->lock);
    key->dwSecurityInfo = input.dwFlags;
    ReplaceBuffer(&key->pbSecurityDescr, &key->cbSecurityDescr, std::move(copy), input.size);
    return key->pbSecurityDescr ? ERROR_SUCCESS : NTE_NO_MEMORY;
}

SECURITY_STATUS ApplyPrivateBlob(KSP_KEY* key, const Input& input)
{
    const WCHAR* type = nullptr;
    switch (FirstWord(input)) {
        case BCRYPT_RSAPRIVATE_MAGIC:
            type = BCRYPT_RSAPRIVATE_BLOB;
            break;
        case BCRYPT_RSAFULLPRIVATE_MAGIC:
            type = BCRYPT_RSAFULLPRIVATE_BLOB;
            break;
        default:
            return NTE_BAD_DATA;
    }
    return KeepPrivateBlob(key, input.bytes, input.size, type);
}

SECURITY_STATUS ApplyWindow(KSP_KEY* key, const Input& input)
{
    key->hParentWnd = FirstWord(input);
    return ERROR_SUCCESS;
}

// Bytes of a terminated wide text at any address, terminator included.
size_t TerminatedSize(const BYTE* text)
{
    size_t size = 0;
    WCHAR ch;
    do {
        memcpy(&ch, text + size, sizeof(ch));
        size += sizeof(ch);
    } while (ch);
    return size;
}

// Only the terminator determines the size, since hosts pass the context with and without it counted.
SECURITY_STATUS ApplyUseContext(KSP_KEY* key, const Input& input)
{
    const SIZE_T size = TerminatedSize(input.bytes);
    HeapPtr<WCHAR> copy = HeapCopy<WCHAR>(input.bytes, size);
    if (!copy)
        return NTE_NO_MEMORY;
    const ExclusiveLock lock(&key->lock);
    ReplaceBuffer(&key->pszUseContext, &key->cbUseContext, std::move(copy), size);
    return ERROR_SUCCESS;
}

SECURITY_STATUS Accept(KSP_KEY* /*key*/, const Input& /*input*/)
{
    return ERROR_SUCCESS;
}

enum class Store { AsAsked, Always, Never };

struct KeyProperty {
    const WCHAR* name;
    SECURITY_STATUS (*read)(const KSP_KEY& key, PropertyValue* value);     // NULL: can't be read
    SECURITY_STATUS (*apply)(KSP_KEY* key, const Input& input) = nullptr;  // NULL: can't be set
    bool oneWord = false;                                                  // the value has 4 bytes, else NTE_BAD_DATA
    bool pendingOnly = false;                                              // not on a finalized key: NTE_BAD_KEY_STATE
    Store store = Store::Never;  // whether the caller stores the value in the list too
};
constexpr KeyProperty kProperties[] = {
    {NCRYPT_NAME_PROPERTY, ReadName},
    {NCRYPT_UNIQUE_NAME_PROPERTY, ReadName},
    {NCRYPT_ALGORITHM_PROPERTY, ReadAlgorithmName},
    {NCRYPT_ALGORITHM_GROUP_PROPERTY, ReadAlgorithmGroup},
    {NCRYPT_BLOCK_LENGTH_PROPERTY, ReadBlockLength},
    {NCRYPT_LENGTHS_PROPERTY, ReadLengths},
    {NCRYPT_KEY_TYPE_PROPERTY, ReadKeyType},
    {NCRYPT_LENGTH_PROPERTY, ReadNumber<&KSP_KEY::dwBitLength>, ApplyLength, true, true, Store::Never},
    {NCRYPT_EXPORT_POLICY_PROPERTY, ReadNumber<&KSP_KEY::dwExportPolicy>, ApplyExportPolicy, true, true, Store::Always},
    {NCRYPT_KEY_USAGE_PROPERTY, ReadNumber<&KSP_KEY::dwKeyUsage>, ApplyKeyUsage, true, true, Store::Always},
    {NCRYPT_SECURITY_DESCR_PROPERTY, ReadSecurityDescr, ApplySecurityDescr, false, false, Store::Never},
    {BCRYPT_PRIVATE_KEY_BLOB, nullptr, ApplyPrivateBlob, false, true, Store::Never},
    {NCRYPT_WINDOW_HANDLE_PROPERTY, ReadNumber<&KSP_KEY::hParentWnd>, ApplyWindow, false, false, Store::AsAsked},
    {NCRYPT_UI_POLICY_PROPERTY, ReadUiPolicy, Accept, false, false, Store::AsAsked},
    {NCRYPT_USE_CONTEXT_PROPERTY, ReadUseContext, ApplyUseContext, false, false, Store::AsAsked},
    {NCRYPT_CERTIFICATE_PROPERTY, nullptr, Accept, false, false, Store::AsAsked},
};

const KeyProperty* FindProperty(const WCHAR* name)
{
    return FindRow(kProperties, [=](const KeyProperty& property) { return TextEqual(name, property.name); });
}

}  // namespace

SECURITY_STATUS ReadBuildinKeyProperty(const KSP_KEY& key, const WCHAR* name, PropertyValue* value)
{
    const KeyProperty* property = FindProperty(name);
    return property && property->read ? property->read(key, value) : NTE_NOT_SUPPORTED;
}

SECURITY_STATUS SetBuildinKeyProperty(KSP_KEY* pKey, const WCHAR* pszProperty, const BYTE* pbInput, DWORD cbInput,
                                      DWORD* dwFlags)
{
    LogString(TEXT("SetBuildinKeyProperty"), pszProperty, LOG_DETAIL_LEVEL);
    const KeyProperty* property = FindProperty(pszProperty);
    if (!property || !property->apply)
        return NTE_NOT_SUPPORTED;
    if (property->oneWord && cbInput != sizeof(DWORD))
        return NTE_BAD_DATA;
    if (property->pendingOnly && pKey->fFinalized)
        return NTE_BAD_KEY_STATE;
    const SECURITY_STATUS status = property->apply(pKey, {pbInput, cbInput, *dwFlags});
    if (status != ERROR_SUCCESS)
        return status;
    if (property->store == Store::Always)
        *dwFlags |= NCRYPT_PERSIST_FLAG;
    if (property->store == Store::Never)
        *dwFlags &= ~NCRYPT_PERSIST_FLAG;
    return ERROR_SUCCESS;
}
