#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/winhttp_fixture.h"

namespace {

class WinHttpTls : public WinHttp {
  protected:
    void SetUp() override
    {
        WinHttp::SetUp();
        Trust(root_);
    }

    void Trust(const Credentials& root) const
    {
        root.WritePem(roots_);
        setenv("SSL_CERT_FILE", roots_.c_str(), 1);
    }

    static std::string Get(int waitMs = 0)
    {
        Call call{"kv.test", 443};
        call.waitMs = waitMs;
        return Outcome(Perform(call));
    }

    const PlatformRoot folder_;
    const std::string roots_ = folder_.File("roots.pem");
    const Credentials root_{"Test Root", nullptr, -1, 1};
    const Credentials stranger_{"Other Root", nullptr, -1, 1};
    const Credentials identity_{"kv.test", &root_, -1, 1};
};

TEST_F(WinHttpTls, ChecksThePeerAgainstTheNameThatWasAskedFor)
{
    const Credentials otherName("other.test", &root_, -1, 1);
    const Credentials unknown("kv.test", &stranger_, -1, 1);
    const Credentials selfSigned("kv.test", nullptr, -1, 1);
    const Credentials expired("kv.test", &root_, -9, -1);
    const Credentials early("kv.test", &root_, 1, 9);
    const struct {
        const char* name;
        const Credentials* identity;
        const char* roots;  // NULL: the test's own
        int maxTls;
        const char* outcome;
    } rows[] = {
        {"good", &identity_, nullptr, 0, "200"},
        {"good, TLS 1.2", &identity_, nullptr, TLS1_2_VERSION, "200"},
        {"TLS 1.1", &identity_, nullptr, TLS1_1_VERSION, "send 12175"},
        {"wrong name", &otherName, nullptr, 0, "send 12175"},
        {"unknown root", &unknown, nullptr, 0, "send 12175"},
        {"self-signed", &selfSigned, nullptr, 0, "send 12175"},
        {"expired", &expired, nullptr, 0, "send 12175"},
        {"not yet valid", &early, nullptr, 0, "send 12175"},
        {"expired, TLS 1.2", &expired, nullptr, TLS1_2_VERSION, "send 12175"},
        {"roots missing", &identity_, "/nonexistent/roots.pem", 0, "send 12175"},
        {"roots without a certificate", &identity_, "/dev/null", 0, "send 12175"},
        {"the system's roots", &identity_, "", 0, "send 12175"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        setenv("SSL_CERT_FILE", row.roots != nullptr ? row.roots : roots_.c_str(), 1);
        std::vector<std::string> requests;
        {
            RawServer server(Answer(kOk), row.identity, row.maxTls);
            ConnectTo(Entry(443, server));
            const Reply reply = Perform({"kv.test", 443, "/keys", "GET", "Authorization: Bearer secret\r\n"});
            EXPECT_EQ(Outcome(reply), row.outcome);
            requests = server.requests();
            if (requests.size() == 1) {
                EXPECT_EQ(server.seen().serverName, "kv.test");
            }
        }
        ASSERT_EQ(requests.size(), std::string(row.outcome) == "200" ? 1U : 0U);
    }
}

TEST_F(WinHttpTls, TellsARefusalFromABrokenConnection)
{
    RawServer hangsUp([](Peer&) {});
    ConnectTo(Entry(443, hangsUp));
    EXPECT_EQ(Get(), "send 12030");
    RawServer speaksPlain([](Peer& peer) {
        peer.Write("HTTP/1.1 400 Bad Request\r\n\r\n");
        peer.WaitForClose();
    });
    ConnectTo(Entry(443, speaksPlain));
    EXPECT_EQ(Get(), "send 12175");
    RawServer mute([](Peer& peer) { peer.WaitForClose(); });
    ConnectTo(Entry(443, mute));
    EXPECT_EQ(Get(60), "send 12002");
}

TEST_F(WinHttpTls, ReadsChangedRootsAgain)
{
    RawServer server(Answer(kOk), &identity_);
    ConnectTo(Entry(443, server));
    EXPECT_EQ(Get(), "200");
    Trust(stranger_);
    EXPECT_EQ(Get(), "send 12175");
    Trust(root_);
    EXPECT_EQ(Get(), "200");

    // Roots that could not be read are tried again.
    Trust(root_);
    rlimit descriptors = {};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    const rlimit none = {0, descriptors.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_NE(Get(), "200");
    setrlimit(RLIMIT_NOFILE, &descriptors);
    EXPECT_EQ(Get(), "200");

    // A FIFO without a writer isn't waited for.
    unlink(roots_.c_str());
    ASSERT_EQ(mkfifo(roots_.c_str(), 0600), 0);
    EXPECT_EQ(Get(), "send 12175");
}

TEST_F(WinHttpTls, TakesUpASessionWhileTheRootsAreTheSame)
{
    for (const int maxTls : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        SCOPED_TRACE(maxTls);
        Trust(root_);
        RawServer server(Answer(kOk), &identity_, maxTls);
        ConnectTo(Entry(443, server));
        const struct {
            const char* name;
            std::function<void()> before;
            int resumed;
        } rows[] = {
            {"first", [] {}, 0},
            {"again", [] {}, 1},
            {"other roots, the same among them", [&] { stranger_.WritePem(roots_, "a"); }, 1},
            {"again", [] {}, 2},
            {"forgotten by the server", [&] { server.ForgetSessions(); }, 2},
            {"again", [] {}, 3},
        };
        for (const auto& row : rows) {
            row.before();
            EXPECT_EQ(Get(), "200") << row.name;
            EXPECT_EQ(server.seen().resumed, row.resumed) << row.name;
        }
    }
}

// libcurl's handles are kept.
TEST_F(WinHttpTls, KeepsNothingOfARequestForTheNext)
{
    RawServer server(
        [](Peer& peer) {
            const bool head = peer.ReadRequest().substr(0, 5) == "HEAD ";
            peer.Write(head ? std::string_view(kOk).substr(0, sizeof(kOk) - 3) : kOk);
        },
        &identity_);
    ConnectTo(Entry(443, server));
    const std::string kept = " / HTTP/1.1\r\nConnection: Keep-Alive\r\n";
    const std::string agent = "User-Agent: Agent 1\r\n";
    const std::string host = "Host: kv.test\r\n\r\n";
    const struct {
        Call call;
        std::string wire;
    } rows[] = {
        {{"kv.test", 443, "/", "HEAD"}, "HEAD" + kept + agent + host},
        {{"kv.test", 443, "/", "POST", "A: b", "body"},
         "POST" + kept + "A: b\r\n" + agent + "Content-Length: 4\r\n" + host + "body"},
        {{"kv.test", 443}, "GET" + kept + agent + host},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Outcome(Perform(row.call)), "200") << row.wire;
        EXPECT_EQ(server.requests().back(), row.wire);
    }

    const pid_t child = fork();
    if (child == 0)
        _exit(Get() == "200" ? 0 : 1);
    EXPECT_EQ(Get(), "200");
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "a forked child makes its own";
}

TEST_F(WinHttpTls, ReturnsARedirectThatLeavesTls)
{
    RawServer secure(Answer("HTTP/1.1 302 Found\r\nLocation: http://kv.test/plain\r\nContent-Length: 4\r\n\r\ngone"),
                     &identity_);
    RawServer plain(Answer("HTTP/1.1 302 Found\r\nLocation: https://kv.test/secure\r\nContent-Length: 0\r\n\r\n"));
    ConnectTo(Entry(443, secure) + Entry(80, plain));
    const Reply reply = Perform({"kv.test", 80});
    EXPECT_EQ(Outcome(reply), "302");
    EXPECT_EQ(reply.body, "gone");
    EXPECT_EQ(plain.requests().size(), 1U);
    EXPECT_EQ(secure.requests().size(), 1U);
}

}  // namespace
