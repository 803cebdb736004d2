#include "kelvaroctl/certificate_request.h"

#include <algorithm>

#include "kelvaroctl/der.h"
#include "kelvaroctl/doctor/sockets.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/hash.h"

namespace kelvaroctl {

constexpr BYTE kOctetString = 0x04;
constexpr BYTE kSet = 0x31;
constexpr BYTE kAttributes = 0xA0;
constexpr BYTE kBoolean = 0x01;

const Bytes kExtensionRequest = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x0E};
const Bytes kSubjectAltName = {0x55, 0x1D, 0x11};

// The names as an extension request; critical if the subject is empty.
static Bytes Attributes(const RequestContent& content)
{
    if (content.names.empty())
        return DerElement(kAttributes, Bytes());
    Bytes names;
    for (const SubjectAltName& name : content.names) {
        const Bytes element = DerElement(name.tag, name.content);
        names.insert(names.end(), element.begin(), element.end());
    }
    const bool critical = content.subject == DerSequence({});
    const Bytes extension =
        DerSequence({DerObjectId(kSubjectAltName), critical ? DerElement(kBoolean, Bytes{0xFF}) : Bytes(),
                     DerElement(kOctetString, DerSequence({names}))});
    return DerElement(kAttributes,
                      DerSequence({DerObjectId(kExtensionRequest), DerElement(kSet, DerSequence({extension}))}));
}

Bytes EncodeName(const std::string& text)
{
    const WideText wide = ToWide(text);
    // Characters outside PrintableString are encoded as UTF-8, as authorities expect today.
    constexpr DWORD kForm = CERT_X500_NAME_STR | CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG;
    const WCHAR* wrong = nullptr;
    DWORD size = 0;
    if (!CertStrToNameW(X509_ASN_ENCODING, wide.c_str(), kForm, nullptr, nullptr, &size, &wrong)) {
        const std::string where = wrong && *wrong ? " at '" + ToNarrow(wrong) + "'" : "";
        throw UsageFailure("not a valid subject: '" + text + "'" + where +
                           "; write it like CN=web01, O=\"Acme, Inc.\", C=US");
    }
    Bytes name(size);
    if (!CertStrToNameW(X509_ASN_ENCODING, wide.c_str(), kForm, nullptr, name.data(), &size, nullptr))
        throw InternalFailure("the platform cannot encode the name");
    name.resize(size);
    return name;
}

Bytes MakeRequest(const RequestContent& content, const PublicKey& key, const DigestSigner& sign)
{
    const SignatureAlgorithm& signature = AlgorithmFor(key);
    const Bytes version = DerInteger(Bytes());
    const Bytes info = DerSequence({version, content.subject, SubjectPublicKeyInfo(key), Attributes(content)});
    const Bytes raw = sign(signature, Digest(signature.hash, signature.digestSize, info));
    const Bytes algorithm = key.isRsa ? DerSequence({DerObjectId(signature.objectId), DerNull()})
                                      : DerSequence({DerObjectId(signature.objectId)});
    return DerSequence({info, algorithm, DerBitString(key.isRsa ? raw : DerFromRawSignature(raw))});
}

static Bytes ParseAddress(const std::string& text)
{
    Bytes address;
    if (!ParseIpAddress(text, &address))
        throw UsageFailure("'" + text + "' is not an IP address");
    return address;
}

// The names are IA5 strings; international names have an ASCII form.
static Bytes ParseAscii(const std::string& text)
{
    if (text.empty() || std::any_of(text.begin(), text.end(), [](char ch) { return ch <= ' ' || ch > '~'; }))
        throw UsageFailure("'" + text + "' must be ASCII without spaces; write an international name in its xn-- form");
    return Bytes(text.begin(), text.end());
}

static Bytes ParseEmail(const std::string& text)
{
    const size_t at = text.find('@');
    if (at == 0 || at == std::string::npos || at + 1 == text.size() || text.find('@', at + 1) != std::string::npos)
        throw UsageFailure("'" + text + "' is not an e-mail address");
    return ParseAscii(text);
}

namespace {
struct Kind {
    const char* word;
    BYTE tag;
    Bytes (*parse)(const std::string& text);
};
}  // namespace

constexpr Kind kKinds[] = {
    {"email", 0x81, ParseEmail},
    {"dns", 0x82, ParseAscii},
    {"uri", 0x86, ParseAscii},
    {"ip", 0x87, ParseAddress},
};

SubjectAltName ParseSubjectAltName(const std::string& text)
{
    const size_t colon = text.find(':');
    for (const Kind& kind : kKinds) {
        if (colon != std::string::npos && EqualIgnoringCase(std::string_view(text).substr(0, colon), kind.word))
            return {kind.tag, kind.parse(text.substr(colon + 1))};
    }
    throw UsageFailure("'" + text +
                       "' is not an alternative name; write dns:NAME, ip:ADDRESS, email:ADDRESS or uri:URI");
}

}  // namespace kelvaroctl
