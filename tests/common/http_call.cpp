#include "tests/common/http_call.h"

#include <algorithm>

#include "platform/owner.h"
#include "tests/common/wide_text.h"

namespace {
using Handle = Owner<void, WinHttpCloseHandle>;

std::string RawHead(HINTERNET request)
{
    DWORD size = 0;
    WinHttpQueryHeaders(request, WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr, nullptr, &size, nullptr);
    TextString head(size / sizeof(WCHAR), 0);
    WinHttpQueryHeaders(request, WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr, head.data(), &size, nullptr);
    head.resize(size / sizeof(WCHAR));
    return Narrow(head);
}
}  // namespace

HttpReply Perform(const HttpCall& call)
{
    HttpReply reply;
    const auto fail = [&](const char* step) {
        reply.error = GetLastError();
        reply.failed = step;
        return reply;
    };
    const Handle session(WinHttpOpen(TEXT("Agent 1"), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                                     WINHTTP_NO_PROXY_BYPASS, 0));
    if (call.waitMs != 0)
        WinHttpSetTimeouts(session.get(), 0, call.waitMs, call.waitMs, call.waitMs);
    const Handle connection(WinHttpConnect(session.get(), Wide(call.host).c_str(), call.port, 0));
    if (!connection)
        return fail("connect");
    const Handle request(WinHttpOpenRequest(connection.get(), Wide(call.verb).c_str(), Wide(call.path).c_str(), nullptr,
                                            WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                            call.secure || call.port == 443 ? WINHTTP_FLAG_SECURE : 0));
    if (!request)
        return fail("open");
    DWORD forgiven = call.forgiven;
    if (forgiven != 0 && !WinHttpSetOption(request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &forgiven, sizeof(forgiven)))
        return fail("option");
    const auto length = static_cast<DWORD>(call.body.size());
    if (!WinHttpSendRequest(request.get(), Wide(call.headers).c_str(), static_cast<DWORD>(-1),
                            const_cast<char*>(call.body.data()), length, length, 0))
        return fail("send");
    if (!WinHttpReceiveResponse(request.get(), nullptr))
        return fail("receive");
    DWORD statusSize = sizeof(reply.status);
    WinHttpQueryHeaders(request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr, &reply.status,
                        &statusSize, nullptr);
    reply.head = RawHead(request.get());
    for (;;) {
        DWORD available = 0;
        if (!WinHttpQueryDataAvailable(request.get(), &available))
            return fail("available");
        if (available == 0)
            return reply;
        reply.largest = std::max(reply.largest, available);
        std::string piece(available, '?');
        DWORD read = 0;
        if (!WinHttpReadData(request.get(), piece.data(), available, &read))
            return fail("read");
        reply.body.append(piece, 0, read);
    }
}

std::string Outcome(const HttpReply& reply)
{
    return reply.failed.empty() ? std::to_string(reply.status) : reply.failed + " " + std::to_string(reply.error);
}
