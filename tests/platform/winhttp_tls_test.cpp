#include <openssl/err.h>
#include <sys/resource.h>

#include "tests/common/row.h"
#include "tests/platform/winhttp_fixture.h"

namespace {

class WinHttpTls : public WinHttp {
  protected:
    void SetUp() override
    {
        WinHttp::SetUp();
        Trust({"root.pem"});
    }

    void TearDown() override
    {
        EXPECT_EQ(ERR_peek_error(), 0U) << "an error left in the queue would mislead the host's own connections";
        ERR_clear_error();
        WinHttp::TearDown();
    }

    void Trust(std::initializer_list<const char*> files) const
    {
        std::string roots;
        for (const char* file : files)
            roots += ReadFileText(X509File(file));
        WriteFileText(roots_, roots);
        setenv("SSL_CERT_FILE", roots_.c_str(), 1);
    }

    static std::string Get(int waitMs = 0, DWORD forgiven = 0)
    {
        Call call{"kv.test", 443};
        call.waitMs = waitMs;
        call.forgiven = forgiven;
        return Outcome(Perform(call));
    }

    const PlatformRoot folder_;
    const std::string roots_ = folder_.File("roots.pem");
};

TEST_F(WinHttpTls, ChecksThePeerAgainstTheNameThatWasAskedFor)
{
    // The highest version, or 0, and the roots, NULL for the test's.
    const Row<const char*, int, const char*, const char*> rows[] = {
        {"kv.pem", 0, nullptr, "200"},
        {"kv.pem", TLS1_2_VERSION, nullptr, "200"},
        {"kv.pem", TLS1_1_VERSION, nullptr, "send 12175"},
        {"other-name.pem", 0, nullptr, "send 12175"},
        {"unknown-root.pem", 0, nullptr, "send 12175"},
        {"self-signed.pem", 0, nullptr, "send 12175"},
        {"expired.pem", 0, nullptr, "send 12175"},
        {"not-yet-valid.pem", 0, nullptr, "send 12175"},
        {"expired.pem", TLS1_2_VERSION, nullptr, "send 12175"},
        {"kv.pem", 0, "/nonexistent/roots.pem", "send 12175"},
        {"kv.pem", 0, "/dev/null", "send 12175"},
        {"kv.pem", 0, "", "send 12175"},  // the system's roots
    };
    for (const auto& [identity, maxTls, roots, outcome] : rows) {
        SCOPED_TRACE(identity);
        setenv("SSL_CERT_FILE", roots != nullptr ? roots : roots_.c_str(), 1);
        RawServer::Seen seen;
        {
            RawServer server(Answer(kOk), identity, maxTls);
            ConnectTo(Entry(443, server));
            EXPECT_EQ(Outcome(Perform({"kv.test", 443, "/keys", "GET", "Authorization: Bearer secret\r\n"})), outcome);
            seen = server.seen();
        }
        ASSERT_EQ(seen.requests.size(), std::string(outcome) == "200" ? 1U : 0U);
        EXPECT_TRUE(seen.requests.empty() || seen.serverName == "kv.test");
    }
}

TEST_F(WinHttpTls, IgnoresCertificateErrorsInOneRequestOnly)
{
    constexpr DWORD kRoot = SECURITY_FLAG_IGNORE_UNKNOWN_CA;
    constexpr DWORD kName = SECURITY_FLAG_IGNORE_CERT_CN_INVALID;
    constexpr DWORD kDate = SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
    const Row<const char*, DWORD> rows[] = {{"unknown-root.pem", kRoot},
                                            {"self-signed.pem", kRoot},
                                            {"other-name.pem", kName},
                                            {"expired.pem", kDate},
                                            {"not-yet-valid.pem", kDate}};
    for (const auto& [identity, flag] : rows) {
        SCOPED_TRACE(identity);
        RawServer server(Answer(kOk), identity);
        ConnectTo(Entry(443, server));
        EXPECT_EQ(Get(0, (kRoot | kName | kDate) & ~flag), "send 12175");
        EXPECT_EQ(Get(0, flag), "200");
        EXPECT_EQ(Get(), "send 12175") << "resumes what only one request accepted";
        EXPECT_EQ(Get(0, flag), "200");
        EXPECT_EQ(server.seen().resumed, 0);
    }
    EXPECT_EQ(Get(0, 0x200), "option 87");  // a wrong usage is never ignored
}

TEST_F(WinHttpTls, DistinguishesARefusalFromABrokenConnection)
{
    // The server, the time for each wait and the outcome.
    const Row<RawServer::Script, int, const char*> rows[] = {
        {[](Peer&) {}, 0, "send 12030"},
        {[](Peer& peer) {
             peer.Write("HTTP/1.1 400 Bad Request\r\n\r\n");
             peer.WaitForClose();
         },
         0, "send 12175"},
        {[](Peer& peer) { peer.WaitForClose(); }, 60, "send 12002"},
    };
    for (const auto& [script, waitMs, outcome] : rows) {
        RawServer server(script);
        ConnectTo(Entry(443, server));
        EXPECT_EQ(Get(waitMs), outcome);
    }
}

TEST_F(WinHttpTls, ReadsChangedRootsAgain)
{
    RawServer server(Answer(kOk), "kv.pem");
    ConnectTo(Entry(443, server));
    EXPECT_EQ(Get(), "200");
    Trust({"other-root.pem"});
    EXPECT_EQ(Get(), "send 12175");
    Trust({"root.pem"});
    EXPECT_EQ(Get(), "200");

    // Roots that couldn't be read are read again.
    Trust({"root.pem"});
    rlimit descriptors = {};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    const rlimit none = {0, descriptors.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_NE(Get(), "200");
    setrlimit(RLIMIT_NOFILE, &descriptors);
    EXPECT_EQ(Get(), "200");
}

TEST_F(WinHttpTls, ResumesASessionWhileTheRootsAreTheSame)
{
    const std::initializer_list<const char*> one = {"root.pem"};
    const std::initializer_list<const char*> two = {"root.pem", "other-root.pem"};
    for (const int maxTls : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        SCOPED_TRACE(maxTls);
        RawServer server(Answer(kOk), "kv.pem", maxTls);
        ConnectTo(Entry(443, server));
        int resumed = 0;
        // Other roots end the sessions, even if the same one is among them.
        for (const std::initializer_list<const char*> roots : {one, two}) {
            Trust(roots);
            for (int request = 0; request < 2; request++) {
                EXPECT_EQ(Get(), "200");
                resumed += request;
                EXPECT_EQ(server.seen().resumed, resumed);
            }
        }
    }
}

// libcurl's handles are reused.
TEST_F(WinHttpTls, CarriesNothingOverToTheNextRequest)
{
    RawServer server(
        [](Peer& peer) {
            const bool head = peer.ReadRequest().substr(0, 5) == "HEAD ";
            peer.Write(std::string_view(kOk, sizeof(kOk) - (head ? 3 : 1)));
        },
        "kv.pem");
    ConnectTo(Entry(443, server));
    const std::pair<Call, std::string> rows[] = {
        {{"kv.test", 443, "/", "HEAD"}, Wire("HEAD /")},
        {{"kv.test", 443, "/", "POST", "A: b", "body"}, Wire("POST /", "A: b\r\n", "body")},
        {{"kv.test", 443}, Wire("GET /")},
    };
    for (const auto& [call, wire] : rows) {
        EXPECT_EQ(Outcome(Perform(call)), "200") << wire;
        EXPECT_EQ(server.requests().back(), wire);
    }
}

TEST_F(WinHttpTls, ReturnsARedirectThatLeavesTls)
{
    RawServer secure(Answer("HTTP/1.1 302 Found\r\nLocation: http://kv.test/plain\r\nContent-Length: 4\r\n\r\ngone"),
                     "kv.pem");
    RawServer plain(Answer("HTTP/1.1 302 Found\r\nLocation: https://kv.test/secure\r\nContent-Length: 0\r\n\r\n"));
    ConnectTo(Entry(443, secure) + Entry(80, plain));
    const Reply reply = Perform({"kv.test", 80});
    EXPECT_EQ(Outcome(reply), "302");
    EXPECT_EQ(reply.body, "gone");
    EXPECT_EQ(plain.requests().size(), 1U);
    EXPECT_EQ(secure.requests().size(), 1U);
}

}  // namespace
