// CertStrToName: parses a text and encodes the name.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/der.h"
#include "platform/linux/name_attributes.h"
#include "platform/linux/object_identifier.h"
#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/two_call.h"
#include "platform/linux/win_certificates.h"

namespace {

constexpr std::u16string_view kBlanks = u" \t\r\n";
constexpr std::u16string_view kDividers = u",;";
constexpr std::u16string_view kObjectIdPrefix = u"OID.";
constexpr std::string_view kPrintableMarks = " '()+,-./:=?";

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

bool IsPrintable(char16_t unit)
{
    return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z') || (unit >= u'0' && unit <= u'9') ||
           (unit < 0x80 && kPrintableMarks.find(static_cast<char>(unit)) != kPrintableMarks.npos);
}

bool IsAscii(char16_t unit)
{
    return unit < 0x80;
}

bool All(std::u16string_view text, bool (*test)(char16_t))
{
    return std::all_of(text.begin(), text.end(), test);
}

std::string LowBytes(std::u16string_view text)
{
    std::string bytes;
    for (const char16_t unit : text)
        bytes += static_cast<char>(unit);
    return bytes;
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

std::string EncodeDirectoryText(std::u16string_view text, DWORD strType)
{
    if (All(text, IsPrintable))
        return MakeDer(kDerPrintableString, LowBytes(text));
    if ((strType & CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG) != 0)
        return MakeDer(kDerUtf8String, ToUtf8(text));
    return MakeDer(kDerBmpString, BigEndian(text));
}

LONG EncodeText(NameText kind, std::u16string_view text, DWORD strType, std::string* value)
{
    if (kind == NameText::printable && !All(text, IsPrintable))
        return CRYPT_E_INVALID_PRINTABLE_STRING;
    if (kind == NameText::ia5 && !All(text, IsAscii))
        return CRYPT_E_INVALID_IA5_STRING;
    if (kind == NameText::directory)
        *value = EncodeDirectoryText(text, strType);
    else
        *value = MakeDer(kind == NameText::printable ? kDerPrintableString : kDerIa5String, LowBytes(text));
    return ERROR_SUCCESS;
}

int HexDigit(char16_t unit)
{
    if (unit >= u'0' && unit <= u'9')
        return unit - u'0';
    const char16_t upper = UpperCase(unit);
    return upper >= u'A' && upper <= u'F' ? upper - u'A' + 10 : -1;
}

bool DecodeHex(std::u16string_view text, std::string* bytes)
{
    if (text.size() % 2 != 0)
        return false;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = HexDigit(text[i]);
        const int low = HexDigit(text[i + 1]);
        if (high < 0 || low < 0)
            return false;
        *bytes += static_cast<char>(high * 16 + low);
    }
    return true;
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
