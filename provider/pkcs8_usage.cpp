#include "provider/pkcs8_usage.h"

#include <string_view>

#include "provider/import_memory.h"
#include "provider/property_list.h"

namespace {

struct UsageRule {
    BYTE first;   // bits of the bit string's first byte
    BYTE second;  // and of its second
    DWORD usage;
};
constexpr UsageRule kUsageRules[] = {
    {0x31, 0x80, NCRYPT_ALLOW_DECRYPT_FLAG},  // key and data encipherment, encipher only; decipher only
    {0x86, 0x00, NCRYPT_ALLOW_SIGNING_FLAG},  // digital signature, certificate and CRL signing
    {0x08, 0x00, NCRYPT_ALLOW_KEY_AGREEMENT_FLAG},
};

// The value of the first key usage attribute that has one, or NULL.
const CRYPT_ATTR_BLOB* FindUsage(const CRYPT_ATTRIBUTES* attributes)
{
    for (DWORD i = 0; attributes && i < attributes->cAttr; i++) {
        const CRYPT_ATTRIBUTE& attribute = attributes->rgAttr[i];
        if (!attribute.pszObjId || std::string_view(attribute.pszObjId) != szOID_KEY_USAGE)
            continue;
        if (attribute.cValue != 0 && attribute.rgValue[0].pbData && attribute.rgValue[0].cbData != 0)
            return &attribute.rgValue[0];
    }
    return nullptr;
}

}  // namespace

SECURITY_STATUS ReadPkcs8Usage(const CRYPT_PRIVATE_KEY_INFO& info, DWORD* usage)
{
    *usage = NCRYPT_ALLOW_ALL_USAGES;
    const CRYPT_ATTR_BLOB* value = FindUsage(info.pAttributes);
    if (!value)
        return ERROR_SUCCESS;
    DecodedStructure<CRYPT_BIT_BLOB> bits;
    if (!bits.Decode(X509_BITS, value->pbData, value->cbData))
        return NTE_BAD_DATA;
    const BYTE first = bits->cbData > 0 ? bits->pbData[0] : BYTE{0};
    const BYTE second = bits->cbData > 1 ? bits->pbData[1] : BYTE{0};
    *usage = 0;
    for (const UsageRule& rule : kUsageRules) {
        if ((first & rule.first) != 0 || (second & rule.second) != 0)
            *usage |= rule.usage;
    }
    return ERROR_SUCCESS;
}

SECURITY_STATUS AddKeyUsageProperty(KSP_KEY* key, DWORD usage)
{
    KSP_PROPERTY* property = nullptr;
    const SECURITY_STATUS status = MakeKeyProperty(NCRYPT_KEY_USAGE_PROPERTY, reinterpret_cast<const BYTE*>(&usage),
                                                   sizeof(usage), NCRYPT_PERSIST_FLAG, &property);
    if (status != ERROR_SUCCESS)
        return status;
    const PropertyLock lock(TEXT("AddKeyUsageProperty Failed to grab Semaphone - Result"));
    PropertyListAppend(&key->PropertyList, property);
    key->dwKeyUsage = usage;
    return ERROR_SUCCESS;
}
