#include "certsync/cert_sync_list.h"

#include "support/settings_string.h"

namespace {

constexpr WCHAR kValueName[] = TEXT("CertSync");

}  // namespace

HashText::HashText(const BYTE* hash, DWORD size)
{
    constexpr WCHAR kDigits[] = TEXT("0123456789ABCDEF");
    size_t at = 0;
    for (DWORD i = 0; i < size && i < kLongestHash; i++) {
        text_[at++] = kDigits[hash[i] >> 4];
        text_[at++] = kDigits[hash[i] & 15];
    }
    text_[at] = 0;
}

BldStrPtr ReadCertSync(bool isMachine)
{
    return BldStrPtr(BldStrGetWStringValue(isMachine ? 1 : 0, kValueName));
}

void WriteCertSync(bool isMachine, const BldStr* list)
{
    BldStrSetWStringValue(isMachine ? 1 : 0, kValueName, list->cStr);
}
