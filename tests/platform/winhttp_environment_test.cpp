// The variables of the environment: proxies, and what a program with more rights than its caller must ignore.
#include <sys/auxv.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/winhttp_fixture.h"

constexpr uid_t kNobody = 65534;
constexpr int kNoPrivilege = 77;

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

// Run by the next test alone, in a copy of this program that has another owner and the setuid bit.
TEST(PrivilegedProgram, DISABLED_Child)
{
    if (getauxval(AT_SECURE) == 0)
        _exit(kNoPrivilege);
    const auto port = [](const char* variable) { return static_cast<unsigned short>(atoi(getenv(variable))); };
    EXPECT_EQ(Outcome(Perform({"127.0.0.1", port("PLAIN_PORT")})), "200");
    Call call{"localhost", port("TLS_PORT")};
    call.secure = true;
    EXPECT_EQ(Outcome(Perform(call)), "send 12175");
    EXPECT_EQ(GetEnvironmentVariableW(u"IDENTITY_ENDPOINT", nullptr, 0), 0U);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ENVVAR_NOT_FOUND});
    fflush(nullptr);
    // Skips the leak check at exit, which needs more rights.
    _exit(testing::Test::HasFailure());
}

TEST_F(WinHttp, IgnoresTheEnvironmentInAPrivilegedProgram)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make a program that runs as another account";
    const PlatformRoot folder;
    RawServer elsewhere(Answer(kOk));
    RawServer plain(Answer(kOk));
    RawServer secure(Answer(kOk), "localhost.pem");
    const std::string program = folder.File("program");
    std::filesystem::copy_file("/proc/self/exe", program);
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    ASSERT_EQ(chown(program.c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    WriteFileText(folder.File("roots"), ReadFileText(X509File("root.pem")));
    chmod(folder.File("roots").c_str(), 0644);
    // The key log could be written if it weren't ignored.
    std::filesystem::create_directory(folder.File("open"));
    chmod(folder.File("open").c_str(), 0777);
    ConnectTo(Entry(plain.port(), elsewhere));
    for (const auto& [name, value] :
         {std::pair<const char*, std::string>{"http_proxy", "http://127.0.0.1:" + std::to_string(elsewhere.port())},
          {"SSL_CERT_FILE", folder.File("roots")},
          {"SSLKEYLOGFILE", folder.File("open/keys")},
          {"IDENTITY_ENDPOINT", "http://127.0.0.1/"},
          {"PLAIN_PORT", std::to_string(plain.port())},
          {"TLS_PORT", std::to_string(secure.port())}})
        setenv(name, value.c_str(), 1);

    const pid_t child = fork();
    if (child == 0) {
        execl(program.c_str(), program.c_str(), "--gtest_filter=PrivilegedProgram.DISABLED_Child",
              "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoPrivilege)
        GTEST_SKIP() << "the system ignores setuid in the temporary folder";
    EXPECT_EQ(status, 0);
    EXPECT_EQ(plain.requests().size(), 1U);
    EXPECT_TRUE(elsewhere.requests().empty());
    EXPECT_FALSE(std::filesystem::exists(folder.File("open/keys")));
}
