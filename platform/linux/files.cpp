#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "platform/linux/file_store.h"
#include "platform/linux/handles.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/text.h"

namespace {

constexpr mode_t kFileMode = 0600;
constexpr std::u16string_view kReading = u"rt";

class File : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::file;

    explicit File(int descriptor) : KernelObject(kKind), descriptor_(descriptor) {}
    int Get() const { return descriptor_.Get(); }

  private:
    const FileDescriptor descriptor_;
};

// Programs under several accounts write to one log: a new file is group-writable if its folder is, whatever the
// umask, just as files inherit permissions from folders on Windows. All others are denied.
void AdmitGroupOfFolder(int descriptor, const std::string& folder)
{
    struct stat status;
    if (stat(folder.c_str(), &status) != 0 || (status.st_mode & S_IWGRP) == 0)
        return;
    // If the group can't be set, the file would be open to whatever group the program runs with.
    if (fchown(descriptor, static_cast<uid_t>(-1), status.st_gid) == 0)
        fchmod(descriptor, kFileMode | S_IRGRP | S_IWGRP);
}

// -1 with errno set.
int OpenFile(LPCWSTR name, int flags)
{
    const std::string path = NativePath(name);
    if (path.empty()) {
        errno = ENOTDIR;
        return -1;
    }
    // On Windows the root of C: always exists.
    if ((flags & O_CREAT) != 0 && IsOnDrive(name))
        MakeDirectories(DriveDirectory());
    FileDescriptor file(OpenRegularFile(path, flags, kFileMode));
    if (file.IsOpen() && (flags & O_CREAT) != 0)
        AdmitGroupOfFolder(file.Get(), DirectoryOf(path));
    return file.Release();
}

// Opens or creates the file. *existed is right even if another process creates or deletes it meanwhile.
int OpenOrCreate(LPCWSTR name, int flags, bool* existed)
{
    for (int attempt = 0; attempt < 100; attempt++) {
        *existed = true;
        int descriptor = OpenFile(name, flags);
        if (descriptor >= 0 || errno != ENOENT)
            return descriptor;
        *existed = false;
        descriptor = OpenFile(name, flags | O_CREAT | O_EXCL);
        if (descriptor >= 0 || errno != EEXIST)
            return descriptor;
    }
    return -1;
}

// A single write, so that writes of other processes don't interleave.
LONG Append(const File& file, LPCVOID data, DWORD size, DWORD* written)
{
    ssize_t count;
    do {
        count = write(file.Get(), data, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        return ErrorFromErrno(errno);
    *written = static_cast<DWORD>(count);
    return *written == size ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

FILE* OpenForReading(LPCWSTR name)
{
    FileDescriptor file(OpenFile(name, O_RDONLY));
    FILE* stream = file.IsOpen() ? fdopen(file.Get(), "r") : nullptr;
    if (stream)
        file.Release();
    return stream;
}

// Absolute and without "." and "..". The current folder of a drive is always its root.
std::u16string FullPath(LPCWSTR name)
{
    std::string path = ToUtf8(ViewOf(name));
    std::replace(path.begin(), path.end(), '\\', '/');
    const bool hasDrive = path.size() >= 2 && path[1] == ':';
    const std::string drive = path.substr(0, hasDrive ? 2 : 0);
    const std::filesystem::path start = hasDrive ? "/" : std::filesystem::current_path();
    path = drive + (start / path.substr(drive.size())).lexically_normal().string();
    if (hasDrive)
        std::replace(path.begin(), path.end(), '/', '\\');
    return ToUtf16(path);
}

}  // namespace

HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD, HANDLE)
{
    bool existed = false;
    const HANDLE handle = ResultOf([&] {
        if (access != FILE_APPEND_DATA || disposition != OPEN_ALWAYS)
            throw Failure(ERROR_INVALID_PARAMETER);
        FileDescriptor file(OpenOrCreate(name, O_WRONLY | O_APPEND, &existed));
        if (!file.IsOpen())
            throw Failure(ErrorFromErrno(errno));
        ObjectRef<KernelObject> object(new File(file.Get()));
        file.Release();
        return PublishHandle(std::move(object));
    });
    if (!handle)
        return INVALID_HANDLE_VALUE;
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, LPDWORD written, LPVOID overlapped)
{
    const auto file = FindObject<File>(handle);
    if (!file)
        return FALSE;
    if (!written || overlapped)
        return Fail(ERROR_INVALID_PARAMETER);
    *written = 0;
    const LONG error = Append(*file, buffer, size, written);
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

DWORD WINAPI GetFullPathNameW(LPCWSTR name, DWORD room, LPWSTR buffer, LPWSTR* filePart)
{
    return ResultOf([&] {
        if (ViewOf(name).empty() || filePart)
            throw Failure(ERROR_INVALID_PARAMETER);
        const std::u16string full = FullPath(name);
        const bool fits = full.size() < room;
        if (fits)
            *std::copy(full.begin(), full.end(), buffer) = 0;
        return static_cast<DWORD>(full.size() + (fits ? 0 : 1));
    });
}

UINT WINAPI GetDriveTypeW(LPCWSTR)
{
    return DRIVE_FIXED;
}

FILE* _wfopen(const WCHAR* name, const WCHAR* mode)
{
    if (ViewOf(mode) != kReading) {
        errno = EINVAL;
        return nullptr;
    }
    FILE* stream = nullptr;
    const LONG error = CodeOf([&] { stream = OpenForReading(name); });
    if (error != ERROR_SUCCESS)
        errno = ENOMEM;
    return stream;
}
