#include "tests/platform/platform_root.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

PlatformRoot::PlatformRoot()
{
    path_ = (std::filesystem::temp_directory_path() / "kelvaro-platform-XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    setenv("KELVARO_ROOT", path_.c_str(), 1);
    unsetenv("KELVARO_USER_ROOT");
}

PlatformRoot::~PlatformRoot()
{
    std::filesystem::remove_all(path_);
    unsetenv("KELVARO_ROOT");
    unsetenv("KELVARO_USER_ROOT");
}

void WriteFileText(const std::string& path, const std::string& text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

unsigned ModeOf(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

std::string X509File(const std::string& name)
{
    return KELVARO_TEST_DATA "/x509/" + name;
}

std::string TestCertificate(char last)
{
    std::string der = ReadFileText(X509File("web01.der"));
    der.at(der.rfind("web01") + 4) = last;
    return der;
}

std::string ErrorText()
{
    char text[32];
    snprintf(text, sizeof text, "error %X", GetLastError());
    return text;
}

std::string HexText(const BYTE* bytes, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; i++) {
        text += "0123456789ABCDEF"[bytes[i] >> 4];
        text += "0123456789ABCDEF"[bytes[i] & 15];
    }
    return text;
}

void OnThreadsAndInAChild(int count, const std::function<void(int)>& work)
{
    const pid_t child = fork();
    if (child == 0) {
        work(count);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    OnThreads(count, work);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}
