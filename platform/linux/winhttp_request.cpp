// Sending a request and following redirects, by WinHTTP's default policy.
#include "platform/linux/winhttp_handles.h"

namespace winhttp {
namespace {

constexpr int kMaxRedirects = 10;

bool IsRedirect(DWORD status)
{
    return (status >= 301 && status <= 303) || status == 307 || status == 308;
}

// 307 and 308 keep verb and entity; the others turn a POST into a GET, and 303 everything except HEAD.
bool BecomesGet(DWORD status, std::string_view verb)
{
    return status == 303 ? verb != "HEAD" : status < 303 && verb == "POST";
}

// Verbs that usually have an entity send Content-Length even when it is empty.
bool SendsLength(std::string_view verb)
{
    return verb == "POST" || verb == "PUT";
}

}  // namespace

LONG Request::Send()
{
    received = false;
    currentVerb_ = verb;
    withBody_ = body && bodySize != 0;
    return SendTo(origin);
}

LONG Request::Receive()
{
    for (int redirects = 0;; ++redirects) {
        if (const LONG error = exchange.ReceiveHead())
            return error;
        Target next;
        if (!NextTarget(&next))
            break;
        if (redirects == kMaxRedirects)
            return ERROR_WINHTTP_REDIRECT_FAILED;
        if (BecomesGet(exchange.Status(), currentVerb_)) {
            currentVerb_ = "GET";
            withBody_ = false;
        }
        if (const LONG error = SendTo(next))
            return error;
    }
    received = true;
    return 0;
}

LONG Request::SendTo(const Target& target)
{
    sent = false;
    current_ = target;
    RequestHead head;
    head.callerLines = callerLines;
    head.agent = session().agent;
    head.hasContentLength = withBody_ || SendsLength(currentVerb_);
    head.contentLength = withBody_ ? bodySize : 0;
    head.withAuthorization = SameOrigin(current_, origin);
    const LONG error = exchange.Send(
        current_,
        {currentVerb_.c_str(), ComposeHead(head, current_), withBody_ ? body : nullptr, withBody_ ? bodySize : 0},
        timeouts, ignoredCertificateErrors);
    sent = error == 0;
    return error;
}

// Never from https to http: the redirect itself is then the response.
bool Request::NextTarget(Target* next) const
{
    if (!IsRedirect(exchange.Status()))
        return false;
    const std::string_view location = FieldValue(exchange.Head(), "Location");
    if (location.empty() || !ResolveLocation(current_, location, next))
        return false;
    return next->secure || !current_.secure;
}

}  // namespace winhttp
