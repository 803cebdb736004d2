#include "platform/linux/x509_parts.h"

#include <time.h>

#include "platform/linux/object_identifier.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"
#include "platform/linux/win_constants.h"

namespace {

// Seconds from 1601, the epoch of FILETIME, to 1970.
constexpr long long kSecondsTo1970 = 11644473600;
constexpr long long kTicksPerSecond = 10000000;
// The end of the year 9999.
constexpr time_t kLastSecond = 253402300799;

using TimePointer = Owner<ASN1_TIME, ASN1_TIME_free>;

bool TimeFromElement(std::string_view element, FILETIME* time)
{
    const QuietOpenssl quiet;
    const BYTE* at = reinterpret_cast<const BYTE*>(element.data());
    const TimePointer parsed(d2i_ASN1_TIME(nullptr, &at, static_cast<long>(element.size())));
    struct tm parts = {};
    if (!parsed || ASN1_TIME_to_tm(parsed.get(), &parts) != 1)
        return false;
    const long long seconds = static_cast<long long>(timegm(&parts)) + kSecondsTo1970;
    if (seconds < 0)
        return false;
    const unsigned long long ticks = static_cast<unsigned long long>(seconds * kTicksPerSecond);
    *time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    return true;
}

}  // namespace

std::string TakeObjectId(DerReader* reader)
{
    std::string text;
    if (!ObjectIdToText(reader->Take(kDerObjectId), &text))
        reader->Fail(CRYPT_E_ASN1_CORRUPT);
    return text;
}

AlgorithmParts TakeAlgorithm(DerReader* reader)
{
    DerReader algorithm = reader->Inside(reader->Take(kDerSequence));
    AlgorithmParts parts;
    parts.objectId = TakeObjectId(&algorithm);
    if (!algorithm.AtEnd())
        parts.parameters = algorithm.TakeAny().whole;
    return parts;
}

std::string_view TakeName(DerReader* reader)
{
    const DerElement name = reader->TakeAny();
    if (name.tag != kDerSequence)
        reader->Fail(CRYPT_E_ASN1_BADTAG);
    return name.whole;
}

PublicKeyParts TakePublicKey(DerReader* reader)
{
    DerReader info = reader->Inside(reader->Take(kDerSequence));
    PublicKeyParts parts;
    parts.algorithm = TakeAlgorithm(&info);
    parts.key = SplitBitString(info.Take(kDerBitString), &info);
    return parts;
}

BitStringParts SplitBitString(std::string_view content, DerReader* reader)
{
    if (content.empty() || static_cast<BYTE>(content[0]) > 7) {
        reader->Fail(CRYPT_E_ASN1_CORRUPT);
        return {};
    }
    return {content.substr(1), static_cast<BYTE>(content[0])};
}

FILETIME TakeTime(DerReader* reader)
{
    const BYTE tag = reader->NextTag();
    const std::string_view element = reader->TakeAny().whole;
    FILETIME time = {};
    if (tag != kDerUtcTime && tag != kDerGeneralizedTime)
        reader->Fail(CRYPT_E_ASN1_BADTAG);
    else if (!TimeFromElement(element, &time))
        reader->Fail(CRYPT_E_ASN1_CORRUPT);
    return time;
}

std::string MakeTime(const FILETIME& time)
{
    const unsigned long long ticks = (static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    const time_t seconds = static_cast<time_t>(
        static_cast<long long>(ticks / static_cast<unsigned long long>(kTicksPerSecond)) - kSecondsTo1970);
    const TimePointer made(seconds <= kLastSecond ? ASN1_TIME_set(nullptr, seconds) : nullptr);
    if (!made)
        return "";
    return MakeDer(static_cast<BYTE>(ASN1_STRING_type(made.get())),
                   BytesOf(ASN1_STRING_get0_data(made.get()), static_cast<size_t>(ASN1_STRING_length(made.get()))));
}

DWORD SmallNumber(std::string_view integerContent, DerReader* reader)
{
    if (integerContent.size() != 1 || static_cast<BYTE>(integerContent[0]) > 0x7F) {
        reader->Fail(CRYPT_E_ASN1_LARGE);
        return 0;
    }
    return static_cast<BYTE>(integerContent[0]);
}

std::string Reversed(std::string_view bytes)
{
    return std::string(bytes.rbegin(), bytes.rend());
}
