#include "tests/platform/platform_root.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
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
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

unsigned ModeOf(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}
