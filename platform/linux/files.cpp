#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "platform/linux/file_store.h"
#include "platform/linux/handles.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/text.h"

namespace {

constexpr mode_t kFileMode = 0600;

class File : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::file;

    File(int descriptor, bool appends) : KernelObject(kKind), descriptor_(descriptor), appends_(appends) {}
    int Get() const { return descriptor_.Get(); }
    bool appends() const { return appends_; }

  private:
    const FileDescriptor descriptor_;
    const bool appends_;
};

// -1 with errno set. A directory is refused, as a file name that leads to one is on Windows.
int OpenFile(LPCWSTR name, int flags)
{
    const std::string path = NativePath(name);
    if (path.empty()) {
        errno = ENOTDIR;
        return -1;
    }
    // On Windows the root of C: is always there.
    if ((flags & O_CREAT) != 0 && IsOnDrive(name))
        MakeDirectories(DriveDirectory());
    FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, kFileMode));
    struct stat status;
    if (file.IsOpen() && fstat(file.Get(), &status) == 0 && S_ISDIR(status.st_mode)) {
        file.Reset(-1);
        errno = EISDIR;
    }
    return file.Release();
}

// Opens what is there, or makes it; *existed tells which, whoever else makes or deletes it meanwhile.
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

int OpenByDisposition(LPCWSTR name, int flags, DWORD disposition, bool* existed)
{
    *existed = false;
    switch (disposition) {
        case CREATE_NEW:
            return OpenFile(name, flags | O_CREAT | O_EXCL);
        case CREATE_ALWAYS:
            return OpenOrCreate(name, flags | O_TRUNC, existed);
        case OPEN_ALWAYS:
            return OpenOrCreate(name, flags, existed);
        case OPEN_EXISTING:
            return OpenFile(name, flags);
        case TRUNCATE_EXISTING:
            return OpenFile(name, flags | O_TRUNC);
        default:
            errno = EINVAL;
            return -1;
    }
}

bool WritesAtEnd(DWORD access)
{
    return (access & FILE_APPEND_DATA) != 0 && (access & GENERIC_WRITE) == 0;
}

int FlagsOfAccess(DWORD access)
{
    const bool reads = (access & GENERIC_READ) != 0;
    const bool writes = (access & (GENERIC_WRITE | FILE_APPEND_DATA)) != 0;
    return (reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY) | (WritesAtEnd(access) ? O_APPEND : 0);
}

// -1 for a mode that is none.
int FlagsOfMode(const std::string& mode)
{
    const bool updates = mode.find('+') != std::string::npos;
    if (mode.find_first_not_of("+bt", 1) != std::string::npos)
        return -1;
    switch (mode.empty() ? '\0' : mode[0]) {
        case 'r':
            return updates ? O_RDWR : O_RDONLY;
        case 'w':
            return (updates ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
        case 'a':
            return (updates ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
        default:
            return -1;
    }
}

FILE* OpenStream(LPCWSTR name, LPCWSTR mode)
{
    std::string narrow = ToUtf8(ViewOf(mode));
    const int flags = FlagsOfMode(narrow);
    if (flags < 0) {
        errno = EINVAL;
        return nullptr;
    }
    FileDescriptor file(OpenFile(name, flags));
    if (!file.IsOpen())
        return nullptr;
    narrow.erase(std::remove(narrow.begin(), narrow.end(), 't'), narrow.end());
    FILE* stream = fdopen(file.Get(), narrow.c_str());
    if (stream == nullptr)
        return nullptr;
    file.Release();
    // Without a buffer glibc hands each fwrite over as one write, which O_APPEND keeps whole.
    if ((flags & O_APPEND) != 0)
        setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

// The whole of what was asked for, unless the write is to be a single one.
LONG WriteTo(const File& file, const char* data, size_t size, DWORD* written)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t got = write(file.Get(), data + done, size - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return ErrorFromErrno(errno);
        done += static_cast<size_t>(got);
        *written = static_cast<DWORD>(done);
        if (got == 0 || (file.appends() && done < size))
            return ERROR_DISK_FULL;
    }
    return ERROR_SUCCESS;
}

}  // namespace

HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD, HANDLE)
{
    HANDLE handle = nullptr;
    bool existed = false;
    Succeeds([&]() -> LONG {
        FileDescriptor file(OpenByDisposition(name, FlagsOfAccess(access), disposition, &existed));
        if (!file.IsOpen())
            return ErrorFromErrno(errno);
        ObjectRef<KernelObject> object(new File(file.Get(), WritesAtEnd(access)));
        file.Release();
        handle = PublishHandle(std::move(object));
        return handle == nullptr ? ERROR_NO_SYSTEM_RESOURCES : ERROR_SUCCESS;
    });
    if (handle == nullptr)
        return INVALID_HANDLE_VALUE;
    if (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS)
        SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return handle;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD got, LPVOID overlapped)
{
    const auto file = FindObject<File>(handle);
    if (file == nullptr)
        return FALSE;
    if (got == nullptr || overlapped != nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    *got = 0;
    ssize_t count;
    do {
        count = read(file->Get(), buffer, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        return Fail(ErrorFromErrno(errno));
    *got = static_cast<DWORD>(count);
    return TRUE;
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, LPDWORD written, LPVOID overlapped)
{
    const auto file = FindObject<File>(handle);
    if (file == nullptr)
        return FALSE;
    if (written == nullptr || overlapped != nullptr)
        return Fail(ERROR_INVALID_PARAMETER);
    *written = 0;
    const LONG error = WriteTo(*file, static_cast<const char*>(buffer), size, written);
    return error == ERROR_SUCCESS ? TRUE : Fail(error);
}

BOOL WINAPI GetFileSizeEx(HANDLE handle, PLARGE_INTEGER size)
{
    const auto file = FindObject<File>(handle);
    if (file == nullptr)
        return FALSE;
    struct stat status;
    if (fstat(file->Get(), &status) != 0)
        return Fail(ErrorFromErrno(errno));
    size->QuadPart = status.st_size;
    return TRUE;
}

BOOL WINAPI DeleteFileW(LPCWSTR name)
{
    return Succeeds([&]() -> LONG {
        const std::string path = NativePath(name);
        if (path.empty())
            return ERROR_PATH_NOT_FOUND;
        return unlink(path.c_str()) == 0 ? ERROR_SUCCESS : ErrorFromErrno(errno);
    });
}

BOOL WINAPI CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES)
{
    return Succeeds([&]() -> LONG {
        const std::string path = NativePath(name);
        if (path.empty())
            return ERROR_PATH_NOT_FOUND;
        if (IsOnDrive(name))
            MakeDirectories(DriveDirectory());
        if (mkdir(path.c_str(), 0700) == 0)
            return ERROR_SUCCESS;
        if (errno == EEXIST)
            return ERROR_ALREADY_EXISTS;
        return errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno);
    });
}

DWORD WINAPI GetFileAttributesW(LPCWSTR name)
{
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    Succeeds([&]() -> LONG {
        const std::string path = NativePath(name);
        struct stat status;
        if (path.empty())
            return ERROR_PATH_NOT_FOUND;
        if (stat(path.c_str(), &status) != 0)
            return ErrorFromErrno(errno);
        attributes = S_ISDIR(status.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
        return ERROR_SUCCESS;
    });
    return attributes;
}

FILE* _wfopen(const WCHAR* name, const WCHAR* mode)
{
    FILE* stream = nullptr;
    const LONG error = CodeOf([&]() -> LONG {
        stream = OpenStream(name, mode);
        return ERROR_SUCCESS;
    });
    if (error != ERROR_SUCCESS)
        errno = ENOMEM;
    return stream;
}

errno_t _wfopen_s(FILE** stream, const WCHAR* name, const WCHAR* mode)
{
    if (stream == nullptr)
        return EINVAL;
    *stream = _wfopen(name, mode);
    return *stream == nullptr ? errno : 0;
}
