// CertNameToStrW: the text of a name.
#include <string.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/linux/name_attributes.h"
#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/win_certificates.h"
#include "platform/linux/x509_parts.h"

namespace {

constexpr std::u16string_view kQuoted = u",+=\"\n<>#;";
constexpr std::u16string_view kBlanks = u" \t\r\n";

std::u16string FromLatin1(std::string_view bytes)
{
    std::u16string text;
    for (const char byte : bytes)
        text += static_cast<BYTE>(byte);
    return text;
}

// Big-endian units of 2 or 4 bytes. False for a partial unit or an invalid code point.
template <size_t kUnitSize>
bool FromUnits(std::string_view bytes, std::u16string* text)
{
    if (bytes.size() % kUnitSize != 0)
        return false;
    for (size_t i = 0; i < bytes.size(); i += kUnitSize) {
        uint32_t value = 0;
        for (size_t j = 0; j < kUnitSize; j++)
            value = (value << 8) | static_cast<BYTE>(bytes[i + j]);
        if (value > 0x10FFFF)
            return false;
        char16_t units[2];
        // Surrogates in a BMPString are kept.
        text->append(units, PutUtf16(static_cast<char32_t>(value), units));
    }
    return true;
}

// False when the value is not a string type.
bool ReadValue(const DerElement& value, std::u16string* text)
{
    switch (value.tag) {
        case kDerUtf8String:
            *text = ToUtf16(value.content);
            return true;
        case kDerT61String:
            // Often used for UTF-8 in practice, so valid UTF-8 is read as such.
            if (!ToUtf16Strict(value.content, text))
                *text = FromLatin1(value.content);
            return true;
        case kDerNumericString:
        case kDerPrintableString:
        case kDerVideotexString:
        case kDerIa5String:
        case kDerGraphicString:
        case kDerVisibleString:
        case kDerGeneralString:
            *text = FromLatin1(value.content);
            return true;
        case kDerBmpString:
            return FromUnits<2>(value.content, text);
        case kDerUniversalString:
            return FromUnits<4>(value.content, text);
        default:
            return false;
    }
}

bool NeedsQuotes(const std::u16string& value)
{
    return value.empty() || value.find_first_of(kQuoted) != value.npos || kBlanks.find(value.front()) != kBlanks.npos ||
           kBlanks.find(value.back()) != kBlanks.npos;
}

std::u16string Quoted(const std::u16string& value)
{
    std::u16string text = u"\"";
    for (const char16_t unit : value)
        text.append(unit == u'"' ? 2 : 1, unit);
    return text += u'"';
}

std::u16string ValueText(const DerElement& value)
{
    std::u16string text;
    if (!ReadValue(value, &text))
        return u"#" + ToUtf16(HexOf(value.tag == kDerOctetString ? value.content : value.whole));
    return NeedsQuotes(text) ? Quoted(text) : text;
}

// Includes the equals sign.
std::u16string KeyText(const std::string& objectId, DWORD strType)
{
    if (strType == CERT_SIMPLE_NAME_STR)
        return u"";
    const NameAttribute* known = FindAttributeById(objectId);
    return (known ? std::u16string(known->key) : u"OID." + ToUtf16(objectId)) + u"=";
}

std::u16string RelativeNameText(DerReader* set, DWORD strType)
{
    std::u16string text;
    while (!set->AtEnd()) {
        DerReader attribute = set->Inside(set->Take(kDerSequence));
        const std::string objectId = TakeObjectId(&attribute);
        const DerElement value = attribute.TakeAny();
        if (!text.empty())
            text += u" + ";
        text += KeyText(objectId, strType) + ValueText(value);
    }
    return text;
}

std::u16string WholeNameText(const CERT_NAME_BLOB& name, DWORD strType)
{
    std::u16string text;
    LONG error = ERROR_SUCCESS;
    DerReader outer(BytesOf(name.pbData, name.cbData), &error);
    DerReader sequence = outer.Inside(outer.Take(kDerSequence));
    while (!sequence.AtEnd()) {
        DerReader set = sequence.Inside(sequence.Take(kDerSet));
        if (!text.empty())
            text += u", ";
        text += RelativeNameText(&set, strType);
    }
    Check(error);
    return text;
}

}  // namespace

DWORD WINAPI CertNameToStrW(DWORD, PCERT_NAME_BLOB name, DWORD strType, LPWSTR text, DWORD room)
{
    DWORD count = 1;
    if (text && room > 0)
        text[0] = 0;
    Succeeds([&]() -> LONG {
        if (!name || (strType != CERT_SIMPLE_NAME_STR && strType != CERT_X500_NAME_STR))
            return E_INVALIDARG;
        const std::u16string whole = WholeNameText(*name, strType);
        size_t length = whole.size();
        if (text && room > 0) {
            length = std::min<size_t>(length, room - 1);
            memcpy(text, whole.data(), length * sizeof(WCHAR));
            text[length] = 0;
        }
        count = static_cast<DWORD>(length + 1);
        return ERROR_SUCCESS;
    });
    return count;
}
