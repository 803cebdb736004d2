#include "tests/platform/http_call.h"

#include <dlfcn.h>
#include <netdb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct HandleCloser {
    void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

std::string RawHead(HINTERNET request)
{
    std::u16string head;
    EXPECT_EQ(ReadInTwoCalls(&head, ERROR_INSUFFICIENT_BUFFER,
                             [&](WCHAR* out, DWORD* size) {
                                 DWORD bytes = *size * 2;
                                 const BOOL done = WinHttpQueryHeaders(request, WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr,
                                                                       out, &bytes, nullptr);
                                 *size = bytes / 2;
                                 return done;
                             }),
              0u);
    return ToUtf8(head);
}

std::string twoPorts[2];

}  // namespace

// libcurl finds this one before the C library's.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** list)
{
    const auto resolve = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    if (name == nullptr || strcmp(name, "two.test") != 0)
        return resolve(name, service, hints, list);
    addrinfo stream = {};
    stream.ai_family = AF_INET;
    stream.ai_socktype = SOCK_STREAM;
    const int error = resolve("127.0.0.1", twoPorts[0].c_str(), &stream, list);
    return error != 0 ? error : resolve("127.0.0.1", twoPorts[1].c_str(), &stream, &(*list)->ai_next);
}

void ResolveToPorts(unsigned short first, unsigned short second)
{
    twoPorts[0] = std::to_string(first);
    twoPorts[1] = std::to_string(second);
}

Reply Perform(const Call& call)
{
    Reply reply;
    const auto fail = [&](const char* step) {
        reply.error = GetLastError();
        reply.failed = step;
        return reply;
    };
    const Handle session(
        WinHttpOpen(u"Agent 1", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    if (call.waitMs != 0)
        WinHttpSetTimeouts(session.get(), 0, call.waitMs, call.waitMs, call.waitMs);
    const Handle connection(WinHttpConnect(session.get(), ToUtf16(call.host).c_str(), call.port, 0));
    if (connection == nullptr)
        return fail("connect");
    const Handle request(WinHttpOpenRequest(connection.get(), ToUtf16(call.verb).c_str(), ToUtf16(call.path).c_str(),
                                            nullptr, WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                            call.secure || call.port == 443 ? WINHTTP_FLAG_SECURE : 0));
    if (request == nullptr)
        return fail("open");
    const auto length = static_cast<DWORD>(call.body.size());
    if (!WinHttpSendRequest(request.get(), ToUtf16(call.headers).c_str(), static_cast<DWORD>(-1),
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
        call.beforeReading();
        std::string piece(available, '?');
        DWORD read = 0;
        if (!WinHttpReadData(request.get(), piece.data(), available, &read))
            return fail("read");
        reply.body.append(piece, 0, read);
    }
}

std::string Outcome(const Reply& reply)
{
    return reply.failed.empty() ? std::to_string(reply.status) : reply.failed + " " + std::to_string(reply.error);
}

RawServer::Script Answer(std::string bytes)
{
    return [bytes = std::move(bytes)](Peer& peer) {
        peer.ReadRequest();
        peer.Write(bytes);
    };
}

void ConnectTo(const std::string& entries)
{
    setenv("KELVARO_CONNECT_TO", entries.c_str(), 1);
}

std::string Entry(int from, const RawServer& server)
{
    return ":" + std::to_string(from) + ":127.0.0.1:" + std::to_string(server.port()) + " ";
}
