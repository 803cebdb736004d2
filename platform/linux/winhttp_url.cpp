#include "platform/linux/outcome.h"
#include "platform/linux/text.h"
#include "platform/linux/winhttp_curl_url.h"
#include "platform/linux/winhttp_message.h"

namespace {

using winhttp::CurlText;
using winhttp::WideView;

struct Place {
    std::u16string host;
    INTERNET_PORT port = 0;
};

bool IsOffered(WideView scheme)
{
    return EqualIgnoringCase(scheme, u"http") || EqualIgnoringCase(scheme, u"https");
}

// 0 or a platform error code.
LONG Split(WideView text, Place* place)
{
    const size_t colon = text.find(u':');
    if (colon == WideView::npos || !IsOffered(text.substr(0, colon)))
        return ERROR_WINHTTP_UNRECOGNIZED_SCHEME;
    // libcurl would accept one slash, or three.
    if (text.substr(colon, 3) != u"://" || text.substr(colon + 3, 1) == u"/")
        return ERROR_WINHTTP_INVALID_URL;

    // What follows the authority is irrelevant and may be malformed.
    const winhttp::Url url = winhttp::NewUrl();
    if (!winhttp::SetUrl(url, ToUtf8(text.substr(0, text.find_first_of(u"/?#", colon + 3))).c_str(), 0))
        return ERROR_WINHTTP_INVALID_URL;
    const CurlText host = winhttp::PartOf(url, CURLUPART_HOST, CURLU_URLDECODE);
    const CurlText port = winhttp::PartOf(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!host || !port)
        return ERROR_WINHTTP_INVALID_URL;
    *place = {ToUtf16(host.get()), static_cast<INTERNET_PORT>(std::stoul(port.get()))};
    return 0;
}

// Whether only the host is requested, into the caller's buffer.
bool AsksForHostAlone(const URL_COMPONENTS& parts)
{
    return parts.lpszHostName && !parts.lpszScheme && parts.dwSchemeLength == 0 && !parts.lpszUserName &&
           parts.dwUserNameLength == 0 && !parts.lpszPassword && parts.dwPasswordLength == 0 && !parts.lpszUrlPath &&
           parts.dwUrlPathLength == 0 && !parts.lpszExtraInfo && parts.dwExtraInfoLength == 0;
}

LONG Store(const Place& place, LPURL_COMPONENTS to)
{
    to->nPort = place.port;
    const DWORD room = to->dwHostNameLength;
    const bool fits = room > place.host.size();
    to->dwHostNameLength = static_cast<DWORD>(place.host.size()) + (fits ? 0 : 1);
    if (!fits)
        return ERROR_INSUFFICIENT_BUFFER;
    place.host.copy(to->lpszHostName, place.host.size());
    to->lpszHostName[place.host.size()] = 0;
    return 0;
}

}  // namespace

BOOL WINAPI WinHttpCrackUrl(LPCWSTR url, DWORD length, DWORD flags, LPURL_COMPONENTS components)
{
    const WideView text = length == 0 ? ViewOf(url) : WideView(url, url ? length : 0);
    if (text.empty() || flags != ICU_DECODE || !components || components->dwStructSize != sizeof(URL_COMPONENTS) ||
        !AsksForHostAlone(*components))
        return Fail(ERROR_INVALID_PARAMETER);
    return Succeeds([&] {
        Place place;
        const LONG error = Split(text, &place);
        return error == 0 ? Store(place, components) : error;
    });
}
