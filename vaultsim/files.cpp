#include "vaultsim/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace vaultsim {

void MakeDirectory(const std::string& path)
{
    if (std::filesystem::create_directories(path))
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

// With system calls, so that a secret's file has the right mode from the start.
void WriteFile(const std::string& path, const std::string& content, unsigned mode)
{
    unlink(path.c_str());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, static_cast<mode_t>(mode));
    const bool written = fd >= 0 && write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    if (!written || close(fd) != 0)
        throw std::system_error(errno, std::generic_category(), path);
}

std::optional<std::string> ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace vaultsim
