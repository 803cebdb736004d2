// A program that runs with more rights than its caller: this one, copied, owned by somebody else and with the setuid
// bit.
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/http_call.h"

namespace {

constexpr uid_t kNobody = 65534;
constexpr int kNoPrivilege = 77;
constexpr char kChild[] = "--gtest_filter=PrivilegedProgram.DISABLED_Child";

// A file that goes with the object.
class TemporaryFile {
  public:
    TemporaryFile() : descriptor_(mkstemp(path_)) {}
    ~TemporaryFile()
    {
        Close();
        unlink(path_);
    }
    const char* path() const { return path_; }
    int descriptor() const { return descriptor_; }
    void Close()
    {
        if (descriptor_ >= 0)
            close(descriptor_);
        descriptor_ = -1;
    }

  private:
    char path_[32] = "/tmp/winhttp_privilege.XXXXXX";
    int descriptor_;
};

void MakePrivilegedCopy(TemporaryFile* copy)
{
    const int program = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    struct stat file = {};
    fstat(program, &file);
    for (off_t done = 0; done < file.st_size;)
        ASSERT_GT(sendfile(copy->descriptor(), program, &done, static_cast<size_t>(file.st_size - done)), 0);
    close(program);
    ASSERT_EQ(fchown(copy->descriptor(), kNobody, kNobody), 0);
    ASSERT_EQ(fchmod(copy->descriptor(), 04755), 0);
    copy->Close();
}

int RunProgram(const char* program)
{
    const pid_t child = fork();
    if (child == 0) {
        execl(program, program, kChild, "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

unsigned short Port(const char* variable)
{
    return static_cast<unsigned short>(atoi(getenv(variable)));
}

// Run by the other test alone.
TEST(PrivilegedProgram, DISABLED_Child)
{
    if (getauxval(AT_SECURE) == 0)
        _exit(kNoPrivilege);
    EXPECT_EQ(Outcome(Perform({"127.0.0.1", Port("PLAIN_PORT")})), "200");
    Call call{"localhost", Port("TLS_PORT")};
    call.secure = true;
    EXPECT_EQ(Outcome(Perform(call)), "send 12175");
    EXPECT_EQ(GetEnvironmentVariableW(u"IDENTITY_ENDPOINT", nullptr, 0), 0U);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ENVVAR_NOT_FOUND});
    fflush(nullptr);
    // Without the end of the program, at which the leak check would want rights that it doesn't have.
    _exit(testing::Test::HasFailure());
}

TEST_F(WinHttp, KeepsItsCallersEnvironmentAway)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make a program that runs as somebody else";
    const Credentials root("Test Root", nullptr, -1, 1);
    const Credentials identity("localhost", &root, -1, 1);
    RawServer elsewhere(Answer(kOk));
    RawServer plain(Answer(kOk));
    RawServer secure(Answer(kOk), &identity);
    TemporaryFile copy;
    TemporaryFile roots;
    TemporaryFile keys;
    root.WritePem(roots.path());
    fchmod(roots.descriptor(), 0644);
    unlink(keys.path());
    MakePrivilegedCopy(&copy);
    setenv("http_proxy", ("http://127.0.0.1:" + std::to_string(elsewhere.port())).c_str(), 1);
    ConnectTo(Entry(plain.port(), elsewhere));
    setenv("SSL_CERT_FILE", roots.path(), 1);
    setenv("SSLKEYLOGFILE", keys.path(), 1);
    setenv("IDENTITY_ENDPOINT", "http://127.0.0.1/", 1);
    setenv("PLAIN_PORT", std::to_string(plain.port()).c_str(), 1);
    setenv("TLS_PORT", std::to_string(secure.port()).c_str(), 1);

    const int status = RunProgram(copy.path());
    if (status == kNoPrivilege)
        GTEST_SKIP() << "the system ignores setuid in /tmp";
    EXPECT_EQ(status, 0);
    EXPECT_EQ(plain.requests().size(), 1U);
    EXPECT_TRUE(elsewhere.requests().empty());
    EXPECT_NE(access(keys.path(), F_OK), 0);
}

}  // namespace
