#include "platform/linux/serialized_store.h"

#include <string.h>

#include "platform/linux/certificate.h"
#include "platform/linux/outcome.h"

namespace {

constexpr std::string_view kHead("\0\0\0\0CERT", 8);
constexpr uint32_t kEnd = 0;
constexpr uint32_t kCertificate = 32;

struct RecordHead {
    uint32_t id;
    uint32_t one;
    uint32_t size;
};

// A CRYPT_KEY_PROV_INFO whose pointers are offsets of this type.
template <typename Offset>
struct StoredProviderInfo {
    Offset containerName;
    Offset providerName;
    uint32_t providerType;
    uint32_t flags;
    uint32_t parameterCount;
    Offset parameters;
    uint32_t keySpec;
};
using NarrowProviderInfo = StoredProviderInfo<uint32_t>;
using WideProviderInfo = StoredProviderInfo<uint64_t>;
static_assert(sizeof(NarrowProviderInfo) == 28 && sizeof(WideProviderInfo) == 48, "as published");

template <typename T>
bool Read(std::string_view bytes, T* value)
{
    if (bytes.size() < sizeof *value)
        return false;
    memcpy(value, bytes.data(), sizeof *value);
    return true;
}

// The terminated text at an offset, 0 for none. False when the terminator is missing.
bool ReadText(std::string_view bytes, uint64_t offset, std::u16string* text)
{
    if (offset == 0)
        return true;
    for (char16_t unit = 0; offset <= bytes.size() && Read(bytes.substr(offset), &unit); offset += sizeof unit) {
        if (unit == 0)
            return true;
        *text += unit;
    }
    return false;
}

template <typename Stored>
bool ReadProviderInfo(std::string_view bytes, KeyProviderInfo* info)
{
    Stored stored;
    if (!Read(bytes, &stored) || stored.parameterCount != 0)
        return false;
    info->providerType = stored.providerType;
    info->flags = stored.flags;
    info->keySpec = stored.keySpec;
    return ReadText(bytes, stored.containerName, &info->containerName) &&
           ReadText(bytes, stored.providerName, &info->providerName);
}

// The texts follow the structure, so a 64-bit first offset is at least the wide structure's size and within the data.
bool HasWideOffsets(std::string_view bytes)
{
    uint64_t first = 0;
    return Read(bytes, &first) && first >= sizeof(WideProviderInfo) && first <= bytes.size();
}

bool ReadProviderInfo(std::string_view bytes, KeyProviderInfo* info)
{
    return HasWideOffsets(bytes) ? ReadProviderInfo<WideProviderInfo>(bytes, info)
                                 : ReadProviderInfo<NarrowProviderInfo>(bytes, info);
}

}  // namespace

LONG ParseSerializedStore(std::string_view serialized, std::vector<CertificateRecord>* certificates)
{
    if (serialized.substr(0, kHead.size()) != kHead)
        return ERROR_INVALID_DATA;
    serialized.remove_prefix(kHead.size());
    CertificateRecord next;
    for (RecordHead head; Read(serialized, &head);) {
        serialized.remove_prefix(sizeof head);
        if (head.id == kEnd)
            return head.one == 0 && head.size == 0 ? ERROR_SUCCESS : ERROR_INVALID_DATA;
        if (head.one != 1 || head.size > serialized.size())
            return ERROR_INVALID_DATA;
        const std::string_view data = serialized.substr(0, head.size);
        serialized.remove_prefix(head.size);
        if (head.id == CERT_KEY_PROV_INFO_PROP_ID) {
            next.keyProvider.emplace();
            if (!ReadProviderInfo(data, &*next.keyProvider))
                return ERROR_INVALID_DATA;
        } else if (head.id == kCertificate) {
            Certificate parsed;
            Check(parsed.Parse(data));
            next.der = parsed.der();
            certificates->push_back(std::move(next));
            next = CertificateRecord();
        }
    }
    return ERROR_INVALID_DATA;
}

CertificateStore* OpenSerializedStore(const CRYPT_DATA_BLOB* blob)
{
    if (!blob || !blob->pbData)
        throw Failure(E_INVALIDARG);
    std::vector<CertificateRecord> certificates;
    Check(ParseSerializedStore(BytesOf(blob->pbData, blob->cbData), &certificates));
    std::map<std::string, CertificateRecord> memory;
    for (CertificateRecord& certificate : certificates) {
        const std::string name = CertificateStore::FileNameOf(Sha1Of(certificate.der));
        memory.emplace(name, std::move(certificate));
    }
    return new CertificateStore(std::move(memory));
}
