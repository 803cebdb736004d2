// Finds secrets in what this program's operator delete gets back. malloc, and so libcurl and OpenSSL, aren't watched.
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/linux/text.h"
#include "tests/platform/http_call.h"

namespace {

// Of this thread alone.
thread_local std::string_view watched;
thread_local int found = 0;

void Free(void* block)
{
    if (!watched.empty() && memmem(block, malloc_usable_size(block), watched.data(), watched.size()) != nullptr)
        ++found;
    free(block);
}

}  // namespace

// Zeros, so that nothing is found but what was written into the block.
void* operator new(size_t size)
{
    if (void* const block = calloc(1, size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    Free(block);
}

void operator delete(void* block, size_t) noexcept
{
    Free(block);
}

namespace {

TEST_F(WinHttp, WipesWhatItFrees)
{
    const std::string secret = "a secret that nobody else has";
    const std::string body = "{\"value\":\"" + secret + "\"}";
    std::atomic<int> count{0};
    RawServer server([&](Peer& peer) {
        peer.ReadRequest();
        peer.Write("HTTP/1.1 " + std::string(count++ == 0 ? "302 Found\r\nLocation: /again" : "200 OK") +
                   "\r\nSet-Cookie: " + secret + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                   body);
    });
    const std::u16string headers = ToUtf16("Authorization: Bearer " + secret + "\r\n");
    const HINTERNET session = WinHttpOpen(u"Agent 1", 0, nullptr, nullptr, 0);
    const HINTERNET connection = WinHttpConnect(session, u"127.0.0.1", server.port(), 0);
    const HINTERNET request = WinHttpOpenRequest(connection, u"POST", u"/", nullptr, nullptr, nullptr, 0);
    WCHAR head[512];
    DWORD headSize = sizeof(head);
    std::string room(100, '?');
    DWORD size = 0;

    watched = secret;
    EXPECT_TRUE(WinHttpSendRequest(request, headers.c_str(), static_cast<DWORD>(-1), const_cast<char*>(body.data()),
                                   static_cast<DWORD>(body.size()), static_cast<DWORD>(body.size()), 0));
    EXPECT_TRUE(WinHttpReceiveResponse(request, nullptr));
    EXPECT_TRUE(WinHttpQueryHeaders(request, WINHTTP_QUERY_RAW_HEADERS_CRLF, nullptr, head, &headSize, nullptr));
    EXPECT_TRUE(WinHttpReadData(request, room.data(), 100, &size));
    EXPECT_TRUE(WinHttpReadData(request, room.data(), 100, &size));
    for (const HINTERNET handle : {request, connection, session})
        EXPECT_TRUE(WinHttpCloseHandle(handle));
    watched = {};
    EXPECT_EQ(found, 0);
    EXPECT_EQ(count, 2);
}

}  // namespace
