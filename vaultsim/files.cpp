#include "vaultsim/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace vaultsim {

namespace {

[[noreturn]] void Fail(const std::string& path)
{
    throw std::system_error(errno, std::generic_category(), path);
}

}  // namespace

void MakeDirectory(const std::string& path)
{
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0700);
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        Fail(path);
}

void WriteFile(const std::string& path, const std::string& content, unsigned mode)
{
    unlink(path.c_str());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, static_cast<mode_t>(mode));
    if (fd < 0)
        Fail(path);
    const bool written = write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    if (close(fd) != 0 || !written)
        Fail(path);
}

std::optional<std::string> ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace vaultsim
