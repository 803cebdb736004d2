#include "kelvaroctl/file_access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kelvaroctl/failure.h"
#include "platform/owner.h"

namespace kelvaroctl {

namespace fs = std::filesystem;

namespace {
class OpenFile : NonCopyable {
  public:
    explicit OpenFile(const std::string& name)
        : file_(open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR))
    {
        if (file_ < 0)
            throw FileFailure("write", name);
    }
    ~OpenFile() { close(file_); }

    int get() const { return file_; }

  private:
    int file_;
};
}  // namespace

void CreateForOwner(const std::string& name)
{
    const OpenFile file(name);
    struct stat status;
    if (fstat(file.get(), &status) != 0)
        throw FileFailure("protect", name);
    if (!S_ISREG(status.st_mode))
        return;
    if (status.st_uid != geteuid())
        throw UsageFailure(name + " belongs to another user, who could read the result: choose another file");
    if (fchmod(file.get(), S_IRUSR | S_IWUSR) != 0)
        throw FileFailure("protect", name);
}

static mode_t ModeOf(const fs::path& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

bool OthersCanWrite(const std::string& folder)
{
    std::error_code error;
    fs::path path = fs::canonical(fs::u8path(folder), error);
    if (error)
        return false;
    if (ModeOf(path) & S_IWOTH)
        return true;
    while (path.has_relative_path()) {
        path = path.parent_path();
        // With the sticky bit, no one can rename what belongs to another user.
        if ((ModeOf(path) & (S_IWOTH | S_ISVTX)) == S_IWOTH)
            return true;
    }
    return false;
}

}  // namespace kelvaroctl
