#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/common/row.h"
#include "tests/platform/winhttp_fixture.h"

TEST_F(WinHttp, SendsExactlyWhatWinHttpSends)
{
    const std::string own = "host: other\r\nUSER-AGENT: me\r\nConnection: close\r\n";
    const std::string odd = "Expect: 100-continue\r\nEmpty:\r\nAuthorization: Basic  s;e \t\n\r\n";
    const std::string json = "Content-Type: application/json\r\nAccept: */*\r\n";
    const Row<const char*, const char*, std::string, const char*, std::string> rows[] = {
        {"GET", "/a/b?x=1&y=%2F", "Metadata: True\r\n", "", Wire("GET /a/b?x=1&y=%2F", "Metadata: True\r\n")},
        {"DELETE", "", "", "", Wire("DELETE /")},
        {"POST", "/t", json + "\r\n", "{\"a\":1}", Wire("POST /t", json, "{\"a\":1}")},
        {"POST", "/no-body", "X: no line end", "", Wire("POST /no-body", "X: no line end\r\n")},
        {"GET", "a/../b c\r\nX: \"\xC3\xA4#", "", "", Wire("GET /a/../b%20c%0D%0AX:%20%22%C3%A4%23")},
        // The caller's fields replace the layer's, and values stay as they are.
        {"GET", "/", own, "", "GET / HTTP/1.1\r\n" + own + "\r\n"},
        {"GET", "/", odd, "", Wire("GET /", odd)},
    };
    RawServer server(Answer(kOk));
    ConnectTo(Entry(80, server));
    for (const auto& [verb, path, headers, body, wire] : rows) {
        EXPECT_EQ(Outcome(Perform({"kv.test", 80, path, verb, headers, body})), "200");
        EXPECT_EQ(server.requests().back(), wire);
    }
    EXPECT_EQ(server.requests().size(), std::size(rows));
    const std::string port = std::to_string(server.port());
    for (const auto& [name, number, wire] :
         {std::tuple("127.0.0.1", server.port(), "127.0.0.1:" + port), {"[::1]", 80, "[::1]"}, {"::1", 80, "[::1]"}}) {
        EXPECT_EQ(Outcome(Perform({name, number})), "200");
        EXPECT_EQ(server.requests().back(), Wire("GET /", "", "", wire));
    }
}

TEST_F(WinHttp, AProgramThatTheHostStartsInheritsNoConnection)
{
    int found = 0;
    RawServer server([&](Peer& peer) {
        peer.ReadRequest();
        sockaddr_in there = {};
        for (int file = 3; file < 1024; file++) {
            socklen_t size = sizeof(there);
            if (getpeername(file, reinterpret_cast<sockaddr*>(&there), &size) != 0 ||
                there.sin_port != htons(server.port()))
                continue;
            EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
            found++;
        }
        peer.Write(kOk);
    });
    EXPECT_EQ(Outcome(Perform({"127.0.0.1", server.port()})), "200");
    EXPECT_EQ(found, 1);
}

TEST_F(WinHttp, RefusesWhatWouldBreakTheRequest)
{
    for (const char* host : {"", "user@kv.test", "kv.test/path", "kv.test:81", "my vault", "[::1", "[]"})
        EXPECT_EQ(Outcome(Perform({host})), "connect 12005") << host;
    for (const char* headers : {"no colon\r\n", ": no name\r\n"})
        EXPECT_EQ(Outcome(Perform({"kv.test", 80, "/", "GET", headers})), "send 87") << headers;
}

TEST_F(WinHttp, ReturnsHeadAndEntity)
{
    const std::string large(300000, 'L');
    const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n";
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    // The last is sent in place of head and body.
    const Row<const char*, std::string, std::string, std::string> rows[] = {
        {"plain", ok, "ok"},
        {"no entity", "HTTP/1.1 204 No Content\r\nA: b\r\n\r\n", ""},
        {"refusal", "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=/x\r\nContent-Length: 1\r\n\r\n", "!"},
        {"interim heads", ok, "ok",
         "HTTP/1.1 100 Continue\r\nX: 1\r\n\r\nHTTP/1.1 103 Early Hints\r\n\r\n" + ok + "ok"},
        {"chunks and trailers", chunked, "abcde", chunked + "3\r\nabc\r\n2\r\nde\r\n0\r\nT: railer\r\n\r\n"},
        {"to the end of the connection", "HTTP/1.0 200 OK\r\n\r\n", "all"},
        {"coded entity", "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 3\r\n\r\n", "\x1F\x8BZ"},
        {"large", "HTTP/1.1 200 OK\r\nContent-Length: 300000\r\n\r\n", large},
    };
    for (const auto& [name, head, body, sent] : rows) {
        SCOPED_TRACE(name);
        RawServer server(Answer(sent.empty() ? head + body : sent));
        const Reply reply = Perform({"127.0.0.1", server.port()});
        EXPECT_EQ(Outcome(reply), head.substr(9, 3));
        EXPECT_EQ(reply.head, head);
        EXPECT_TRUE(reply.body == body) << reply.body.size();
        EXPECT_LE(reply.largest, 8192U);
    }
}

TEST_F(WinHttp, ReportsWhereAnExchangeBroke)
{
    const std::string huge(32 << 20, 'b');
    std::string interim;
    std::string trailers;
    while (trailers.size() < 70000) {
        interim += "HTTP/1.1 100 Continue\r\n\r\n";
        trailers += "T: railer\r\n";
    }
    const std::string chunk = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n";
    // A name, the server, the outcome and the body; whether the request is huge, and the size of a field.
    const Row<const char*, RawServer::Script, std::string, std::string, bool, size_t> rows[] = {
        {"reset before the head", Answer("", &Peer::Reset), "receive 12030"},
        {"closed before the head", Answer(""), "receive 12030"},
        {"closed inside the head", Answer("HTTP/1.1 200 OK\r\nA: b\r\n"), "receive 12030"},
        {"closed after an interim head", Answer("HTTP/1.1 100 Continue\r\n\r\n"), "receive 12030"},
        {"no HTTP", Answer("220 mail.test ESMTP\r\n"), "receive 12152"},
        {"head too long", Answer("HTTP/1.1 200 OK\r\nA: " + std::string(70000, 'a') + "\r\n\r\n"), "receive 12182"},
        {"line too long", Answer("HTTP/1.1 200 OK\r\nA: " + std::string(200000, 'a') + "\r\n\r\n"), "receive 12182"},
        {"interim heads without end", Answer(interim), "receive 12182"},
        {"trailers too long", Answer(chunk + "0\r\n" + trailers + "\r\n"), "available 12182", "abc"},
        {"request head too long", Answer(kOk), "send 12182", "", false, 65536},
        {"request head of nearly 64 KiB", Answer(kOk), "200", "ok", false, 65000},
        {"head drips", Answer("HTTP/1.1 200 OK\r\nA: ", &Peer::Drip), "receive 12002"},
        {"trailer drips", Answer(chunk + "0\r\nT: ", &Peer::Drip), "available 12002", "abc"},
        {"chunk size drips", Answer(chunk + "5;", &Peer::Drip), "available 12002", "abc"},
        {"silence", Answer("", &Peer::WaitForClose), "receive 12002"},
        {"entity cut", Answer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"), "available 12030", "abc"},
        {"chunk cut", Answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\nabc"), "available 12030",
         "abc"},
        {"entity stalls", Answer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc", &Peer::WaitForClose),
         "available 12002", "abc"},
        {"request not read", [](Peer& peer) { peer.WaitForClose(); }, "send 12002", "", true},
        // Not before the client has connected, or it would look refused.
        {"reset while sending",
         [](Peer& peer) {
             peer.WaitForBytes();
             peer.Reset();
         },
         "send 12030", "", true},
    };
    // All at once, so that the time-outs can be long enough for a busy machine.
    OnThreads(static_cast<int>(std::size(rows)), [&](int i) {
        const auto& [name, script, outcome, body, isHuge, fieldSize] = rows[i];
        SCOPED_TRACE(name);
        RawServer server(script);
        Call call;
        call.port = server.port();
        call.waitMs = outcome.find("12002") != outcome.npos ? 300 : 0;
        if (isHuge)
            call.body = huge;
        if (fieldSize != 0)
            call.headers = "Authorization: " + std::string(fieldSize, 'x');
        const Reply reply = Perform(call);
        EXPECT_EQ(Outcome(reply), outcome);
        EXPECT_EQ(reply.body, body);
    });
}

TEST_F(WinHttp, ReportsWhyThereIsNoConnection)
{
    sockaddr_in address;
    const int listener = BindToLoopback(&address);
    Call call;
    call.port = ntohs(address.sin_port);
    EXPECT_EQ(Outcome(Perform(call)), "send 12029");

    // A listener with a full queue drops every further SYN.
    ASSERT_EQ(listen(listener, 0), 0);
    const int first = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(first, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    call.waitMs = 60;
    EXPECT_EQ(Outcome(Perform(call)), "send 12002");

    // A silent address leaves the next one half of the time.
    RawServer server(Answer(kOk));
    ResolveToPorts(call.port, server.port());
    call.host = "two.test";
    call.waitMs = 500;
    EXPECT_EQ(Outcome(Perform(call)), "200");
    close(first);
    close(listener);

    // No resolver asks the network for a label of over 63 characters.
    call.host = std::string(64, 'n') + ".test";
    call.waitMs = 0;
    EXPECT_EQ(Outcome(Perform(call)), "send 12007");

    // KELVARO_CONNECT_TO takes several entries.
    ConnectTo("  :81:127.0.0.1:1   :82:127.0.0.1:" + std::to_string(server.port()) + "\n");
    EXPECT_EQ(Outcome(Perform({"a.test", 81})), "send 12029");
    EXPECT_EQ(Outcome(Perform({"a.test", 82})), "200");
}

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
        {u"http://u:p@h:/", "h 80"},
        {u"http://[::1]:8080/", "[::1] 8080"},
        {u"http://%6C%6fcal/", "local 80"},
        {u"http://h%zz%4", "h%zz%4 80"},
        {u"", "87"},
        {u"localhost", "12006"},
        {u"ftp://h/", "12006"},
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
}
