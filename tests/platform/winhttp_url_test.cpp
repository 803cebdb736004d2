#include "tests/common/row.h"
#include "tests/platform/winhttp_fixture.h"

namespace {

TEST_F(WinHttp, FollowsRedirects)
{
    const std::string fields = "Authorization: s\r\n";
    // Verb, status and location, and the second request, if there is one.
    const Row<const char*, const char*, std::string> rows[] = {
        {"GET", "301 /n?q=1", Wire("GET /n?q=1", fields)},
        {"GET", "302 n\r\nLocation: /second", Wire("GET /a/n", fields)},
        {"GET", "302 http://other.test/n", Wire("GET /n", "", "", "other.test")},
        {"GET", "302 http://kv.test:81/n", Wire("GET /n", "", "", "kv.test:81")},
        {"POST", "301 /n", Wire("GET /n", fields)},
        {"POST", "303 /n", Wire("GET /n", fields)},
        {"POST", "307 /n", Wire("POST /n", fields, "hi")},
        {"DELETE", "308 /n", Wire("DELETE /n", fields)},
        {"GET", "302 ftp://kv.test/n", ""},
        {"GET", "302 ", ""},
        {"GET", "304 /n", ""},
    };
    for (const auto& [verb, answer, second] : rows) {
        SCOPED_TRACE(std::string(verb) + " " + answer);
        const std::string status(answer, 3);
        const std::string location = answer + 4;
        const std::string body = verb[0] == 'P' ? "hi" : "";
        std::atomic<int> count{0};
        RawServer server([&](Peer& peer) {
            peer.ReadRequest();
            peer.Write(count++ != 0 ? kOk
                                    : "HTTP/1.1 " + status + " Moved\r\nLocation: " + location +
                                          "\r\nContent-Length: 4\r\n\r\ngone");
        });
        ConnectTo(Entry(80, server) + Entry(81, server));
        const Reply reply = Perform({"kv.test", 80, "/a/b", verb, fields, body});
        std::vector<std::string> requests = {Wire(verb + std::string(" /a/b"), fields, body)};
        if (!second.empty())
            requests.push_back(second);
        EXPECT_EQ(server.requests(), requests);
        EXPECT_EQ(Outcome(reply), second.empty() ? status : "200");
        EXPECT_EQ(second.empty() ? kOk : reply.head + reply.body, kOk);
    }

    RawServer loop(Answer("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(Outcome(Perform({"127.0.0.1", loop.port()})), "receive 12156");
    EXPECT_EQ(loop.requests().size(), 11U);
}

TEST(WinHttpCrackUrl, FindsTheHost)
{
    // Host and port, or the error.
    const Row<const char16_t*, std::string> rows[] = {
        {u"http://localhost:40342/metadata/identity/oauth2/token", "localhost 40342"},
        {u"HTTPS://Kv.Test", "Kv.Test 443"},
        {u"http://127.0.0.1?x=1:2@3", "127.0.0.1 80"},
        {u"http://u:p@h:/", "h 80"},
        {u"http://[::1]:8080/", "[::1] 8080"},
        {u"http://%6C%6fcal/", "local 80"},
        {u"http://h%zz%4", "h%zz%4 80"},
        {u"", "87"},
        {u"localhost", "12006"},
        {u"localhost:40342", "12006"},
        {u"ftp://h/", "12006"},
        {u"http:/h", "12005"},
        {u"http://", "12005"},
        {u"http://:80/", "12005"},
        {u"http://h:65536/", "12005"},
        {u"http://h:8o/", "12005"},
        {u"http://[::1/", "12005"},
        {u"http://host.of.ten.characters/", "122"},
    };
    WCHAR host[11] = {};
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    for (const auto& [url, expected] : rows) {
        parts.dwHostNameLength = 11;
        const DWORD error = ErrorOf(WinHttpCrackUrl(url, 0, ICU_DECODE, &parts));
        EXPECT_EQ(error != 0 ? std::to_string(error) : ToUtf8(host) + " " + std::to_string(parts.nPort), expected);
    }

    const char16_t url[] = u"https://user:pass@h:1/p/q?x#f";
    parts.dwHostNameLength = 11;
    ASSERT_TRUE(WinHttpCrackUrl(url, 19, ICU_DECODE, &parts));
    EXPECT_EQ(std::u16string(host), u"h");
    EXPECT_EQ(parts.dwHostNameLength, 1u);
    EXPECT_EQ(parts.nPort, 443) << "a counted URL ends after its count";
}

}  // namespace
