#include "vaultsim/distinguished_name.h"

#include <openssl/obj_mac.h>
#include <openssl/objects.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "vaultsim/text.h"

namespace vaultsim {

namespace {

struct TypeName {
    const char* text;
    int nid;
};

constexpr TypeName kTypes[] = {
    {"CN", NID_commonName},
    {"OU", NID_organizationalUnitName},
    {"O", NID_organizationName},
    {"L", NID_localityName},
    {"S", NID_stateOrProvinceName},
    {"ST", NID_stateOrProvinceName},
    {"C", NID_countryName},
    {"E", NID_pkcs9_emailAddress},
    {"DC", NID_domainComponent},
    {"STREET", NID_streetAddress},
    {"T", NID_title},
    {"G", NID_givenName},
    {"SN", NID_surname},
    {"I", NID_initials},
    {"SERIALNUMBER", NID_serialNumber},
};

struct NamePart {
    int nid;
    std::string value;
};
using Element = std::vector<NamePart>;

void SkipBlanks(const std::string& text, size_t& at)
{
    while (at < text.size() && text[at] == ' ')
        at++;
}

int TypeOf(std::string name)
{
    while (!name.empty() && name.back() == ' ')
        name.pop_back();
    for (const TypeName& type : kTypes) {
        if (EqualsNoCase(name, type.text))
            return type.nid;
    }
    if (name.size() > 4 && EqualsNoCase(name.substr(0, 4), "OID."))
        name.erase(0, 4);
    if (name.find_first_not_of("0123456789.") != std::string::npos)
        return NID_undef;
    const int known = OBJ_txt2nid(name.c_str());
    return known != NID_undef ? known : OBJ_create(name.c_str(), nullptr, nullptr);
}

// A value ends at "," ";" or "+" outside quotes; inside quotes, two quotes mean one.
std::optional<std::string> ReadValue(const std::string& text, size_t& at)
{
    std::string value;
    if (at < text.size() && text[at] == '"') {
        for (at++;; at++) {
            if (at >= text.size())
                return std::nullopt;
            if (text[at] == '"') {
                if (at + 1 >= text.size() || text[at + 1] != '"')
                    break;
                at++;
            }
            value += text[at];
        }
        at++;
        SkipBlanks(text, at);
        return value;
    }
    while (at < text.size() && text[at] != ',' && text[at] != ';' && text[at] != '+') {
        if (text[at] == '"' || text[at] == '=')
            return std::nullopt;
        value += text[at++];
    }
    while (!value.empty() && value.back() == ' ')
        value.pop_back();
    return value;
}

bool IsPrintable(const std::string& value)
{
    return std::all_of(value.begin(), value.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               std::string(" '()+,-./:=?").find(c) != std::string::npos;
    });
}

int StringType(int nid, const std::string& value)
{
    if (nid == NID_domainComponent || nid == NID_pkcs9_emailAddress)
        return V_ASN1_IA5STRING;
    return IsPrintable(value) ? V_ASN1_PRINTABLESTRING : V_ASN1_UTF8STRING;
}

std::optional<std::vector<Element>> ReadElements(const std::string& text)
{
    std::vector<Element> elements(1);
    for (size_t at = 0;;) {
        SkipBlanks(text, at);
        const size_t equals = text.find('=', at);
        if (equals == std::string::npos)
            return std::nullopt;
        const int nid = TypeOf(text.substr(at, equals - at));
        at = equals + 1;
        SkipBlanks(text, at);
        const std::optional<std::string> value = ReadValue(text, at);
        if (nid == NID_undef || !value || value->empty())
            return std::nullopt;
        elements.back().push_back({nid, *value});
        if (at == text.size())
            return elements;
        const char separator = text[at++];
        if (separator == ',' || separator == ';')
            elements.emplace_back();
        else if (separator != '+')
            return std::nullopt;
    }
}

}  // namespace

X509NamePtr ParseName(const std::string& text)
{
    const auto elements = ReadElements(text);
    if (!elements)
        return nullptr;
    X509NamePtr name(X509_NAME_new());
    for (auto element = elements->rbegin(); element != elements->rend(); ++element) {
        for (const NamePart& part : *element) {
            const int set = &part == &element->front() ? 0 : -1;
            const auto* bytes = reinterpret_cast<const unsigned char*>(part.value.data());
            if (X509_NAME_add_entry_by_NID(name.get(), part.nid, StringType(part.nid, part.value), bytes,
                                           static_cast<int>(part.value.size()), -1, set) != 1)
                return nullptr;
        }
    }
    return name;
}

}  // namespace vaultsim
