#include "platform/linux/file_store.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "platform/linux/outcome.h"

namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;

constexpr std::chrono::milliseconds kLongestPause(16);

LONG LastErrno()
{
    return ErrorFromErrno(errno);
}

LONG WriteAll(int descriptor, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t written = write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return written == 0 ? ERROR_WRITE_FAULT : LastErrno();
        content.remove_prefix(static_cast<size_t>(written));
    }
    return ERROR_SUCCESS;
}

LONG SyncDirectory(const std::string& directory)
{
    const FileDescriptor file(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return file.IsOpen() && fsync(file.Get()) == 0 ? ERROR_SUCCESS : LastErrno();
}

// A rewrite keeps the group that an administrator gave the file, and its permissions. All others are denied,
// whatever the old mode was; if the group can't be kept, only the owner has access.
void TakeOverAccess(int file, const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && fchown(file, static_cast<uid_t>(-1), status.st_gid) == 0)
        fchmod(file, kFileMode | (status.st_mode & (S_IRGRP | S_IWGRP)));
}

// Writes `path`, which will replace `replaced`.
LONG WriteTemporary(const std::string& path, const std::string& replaced, std::string_view content)
{
    // The lock makes the name ours. A leftover of a crash isn't overwritten, because another account may have it open.
    unlink(path.c_str());
    FileDescriptor file(OpenRegularFile(path, O_WRONLY | O_CREAT | O_EXCL, kFileMode));
    if (!file.IsOpen())
        return LastErrno();
    TakeOverAccess(file.Get(), replaced);
    const LONG error = WriteAll(file.Get(), content);
    if (error != ERROR_SUCCESS)
        return error;
    if (fsync(file.Get()) != 0)
        return LastErrno();
    return close(file.Release()) == 0 ? ERROR_SUCCESS : LastErrno();
}

}  // namespace

int FileDescriptor::Release()
{
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor;
}

void FileDescriptor::Reset(int descriptor)
{
    if (descriptor_ >= 0) {
        const int kept = errno;
        close(descriptor_);
        errno = kept;
    }
    descriptor_ = descriptor;
}

std::string DirectoryOf(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// False with errno set.
static bool MakeDirectory(const std::string& directory)
{
    if (mkdir(directory.c_str(), kDirectoryMode) != 0)
        return false;
    // A file in it is durable only if the directory is. Not every parent can be opened.
    SyncDirectory(DirectoryOf(directory));
    return true;
}

LONG MakeDirectories(const std::string& directory)
{
    if (MakeDirectory(directory))
        return ERROR_SUCCESS;
    if (errno == ENOENT && directory.find_first_not_of('/') != std::string::npos) {
        const LONG error = MakeDirectories(DirectoryOf(directory));
        if (error != ERROR_SUCCESS)
            return error;
        if (MakeDirectory(directory))
            return ERROR_SUCCESS;
    }
    if (errno != EEXIST)
        return LastErrno();
    struct stat status;
    const bool isDirectory = stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    return isDirectory ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

int OpenRegularFile(const std::string& path, int flags, mode_t mode, struct stat* status)
{
    struct stat ownStatus;
    if (!status)
        status = &ownStatus;
    FileDescriptor file(open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
    if (!file.IsOpen() || fstat(file.Get(), status) != 0)
        return -1;
    if (!S_ISREG(status->st_mode)) {
        errno = S_ISDIR(status->st_mode) ? EISDIR : ENXIO;
        return -1;
    }
    return file.Release();
}

LONG ReadWholeFile(const std::string& path, size_t maxSize, SecretString* content, struct stat* status)
{
    struct stat ownStatus;
    if (!status)
        status = &ownStatus;
    const FileDescriptor file(OpenRegularFile(path, O_RDONLY, 0, status));
    if (!file.IsOpen())
        return LastErrno();
    if (static_cast<uintmax_t>(status->st_size) > maxSize)
        return ERROR_FILE_TOO_LARGE;
    // The extra byte reveals whether the file has grown meanwhile.
    content->resize(static_cast<size_t>(status->st_size) + 1);
    size_t size = 0;
    while (size < content->size()) {
        const ssize_t got = read(file.Get(), content->data() + size, content->size() - size);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return LastErrno();
        if (got == 0)
            break;
        size += static_cast<size_t>(got);
        if (size > maxSize)
            return ERROR_FILE_TOO_LARGE;
        if (size == content->size())
            content->resize(size * 2);
    }
    content->resize(size);
    return ERROR_SUCCESS;
}

static std::string TemporaryOf(const std::string& path)
{
    return path + ".new";
}

Replacement::~Replacement()
{
    if (!path_.empty())
        unlink(TemporaryOf(path_).c_str());
}

LONG Replacement::Prepare(const std::string& path, std::string_view content)
{
    path_ = path;
    return WriteTemporary(TemporaryOf(path), path, content);
}

LONG Replacement::Publish()
{
    if (rename(TemporaryOf(path_).c_str(), path_.c_str()) != 0)
        return LastErrno();
    return SyncDirectory(DirectoryOf(std::exchange(path_, std::string())));
}

LONG ReplaceFile(const std::string& path, std::string_view content)
{
    Replacement replacement;
    const LONG error = replacement.Prepare(path, content);
    return error == ERROR_SUCCESS ? replacement.Publish() : error;
}

LONG AppendToFile(const std::string& path, std::string_view line)
{
    FileDescriptor file(OpenRegularFile(path, O_WRONLY | O_CREAT | O_APPEND, kFileMode));
    if (!file.IsOpen() && errno == ENOENT) {
        const LONG error = MakeDirectories(DirectoryOf(path));
        if (error != ERROR_SUCCESS)
            return error;
        file.Reset(OpenRegularFile(path, O_WRONLY | O_CREAT | O_APPEND, kFileMode));
    }
    return file.IsOpen() ? WriteAll(file.Get(), line) : LastErrno();
}

// Closing the file isn't enough: a child that was forked meanwhile has it open, too.
StoreLock::~StoreLock()
{
    if (file_.IsOpen())
        flock(file_.Get(), LOCK_UN);
}

LONG StoreLock::Acquire(const std::string& path, DWORD patienceMs)
{
    const LONG error = MakeDirectories(DirectoryOf(path));
    if (error != ERROR_SUCCESS)
        return error;
    file_.Reset(OpenRegularFile(path + ".lock", O_RDWR | O_CREAT, kFileMode));
    if (!file_.IsOpen())
        return LastErrno();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMs);
    // flock has no time limit, so poll.
    for (std::chrono::milliseconds pause(1); flock(file_.Get(), LOCK_EX | LOCK_NB) != 0;
         pause = std::min(2 * pause, kLongestPause)) {
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK)
            return LastErrno();
        if (std::chrono::steady_clock::now() >= deadline)
            return ERROR_LOCK_VIOLATION;
        std::this_thread::sleep_for(pause);
    }
    return ERROR_SUCCESS;
}
