#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/winhttp_message.h"

namespace {

using winhttp::WideView;

// Views into the URL that is split.
struct Parts {
    WideView scheme;
    WideView userName;
    WideView password;
    WideView host;
    WideView path;
    WideView extra;
    INTERNET_SCHEME number = 0;
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

INTERNET_SCHEME SchemeNumber(WideView scheme)
{
    if (EqualIgnoringCase(scheme, u"http"))
        return INTERNET_SCHEME_HTTP;
    return EqualIgnoringCase(scheme, u"https") ? INTERNET_SCHEME_HTTPS : 0;
}

// An empty port stands for the scheme's own.
bool ParsePort(WideView digits, INTERNET_SCHEME scheme, INTERNET_PORT* port)
{
    *port = scheme == INTERNET_SCHEME_HTTPS ? INTERNET_DEFAULT_HTTPS_PORT : INTERNET_DEFAULT_HTTP_PORT;
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

bool SplitAuthority(WideView authority, Parts* parts)
{
    const size_t at = authority.rfind(u'@');
    if (at != WideView::npos) {
        const WideView user = authority.substr(0, at);
        const size_t colon = user.find(u':');
        parts->userName = user.substr(0, colon);
        parts->password = colon != WideView::npos ? user.substr(colon + 1) : WideView();
        authority.remove_prefix(at + 1);
    }
    size_t end = authority.find(u':');
    if (StartsWith(authority, u"[")) {
        end = authority.find(u']');
        if (end == WideView::npos)
            return false;
        ++end;
    }
    parts->host = authority.substr(0, end);
    WideView port = authority.substr(parts->host.size());
    if (!port.empty() && port.front() != ':')
        return false;
    port.remove_prefix(port.empty() ? 0 : 1);
    return !parts->host.empty() && ParsePort(port, parts->number, &parts->port);
}

// 0 or a platform error code.
LONG Split(WideView url, Parts* parts)
{
    const size_t colon = url.find(u':');
    if (colon == WideView::npos)
        return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
    parts->scheme = url.substr(0, colon);
    parts->number = SchemeNumber(parts->scheme);
    if (parts->number == 0)
        return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
    url.remove_prefix(colon + 1);
    if (!StartsWith(url, u"//"))
        return ERROR_WINHTTP_INVALID_URL;
    url.remove_prefix(2);

    const WideView authority = url.substr(0, url.find_first_of(u"/?#"));
    if (!SplitAuthority(authority, parts))
        return ERROR_WINHTTP_INVALID_URL;
    url.remove_prefix(authority.size());
    parts->path = url.substr(0, url.find_first_of(u"?#"));
    parts->extra = url.substr(parts->path.size());
    return 0;
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

// One component in the form that the caller asked for: a buffer of its own, a pointer into the URL, or not at all.
LONG Store(WideView text, DWORD flags, LPWSTR* component, DWORD* length)
{
    if (*component == nullptr) {
        if (*length == 0)
            return 0;
        if ((flags & ICU_DECODE) != 0)
            return ERROR_INVALID_PARAMETER;
        *component = const_cast<LPWSTR>(text.data());
        *length = static_cast<DWORD>(text.size());
        return 0;
    }
    std::basic_string<WCHAR> decoded;
    if ((flags & ICU_DECODE) != 0) {
        decoded = Decode(text);
        text = decoded;
    }
    const DWORD room = *length;
    if (room <= text.size()) {
        *length = static_cast<DWORD>(text.size()) + 1;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    text.copy(*component, text.size());
    (*component)[text.size()] = 0;
    *length = static_cast<DWORD>(text.size());
    return 0;
}

LONG StoreAll(Parts parts, DWORD flags, LPURL_COMPONENTS to)
{
    // Who doesn't ask for the query gets it as the end of the path.
    if (to->lpszExtraInfo == nullptr && to->dwExtraInfoLength == 0)
        parts.path = WideView(parts.path.data(), parts.path.size() + parts.extra.size());
    to->nScheme = parts.number;
    to->nPort = parts.port;
    const struct {
        WideView text;
        LPWSTR* component;
        DWORD* length;
    } rows[] = {
        {parts.scheme, &to->lpszScheme, &to->dwSchemeLength},
        {parts.userName, &to->lpszUserName, &to->dwUserNameLength},
        {parts.password, &to->lpszPassword, &to->dwPasswordLength},
        {parts.host, &to->lpszHostName, &to->dwHostNameLength},
        {parts.path, &to->lpszUrlPath, &to->dwUrlPathLength},
        {parts.extra, &to->lpszExtraInfo, &to->dwExtraInfoLength},
    };
    for (const auto& row : rows) {
        if (const LONG error = Store(row.text, flags, row.component, row.length))
            return error;
    }
    return 0;
}

}  // namespace

BOOL WINAPI WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, LPURL_COMPONENTS components)
{
    const WideView text = url == nullptr ? WideView() : length == 0 ? WideView(url) : WideView(url, length);
    if (text.empty() || components == nullptr || components->dwStructSize != sizeof(URL_COMPONENTS) ||
        (flags & ~ICU_DECODE) != 0)
        return Fail(ERROR_INVALID_PARAMETER);
    return Succeeds([&] {
        Parts parts;
        const LONG error = Split(text, &parts);
        return error == 0 ? StoreAll(parts, flags, components) : error;
    });
}
