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

std::string EncodeText(NameText kind, std::u16string_view text, DWORD strType)
{
    const std::string bytes = ToUtf8(text);
    // PrintableString, IA5String for other ASCII texts, or T61String.
    const int narrowest =
        ASN1_PRINTABLE_type(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<int>(bytes.size()));
    if (kind == NameText::printable && narrowest != V_ASN1_PRINTABLESTRING)
        throw Failure(CRYPT_E_INVALID_PRINTABLE_STRING);
    if (kind == NameText::ia5 && narrowest == V_ASN1_T61STRING)
        throw Failure(CRYPT_E_INVALID_IA5_STRING);
    if (kind == NameText::ia5)
        return MakeDer(kDerIa5String, bytes);
    if (narrowest == V_ASN1_PRINTABLESTRING)
        return MakeDer(kDerPrintableString, bytes);
    if ((strType & CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG) != 0)
        return MakeDer(kDerUtf8String, bytes);
    return MakeDer(kDerBmpString, BigEndian(text));
}

std::string DecodeHex(std::u16string_view text)
{
    const QuietOpenssl quiet;
    const std::string digits = ToUtf8(text);
    std::string bytes(digits.size() / 2, '\0');
    size_t size = 0;
    if (OPENSSL_hexstr2buf_ex(reinterpret_cast<BYTE*>(bytes.data()), bytes.size(), &size, digits.c_str(), '\0') != 1)
        throw Failure(CRYPT_E_INVALID_X500_STRING);
    return bytes;
}

class NameParser {
  public:
    NameParser(std::u16string_view text, DWORD strType) : text_(text), strType_(strType) {}

    // Where the latest key or value begins: after a failure, the wrong one.
    size_t position() const { return start_; }

    std::string Parse()
    {
        std::string content;
        while (!SkipBlanks())
            content += ParseRelativeName();
        return MakeDer(kDerSequence, content);
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
    std::string ParseRelativeName()
    {
        std::vector<std::string> attributes = {ParseAttribute()};
        while (AtPlus()) {
            at_++;
            attributes.push_back(ParseAttribute());
        }
        if (AtDivider())
            at_++;
        // DER requires a set to be sorted.
        std::sort(attributes.begin(), attributes.end());
        std::string content;
        for (const std::string& attribute : attributes)
            content += attribute;
        return MakeDer(kDerSet, content);
    }

    std::string ParseAttribute()
    {
        start_ = at_;
        const size_t equals = text_.find(u'=', at_);
        std::string objectId;
        NameText kind = NameText::directory;
        if (equals == text_.npos || !ReadKey(Trimmed(text_.substr(at_, equals - at_)), &objectId, &kind))
            throw Failure(CRYPT_E_INVALID_X500_STRING);
        at_ = equals + 1;
        SkipBlanks();
        start_ = at_;
        const std::string value = AtQuote() ? EncodeText(kind, TakeQuoted(), strType_) : EncodePlain(TakePlain(), kind);
        return MakeDer(kDerSequence, MakeDer(kDerObjectId, objectId) + value);
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
    std::u16string TakeQuoted()
    {
        std::u16string value;
        for (at_++; !AtEnd(); at_++) {
            if (text_[at_] == u'"' && text_.substr(at_, 2) != u"\"\"")
                break;
            if (text_[at_] == u'"')
                at_++;
            value += text_[at_];
        }
        const bool closed = !AtEnd();
        at_++;
        if (!closed || !(SkipBlanks() || AtDivider() || AtPlus()))
            throw Failure(CRYPT_E_INVALID_X500_STRING);
        return value;
    }

    std::u16string_view TakePlain()
    {
        const size_t start = at_;
        while (!AtEnd() && !AtDivider() && !AtPlus())
            at_++;
        return Trimmed(text_.substr(start, at_ - start));
    }

    std::string EncodePlain(std::u16string_view text, NameText kind) const
    {
        if (text.find(u'"') != text.npos)
            throw Failure(CRYPT_E_INVALID_X500_STRING);
        if (text.empty() || text.front() != u'#')
            return EncodeText(kind, text, strType_);
        return MakeDer(kDerOctetString, DecodeHex(text.substr(1)));
    }

    std::u16string_view text_;
    DWORD strType_;
    size_t at_ = 0;
    size_t start_ = 0;
};

bool IsTextError(LONG error)
{
    return error == CRYPT_E_INVALID_X500_STRING || error == CRYPT_E_INVALID_PRINTABLE_STRING ||
           error == CRYPT_E_INVALID_IA5_STRING;
}

}  // namespace

BOOL WINAPI CertStrToNameW(DWORD, LPCWSTR text, DWORD strType, void*, BYTE* encoded, DWORD* size, LPCWSTR* errorAt)
{
    if (errorAt)
        *errorAt = nullptr;
    return Succeeds([&]() -> LONG {
        if (!size || (strType & ~CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG) != CERT_X500_NAME_STR)
            return E_INVALIDARG;
        NameParser parser(ViewOf(text), strType);
        std::string name;
        const LONG error = CodeOf([&] { name = parser.Parse(); });
        if (error == ERROR_SUCCESS)
            return GiveOut(name, encoded, size);
        *size = 0;
        if (errorAt && IsTextError(error))
            *errorAt = text + parser.position();
        return error;
    });
}

BOOL WINAPI CertStrToNameA(DWORD encodingType, LPCSTR text, DWORD strType, void* reserved, BYTE* encoded, DWORD* size,
                           LPCSTR* errorAt)
{
    return Succeeds([&] {
        const std::u16string wide = ToUtf16(text ? text : "");
        LPCWSTR wideErrorAt = nullptr;
        const BOOL done = CertStrToNameW(encodingType, wide.c_str(), strType, reserved, encoded, size, &wideErrorAt);
        if (errorAt)
            *errorAt =
                wideErrorAt
                    ? text + ToUtf8(std::u16string_view(wide.c_str(), static_cast<size_t>(wideErrorAt - wide.c_str())))
                                 .size()
                    : nullptr;
        return done ? LONG{ERROR_SUCCESS} : static_cast<LONG>(GetLastError());
    });
}
