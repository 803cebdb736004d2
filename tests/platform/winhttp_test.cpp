#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>

#include "tests/common/row.h"
#include "tests/platform/winhttp_fixture.h"

namespace {

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

TEST_F(WinHttp, RefusesWhatWouldBreakTheRequest)
{
    for (const char* host : {"", "user@kv.test", "kv.test/path", "kv.test:81", "my vault", "[::1", "[]"})
        EXPECT_EQ(Outcome(Perform({host})), "connect 12005") << host;
    for (const char* verb : {"GET /", ""})
        EXPECT_EQ(Outcome(Perform({"kv.test", 80, "/", verb})), "open 87") << verb;
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
        {"line feeds alone", ok, "ok", "HTTP/1.1 200 OK\nContent-Length: 2\n\nok"},
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

TEST_F(WinHttp, ReadsNoFurtherThanItsCallerDoes)
{
    const size_t size = 32 << 20;
    std::promise<size_t> stalled;
    RawServer server([&](Peer& peer) {
        peer.ReadRequest();
        peer.Write("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n");
        const std::string entity(size, 'x');
        const size_t sent = peer.WriteUntilStalled(entity);
        stalled.set_value(sent);
        peer.Write(std::string_view(entity).substr(sent));
    });
    Call call;
    call.port = server.port();
    bool waited = false;
    call.beforeReading = [&] {
        if (!waited) {
            EXPECT_LT(stalled.get_future().get(), size / 2);
        }
        waited = true;
    };
    EXPECT_EQ(Perform(call).body.size(), size);
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
        {"closed inside a line", Answer("HTTP/1.1 20"), "receive 12030"},
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
        {"head drips after an interim head", Answer("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 2", &Peer::Drip),
         "receive 12002"},
        {"trailer drips", Answer(chunk + "0\r\nT: ", &Peer::Drip), "available 12002", "abc"},
        {"chunk size drips", Answer(chunk + "5;", &Peer::Drip), "available 12002", "abc"},
        {"silence", Answer("", &Peer::WaitForClose), "receive 12002"},
        {"silence after an interim head", Answer("HTTP/1.1 100 Continue\r\n\r\n", &Peer::WaitForClose),
         "receive 12002"},
        {"entity cut", Answer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc"), "available 12030", "abc"},
        {"chunk cut", Answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\nabc"), "available 12030",
         "abc"},
        {"last chunk missing", Answer(chunk), "available 12030", "abc"},
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

TEST_F(WinHttp, GoesThroughTheProxyOfTheEnvironment)
{
    RawServer forward(Answer(kOk));
    setenv("http_proxy", ("http://127.0.0.1:" + std::to_string(forward.port())).c_str(), 1);
    const Reply reply = Perform({"kv.test", 80, "/a?b", "GET", "Authorization: s\r\n"});
    EXPECT_EQ(Outcome(reply), "200");
    EXPECT_EQ(forward.requests().at(0).find("GET http://kv.test/a?b HTTP/1.1\r\n"), 0U);

    // The proxy of a tunnel doesn't see the fields for the server.
    RawServer tunnel(Answer("HTTP/1.1 200 Connection established\r\n\r\n"));
    setenv("https_proxy", ("http://127.0.0.1:" + std::to_string(tunnel.port())).c_str(), 1);
    EXPECT_EQ(Outcome(Perform({"kv.test", 443, "/a", "GET", "Authorization: s\r\n"})), "send 12030");
    EXPECT_EQ(tunnel.requests().at(0),
              "CONNECT kv.test:443 HTTP/1.1\r\nHost: kv.test:443\r\nProxy-Connection: Keep-Alive\r\n\r\n");
}

TEST_F(WinHttp, ARequestOutlivesItsParentsHandles)
{
    std::promise<void> read;
    RawServer server([&](Peer& peer) {
        peer.ReadRequest();
        peer.Write(std::string_view(kOk).substr(0, sizeof(kOk) - 2));
        read.get_future().wait();
        peer.Write("k");
    });
    const HINTERNET session = WinHttpOpen(nullptr, 0, nullptr, nullptr, 0);
    const HINTERNET connection = WinHttpConnect(session, u"127.0.0.1", server.port(), 0);
    const HINTERNET request = WinHttpOpenRequest(connection, nullptr, nullptr, nullptr, nullptr, nullptr, 0);
    DWORD size = 0;
    EXPECT_EQ(ErrorOf(WinHttpReceiveResponse(request, nullptr)), DWORD{ERROR_WINHTTP_INCORRECT_HANDLE_STATE});
    EXPECT_TRUE(WinHttpCloseHandle(session));
    EXPECT_TRUE(WinHttpCloseHandle(connection));
    EXPECT_TRUE(WinHttpSetTimeouts(request, 0, 500, 500, 500));
    EXPECT_TRUE(WinHttpSendRequest(request, nullptr, 0, nullptr, 0, 0, 0));
    EXPECT_TRUE(WinHttpReceiveResponse(request, nullptr));
    // What has arrived is returned before the buffer is full.
    char bytes[8] = {};
    EXPECT_TRUE(WinHttpReadData(request, bytes, sizeof(bytes), &size));
    EXPECT_EQ(std::string(bytes, size), "o");
    read.set_value();
    EXPECT_TRUE(WinHttpReadData(request, bytes, sizeof(bytes), &size));
    EXPECT_EQ(std::string(bytes, size), "k");
    EXPECT_TRUE(WinHttpCloseHandle(request));
}

}  // namespace
