// What must not leak: a caller's environment into a program with more rights, and secrets into freed memory.
#include <malloc.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <new>

#include "tests/platform/winhttp_fixture.h"

namespace {

constexpr uid_t kNobody = 65534;
constexpr int kNoPrivilege = 77;

// Secrets are looked for in what this thread passes to operator delete, not in what libcurl and OpenSSL pass to free.
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
    std::string body = "{\"value\":\"" + secret + "\"}";
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
    EXPECT_TRUE(WinHttpSendRequest(request, headers.c_str(), static_cast<DWORD>(-1), body.data(), SizeOf(body),
                                   SizeOf(body), 0));
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

}  // namespace
