// CertStrToName: parses a text and encodes the name.
#include <openssl/asn1.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/der.h"
#include "platform/linux/name_attributes.h"
#include "platform/linux/object_identifier.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/two_call.h"
#include "platform/linux/win_certificates.h"

namespace {

constexpr std::u16string_view kBlanks = u" \t\r\n";
constexpr std::u16string_view kDividers = u",;";
constexpr std::u16string_view kObjectIdPrefix = u"OID.";

bool IsBlank(char16_t unit)
{
    return kBlanks.find(unit) != kBlanks.npos;
}

std::u16string_view Trimmed(std::u16string_view text)
{
    while (!text.empty() && IsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string BigEndian(std::u16string_view text)
{
    std::string bytes;
    for (const char16_t unit : text) {
        bytes += static_cast<char>(unit >> 8);
        bytes += static_cast<char>(unit & 0xFF);
    }
    return bytes;
}

LONG EncodeText(NameText kind, std::u16string_view text, DWORD strType, std::string* value)
{
    const std::string bytes = ToUtf8(text);
    // PrintableString, IA5String for other ASCII texts, or T61String.
    const int narrowest =
        ASN1_PRINTABLE_type(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<int>(bytes.size()));
    if (kind == NameText::printable && narrowest != V_ASN1_PRINTABLESTRING)
        return CRYPT_E_INVALID_PRINTABLE_STRING;
    if (kind == NameText::ia5 && narrowest == V_ASN1_T61STRING)
        return CRYPT_E_INVALID_IA5_STRING;
    if (kind == NameText::ia5)
        *value = MakeDer(kDerIa5String, bytes);
    else if (narrowest == V_ASN1_PRINTABLESTRING)
        *value = MakeDer(kDerPrintableString, bytes);
    else if ((strType & CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG) != 0)
        *value = MakeDer(kDerUtf8String, bytes);
    else
        *value = MakeDer(kDerBmpString, BigEndian(text));
    return ERROR_SUCCESS;
}

bool DecodeHex(std::u16string_view text, std::string* bytes)
{
    const QuietOpenssl quiet;
    const std::string digits = ToUtf8(text);
    size_t size = 0;
    bytes->resize(digits.size() / 2);
    return OPENSSL_hexstr2buf_ex(reinterpret_cast<BYTE*>(bytes->data()), bytes->size(), &size, digits.c_str(), '\0') ==
           1;
}

class NameParser {
  public:
    NameParser(std::u16string_view text, DWORD strType) : text_(text), strType_(strType) {}

    // After a failure: where it occurred.
    size_t position() const { return at_; }

    LONG Parse(std::string* name)
    {
        std::string content;
        while (!SkipBlanks()) {
            std::string part;
            const LONG error = ParseRelativeName(&part);
            if (error != ERROR_SUCCESS)
                return error;
            content += part;
        }
        *name = MakeDer(kDerSequence, content);
        return ERROR_SUCCESS;
    }

  private:
    bool AtEnd() const { return at_ == text_.size(); }
    bool AtDivider() const { return !AtEnd() && kDividers.find(text_[at_]) != kDividers.npos; }
    bool AtPlus() const { return !AtEnd() && text_[at_] == u'+'; }
    bool AtQuote() const { return !AtEnd() && text_[at_] == u'"'; }

    // Returns true at the end of the text.
    bool SkipBlanks()
    {
        while (!AtEnd() && IsBlank(text_[at_]))
            at_++;
        return AtEnd();
    }

    // Up to and including the separator.
    LONG ParseRelativeName(std::string* part)
    {
        std::vector<std::string> attributes;
        bool more = true;
        while (more) {
            std::string attribute;
            const LONG error = ParseAttribute(&attribute);
            if (error != ERROR_SUCCESS)
                return error;
            attributes.push_back(std::move(attribute));
            more = AtPlus();
            if (more)
                at_++;
        }
        if (AtDivider())
            at_++;
        // DER requires a set to be sorted.
        std::sort(attributes.begin(), attributes.end());
        std::string content;
        for (const std::string& attribute : attributes)
            content += attribute;
        *part = MakeDer(kDerSet, content);
        return ERROR_SUCCESS;
    }

    LONG ParseAttribute(std::string* attribute)
    {
        const size_t start = at_;
        const size_t equals = text_.find(u'=', at_);
        std::string objectId;
        NameText kind = NameText::directory;
        if (equals == text_.npos || !ReadKey(Trimmed(text_.substr(start, equals - start)), &objectId, &kind))
            return CRYPT_E_INVALID_X500_STRING;
        at_ = equals + 1;
        SkipBlanks();
        const size_t valueStart = at_;
        std::string value;
        LONG error = ERROR_SUCCESS;
        if (AtQuote()) {
            std::u16string text;
            error = TakeQuoted(&text) ? EncodeText(kind, text, strType_, &value) : CRYPT_E_INVALID_X500_STRING;
        } else {
            error = EncodePlain(TakePlain(), kind, &value);
        }
        if (error != ERROR_SUCCESS) {
            at_ = valueStart;
            return error;
        }
        *attribute = MakeDer(kDerSequence, MakeDer(kDerObjectId, objectId) + value);
        return ERROR_SUCCESS;
    }

    static bool ReadKey(std::u16string_view key, std::string* objectId, NameText* kind)
    {
        const NameAttribute* known = FindAttributeByKey(key);
        if (EqualIgnoringCase(key.substr(0, kObjectIdPrefix.size()), kObjectIdPrefix))
            key.remove_prefix(kObjectIdPrefix.size());
        const std::string dotted = known ? std::string(known->objectId) : ToUtf8(key);
        if (!known)
            known = FindAttributeById(dotted);
        if (known)
            *kind = known->text;
        return ObjectIdFromText(dotted, objectId);
    }

    // The text between quotes, with doubled quotes reduced to one. Only blanks may follow before the next separator.
    bool TakeQuoted(std::u16string* value)
    {
        for (at_++; !AtEnd(); at_++) {
            if (text_[at_] == u'"' && text_.substr(at_, 2) != u"\"\"")
                break;
            if (text_[at_] == u'"')
                at_++;
            *value += text_[at_];
        }
        if (AtEnd())
            return false;
        at_++;
        return SkipBlanks() || AtDivider() || AtPlus();
    }

    std::u16string_view TakePlain()
    {
        const size_t start = at_;
        while (!AtEnd() && !AtDivider() && !AtPlus())
            at_++;
        return Trimmed(text_.substr(start, at_ - start));
    }

    LONG EncodePlain(std::u16string_view text, NameText kind, std::string* value) const
    {
        if (text.find(u'"') != text.npos)
            return CRYPT_E_INVALID_X500_STRING;
        if (text.empty() || text.front() != u'#')
            return EncodeText(kind, text, strType_, value);
        std::string bytes;
        if (!DecodeHex(text.substr(1), &bytes))
            return CRYPT_E_INVALID_X500_STRING;
        *value = MakeDer(kDerOctetString, bytes);
        return ERROR_SUCCESS;
    }

    std::u16string_view text_;
    DWORD strType_;
    size_t at_ = 0;
};

// *errorAt: the offset of a syntax error in `text`, in UTF-16 units.
LONG EncodeName(std::u16string_view text, DWORD strType, BYTE* encoded, DWORD* size, size_t* errorAt)
{
    if (!size || (strType & ~CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG) != CERT_X500_NAME_STR)
        return E_INVALIDARG;
    NameParser parser(text, strType);
    std::string name;
    const LONG error = parser.Parse(&name);
    *errorAt = parser.position();
    if (error != ERROR_SUCCESS)
        *size = 0;
    return error == ERROR_SUCCESS ? GiveOut(name, encoded, size) : error;
}

bool IsTextError(LONG error)
{
    return error == CRYPT_E_INVALID_X500_STRING || error == CRYPT_E_INVALID_PRINTABLE_STRING ||
           error == CRYPT_E_INVALID_IA5_STRING;
}

}  // namespace

BOOL WINAPI CertStrToNameW(DWORD, LPCWSTR text, DWORD strType, void*, BYTE* encoded, DWORD* size, LPCWSTR* errorAt)
{
    return Succeeds([&]() -> LONG {
        size_t good = 0;
        const LONG error = EncodeName(ViewOf(text), strType, encoded, size, &good);
        if (errorAt)
            *errorAt = IsTextError(error) ? text + good : nullptr;
        return error;
    });
}

BOOL WINAPI CertStrToNameA(DWORD, LPCSTR text, DWORD strType, void*, BYTE* encoded, DWORD* size, LPCSTR* errorAt)
{
    return Succeeds([&]() -> LONG {
        const std::u16string wide = ToUtf16(text ? text : "");
        size_t good = 0;
        const LONG error = EncodeName(wide, strType, encoded, size, &good);
        if (errorAt)
            *errorAt = IsTextError(error) ? text + ToUtf8(std::u16string_view(wide).substr(0, good)).size() : nullptr;
        return error;
    });
}
