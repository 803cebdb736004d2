#include "tests/platform/http_call.h"

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
    const struct {
        const char* verb;
        const char* answer;  // status and location
        const char* hops;
        const char* outcome;
    } rows[] = {
        {"GET", "301 /n?q=1", "GET /a/b Authorization: s Host: kv.test |GET /n?q=1 Authorization: s Host: kv.test |",
         "200"},
        {"GET", "302 n", "GET /a/b Authorization: s Host: kv.test |GET /a/n Authorization: s Host: kv.test |", "200"},
        {"GET", "302 http://other.test/n", "GET /a/b Authorization: s Host: kv.test |GET /n Host: other.test |", "200"},
        {"GET", "302 http://kv.test:81/n", "GET /a/b Authorization: s Host: kv.test |GET /n Host: kv.test:81 |", "200"},
        {"POST", "301 /n",
         "POST /a/b Authorization: s Content-Length: 2 Host: kv.test hi|GET /n Authorization: s Host: kv.test |",
         "200"},
        {"POST", "303 /n",
         "POST /a/b Authorization: s Content-Length: 2 Host: kv.test hi|GET /n Authorization: s Host: kv.test |",
         "200"},
        {"POST", "307 /n",
         "POST /a/b Authorization: s Content-Length: 2 Host: kv.test hi|"
         "POST /n Authorization: s Content-Length: 2 Host: kv.test hi|",
         "200"},
        {"DELETE", "308 /n", "DELETE /a/b Authorization: s Host: kv.test |DELETE /n Authorization: s Host: kv.test |",
         "200"},
        {"GET", "302 ftp://kv.test/n", "GET /a/b Authorization: s Host: kv.test |", "302"},
        {"GET", "302 ", "GET /a/b Authorization: s Host: kv.test |", "302"},
        {"GET", "304 /n", "GET /a/b Authorization: s Host: kv.test |", "304"},
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
}

TEST_F(WinHttp, GivesUpRedirectsThatLoop)
{
    RawServer loop(Answer("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(Outcome(Perform({"127.0.0.1", loop.port()})), "receive 12156");
    EXPECT_EQ(loop.requests().size(), 11U);
}

}  // namespace
