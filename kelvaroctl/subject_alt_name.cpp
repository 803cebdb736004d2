// Addresses are parsed by hand, so that every system accepts the same ones: inet_pton differs in leading zeros and
// gaps.
#include "kelvaroctl/subject_alt_name.h"

#include <algorithm>
#include <vector>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

namespace {

constexpr size_t kIp4Bytes = 4;
constexpr size_t kIp6Bytes = 16;

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t at = text.find(separator); at != std::string::npos; at = text.find(separator, begin)) {
        parts.push_back(text.substr(begin, at - begin));
        begin = at + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

// Digits only. False for an empty text or more than `longest` digits.
bool ParseDigits(const std::string& text, unsigned base, size_t longest, unsigned* number)
{
    const std::string digits = std::string("0123456789abcdef").substr(0, base);
    *number = 0;
    for (const char ch : text) {
        const size_t value = digits.find(ch >= 'A' && ch <= 'F' ? static_cast<char>(ch - 'A' + 'a') : ch);
        if (value == std::string::npos)
            return false;
        *number = *number * base + static_cast<unsigned>(value);
        if (text.size() > longest)
            return false;
    }
    return !text.empty();
}

bool ParseIp4(const std::string& text, Bytes* address)
{
    const std::vector<std::string> parts = Split(text, '.');
    address->clear();
    for (const std::string& part : parts) {
        unsigned number = 0;
        if (!ParseDigits(part, 10, 3, &number) || number > 255)
            return false;
        address->push_back(static_cast<BYTE>(number));
    }
    return address->size() == kIp4Bytes;
}

// Groups between colons. atEnd: the last groups of the address, where an IPv4 address may replace the last two.
bool ParseGroups(const std::string& text, bool atEnd, Bytes* bytes)
{
    bytes->clear();
    if (text.empty())
        return true;
    const std::vector<std::string> groups = Split(text, ':');
    for (size_t at = 0; at < groups.size(); ++at) {
        Bytes last;
        unsigned number = 0;
        if (atEnd && at + 1 == groups.size() && ParseIp4(groups[at], &last)) {
            bytes->insert(bytes->end(), last.begin(), last.end());
        } else if (ParseDigits(groups[at], 16, 4, &number)) {
            bytes->push_back(static_cast<BYTE>(number >> 8));
            bytes->push_back(static_cast<BYTE>(number));
        } else {
            return false;
        }
    }
    return true;
}

bool ParseIp6(const std::string& text, Bytes* address)
{
    const size_t gap = text.find("::");
    Bytes tail;
    if (!ParseGroups(text.substr(0, gap), gap == std::string::npos, address))
        return false;
    if (gap == std::string::npos)
        return address->size() == kIp6Bytes;
    // The gap replaces at least one group.
    if (!ParseGroups(text.substr(gap + 2), true, &tail) || address->size() + tail.size() > kIp6Bytes - 2)
        return false;
    address->resize(kIp6Bytes - tail.size());
    address->insert(address->end(), tail.begin(), tail.end());
    return true;
}

Bytes ParseAddress(const std::string& text)
{
    Bytes address;
    if (!ParseIp4(text, &address) && !ParseIp6(text, &address))
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
