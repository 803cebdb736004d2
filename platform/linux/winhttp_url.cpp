#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/winhttp_message.h"

namespace {

using winhttp::WideView;

struct Place {
    WideView host;  // a part of the URL that is split
    INTERNET_PORT port = 0;
};

bool StartsWith(WideView text, WideView prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

int HexValue(WCHAR c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// The port of a scheme; 0 for one that is not offered.
INTERNET_PORT UsualPort(WideView scheme)
{
    if (EqualIgnoringCase(scheme, u"http"))
        return INTERNET_DEFAULT_HTTP_PORT;
    return EqualIgnoringCase(scheme, u"https") ? INTERNET_DEFAULT_HTTPS_PORT : 0;
}

// An empty port leaves *port.
bool ParsePort(WideView digits, INTERNET_PORT* port)
{
    if (digits.empty())
        return true;
    unsigned value = 0;
    for (WCHAR c : digits) {
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + (c - unsigned{'0'});
        if (value > 0xFFFF)
            return false;
    }
    *port = static_cast<INTERNET_PORT>(value);
    return true;
}

bool SplitAuthority(WideView authority, Place* place)
{
    const size_t at = authority.rfind(u'@');
    authority.remove_prefix(at == WideView::npos ? 0 : at + 1);
    size_t end = authority.find(u':');
    if (StartsWith(authority, u"[")) {
        end = authority.find(u']');
        if (end == WideView::npos)
            return false;
        ++end;
    }
    place->host = authority.substr(0, end);
    WideView port = authority.substr(place->host.size());
    if (!port.empty() && port.front() != ':')
        return false;
    port.remove_prefix(port.empty() ? 0 : 1);
    return !place->host.empty() && ParsePort(port, &place->port);
}

// 0 or a platform error code.
LONG Split(WideView url, Place* place)
{
    const size_t colon = url.find(u':');
    if (colon == WideView::npos)
        return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
    place->port = UsualPort(url.substr(0, colon));
    if (place->port == 0)
        return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
    url.remove_prefix(colon + 1);
    if (!StartsWith(url, u"//"))
        return ERROR_WINHTTP_INVALID_URL;
    url.remove_prefix(2);

    return SplitAuthority(url.substr(0, url.find_first_of(u"/?#")), place) ? 0 : ERROR_WINHTTP_INVALID_URL;
}

// A malformed escape stays as it is.
std::basic_string<WCHAR> Decode(WideView text)
{
    std::basic_string<WCHAR> out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const bool escape =
            text[i] == '%' && i + 2 < text.size() && HexValue(text[i + 1]) >= 0 && HexValue(text[i + 2]) >= 0;
        out += escape ? static_cast<WCHAR>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2])) : text[i];
        i += escape ? 2 : 0;
    }
    return out;
}

// Whether nothing but the host is asked for, with a buffer of its own.
bool AsksForHostAlone(const URL_COMPONENTS& parts)
{
    return parts.lpszHostName != nullptr && parts.lpszScheme == nullptr && parts.dwSchemeLength == 0 &&
           parts.lpszUserName == nullptr && parts.dwUserNameLength == 0 && parts.lpszPassword == nullptr &&
           parts.dwPasswordLength == 0 && parts.lpszUrlPath == nullptr && parts.dwUrlPathLength == 0 &&
           parts.lpszExtraInfo == nullptr && parts.dwExtraInfoLength == 0;
}

LONG Store(const Place& place, LPURL_COMPONENTS to)
{
    to->nPort = place.port;
    const std::basic_string<WCHAR> host = Decode(place.host);
    const DWORD room = to->dwHostNameLength;
    const bool fits = room > host.size();
    to->dwHostNameLength = static_cast<DWORD>(host.size()) + (fits ? 0 : 1);
    if (!fits)
        return ERROR_INSUFFICIENT_BUFFER;
    host.copy(to->lpszHostName, host.size());
    to->lpszHostName[host.size()] = 0;
    return 0;
}

}  // namespace

BOOL WINAPI WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, LPURL_COMPONENTS components)
{
    const WideView text = url == nullptr ? WideView() : length == 0 ? WideView(url) : WideView(url, length);
    if (text.empty() || flags != ICU_DECODE || components == nullptr ||
        components->dwStructSize != sizeof(URL_COMPONENTS) || !AsksForHostAlone(*components))
        return Fail(ERROR_INVALID_PARAMETER);
    return Succeeds([&] {
        Place place;
        const LONG error = Split(text, &place);
        return error == 0 ? Store(place, components) : error;
    });
}
