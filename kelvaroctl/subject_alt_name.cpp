#include "kelvaroctl/subject_alt_name.h"

#include <algorithm>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/places.h"

namespace kelvaroctl {

namespace {

Bytes ParseAddress(const std::string& text)
{
    Bytes address;
    if (!ParseIpAddress(text, &address))
        throw UsageFailure("'" + text + "' is not an IP address");
    return address;
}

// The names are IA5 strings; international names have an ASCII form.
Bytes ParseAscii(const std::string& text)
{
    if (text.empty() || std::any_of(text.begin(), text.end(), [](char ch) { return ch <= ' ' || ch > '~'; }))
        throw UsageFailure("'" + text + "' must be ASCII without spaces; write an international name in its xn-- form");
    return Bytes(text.begin(), text.end());
}

Bytes ParseEmail(const std::string& text)
{
    const size_t at = text.find('@');
    if (at == 0 || at == std::string::npos || at + 1 == text.size() || text.find('@', at + 1) != std::string::npos)
        throw UsageFailure("'" + text + "' is not an e-mail address");
    return ParseAscii(text);
}

struct Kind {
    const char* word;
    BYTE tag;
    Bytes (*parse)(const std::string& text);
};

constexpr Kind kKinds[] = {
    {"email", 0x81, ParseEmail},
    {"dns", 0x82, ParseAscii},
    {"uri", 0x86, ParseAscii},
    {"ip", 0x87, ParseAddress},
};

}  // namespace

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
