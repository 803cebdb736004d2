#include "tests/platform/winhttp_fixture.h"

namespace {

// The request lines and the chosen fields of all hops, in their order.
std::string Hops(const std::vector<std::string>& requests)
{
    std::string text;
    for (const std::string& request : requests) {
        text += request.substr(0, request.find(" HTTP/1.1"));
        for (const char* field : {"Authorization", "Content-Length", "Host"}) {
            const size_t at = request.find(std::string("\r\n") + field + ": ");
            if (at != std::string::npos)
                text += " " + request.substr(at + 2, request.find("\r\n", at + 2) - at - 2);
        }
        text += " " + request.substr(request.find("\r\n\r\n") + 4) + "|";
    }
    return text;
}

TEST_F(WinHttp, FollowsRedirects)
{
    const std::string get = "GET /a/b Authorization: s Host: kv.test |";
    const std::string post = "POST /a/b Authorization: s Content-Length: 2 Host: kv.test hi|";
    const struct {
        const char* verb;
        const char* answer;  // status and location
        std::string hops;
        const char* outcome = "200";
    } rows[] = {
        {"GET", "301 /n?q=1", get + "GET /n?q=1 Authorization: s Host: kv.test |"},
        {"GET", "302 n\r\nLocation: /second", get + "GET /a/n Authorization: s Host: kv.test |"},
        {"GET", "302 http://other.test/n", get + "GET /n Host: other.test |"},
        {"GET", "302 http://kv.test:81/n", get + "GET /n Host: kv.test:81 |"},
        {"POST", "301 /n", post + "GET /n Authorization: s Host: kv.test |"},
        {"POST", "303 /n", post + "GET /n Authorization: s Host: kv.test |"},
        {"POST", "307 /n", post + "POST /n Authorization: s Content-Length: 2 Host: kv.test hi|"},
        {"DELETE", "308 /n", "DELETE /a/b Authorization: s Host: kv.test |DELETE /n Authorization: s Host: kv.test |"},
        {"GET", "302 ftp://kv.test/n", get, "302"},
        {"GET", "302 ", get, "302"},
        {"GET", "304 /n", get, "304"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.verb) + " " + row.answer);
        std::atomic<int> count{0};
        RawServer server([&](Peer& peer) {
            peer.ReadRequest();
            peer.Write(count++ != 0 ? kOk
                                    : "HTTP/1.1 " + std::string(row.answer, 3) + " Moved\r\nLocation: " +
                                          (row.answer + 4) + "\r\nContent-Length: 4\r\n\r\ngone");
        });
        ConnectTo(Entry(80, server) + Entry(81, server));
        Call call{"kv.test", 80, "/a/b", row.verb, "Authorization: s\r\n"};
        call.body = row.verb[0] == 'P' ? "hi" : "";
        const Reply reply = Perform(call);
        EXPECT_EQ(Outcome(reply), row.outcome);
        EXPECT_EQ(Hops(server.requests()), row.hops);
        if (reply.status == 200) {
            EXPECT_EQ(reply.head + reply.body, kOk);
        }
    }

    RawServer loop(Answer("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(Outcome(Perform({"127.0.0.1", loop.port()})), "receive 12156");
    EXPECT_EQ(loop.requests().size(), 11U);
}

TEST(WinHttpCrackUrl, FindsTheHost)
{
    const struct {
        const char16_t* url;
        LONG error;
        const char16_t* host;
        int port;
    } rows[] = {
        {u"http://localhost:40342/metadata/identity/oauth2/token", 0, u"localhost", 40342},
        {u"HTTPS://Kv.Test", 0, u"Kv.Test", 443},
        {u"http://127.0.0.1?x=1:2@3", 0, u"127.0.0.1", 80},
        {u"http://u:p@h:/", 0, u"h", 80},
        {u"http://[::1]:8080/", 0, u"[::1]", 8080},
        {u"http://%6C%6fcal/", 0, u"local", 80},
        {u"http://h%zz%4", 0, u"h%zz%4", 80},
        {u"", ERROR_INVALID_PARAMETER, u"", 0},
        {u"localhost", ERROR_WINHTTP_UNRECOGNIZED_SCHEME, u"", 0},
        {u"localhost:40342", ERROR_WINHTTP_UNRECOGNIZED_SCHEME, u"", 0},
        {u"ftp://h/", ERROR_WINHTTP_UNRECOGNIZED_SCHEME, u"", 0},
        {u"http:/h", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://:80/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://h:65536/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://h:8o/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://[::1/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://host.of.ten.characters/", ERROR_INSUFFICIENT_BUFFER, u"", 80},
    };
    WCHAR host[11] = {};
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    for (const auto& row : rows) {
        SCOPED_TRACE(ToUtf8(row.url));
        host[0] = 0;
        parts.dwHostNameLength = 11;
        parts.nPort = 0;
        SetLastError(0);
        EXPECT_EQ(WinHttpCrackUrl(row.url, 0, ICU_DECODE, &parts) != FALSE, row.error == 0);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(row.error));
        EXPECT_EQ(std::u16string(host), row.host);
        EXPECT_EQ(parts.nPort, row.port);
    }

    const char16_t url[] = u"https://user:pass@h:1/p/q?x#f";
    parts.dwHostNameLength = 11;
    ASSERT_TRUE(WinHttpCrackUrl(url, 19, ICU_DECODE, &parts));
    EXPECT_EQ(std::u16string(host), u"h");
    EXPECT_EQ(parts.dwHostNameLength, 1u);
    EXPECT_EQ(parts.nPort, 443) << "a counted URL ends where its count says";

    // Nothing but the decoded host can be asked for.
    const auto refused = [&] { return ErrorOf(WinHttpCrackUrl(url, 0, ICU_DECODE, &parts)); };
    WCHAR path[11] = {};
    parts.dwHostNameLength = 11;
    EXPECT_EQ(ErrorOf(WinHttpCrackUrl(url, 0, 0, &parts)), DWORD{ERROR_INVALID_PARAMETER});
    parts.lpszUrlPath = path;
    EXPECT_EQ(refused(), DWORD{ERROR_INVALID_PARAMETER});
    parts.lpszUrlPath = nullptr;
    parts.dwUrlPathLength = 1;
    EXPECT_EQ(refused(), DWORD{ERROR_INVALID_PARAMETER});
    parts.dwUrlPathLength = 0;
    parts.lpszHostName = nullptr;
    EXPECT_EQ(refused(), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
