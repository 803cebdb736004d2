#include "register/log_folder_windows.h"

#include <shlobj.h>

#include <filesystem>

namespace kelvaro_register {

namespace {
struct Level {
    const WCHAR* name;
    const WCHAR* access;
    // Other products have folders here too, so an existing access list is kept.
    bool shared;
};
// The log is for the system and administrators; everyone may traverse the folders above it.
const WCHAR kPassThrough[] = TEXT("O:BAG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)");
const WCHAR kClosed[] = TEXT("O:BAG:SYD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
const Level kLevels[] = {
    {TEXT("Zandrel"), kPassThrough, true}, {TEXT("Kelvaro"), kPassThrough, false}, {TEXT("Logs"), kClosed, false}};

// Opens the folder itself, not the target of a link.
class Folder {
  public:
    Folder(const WideText& path, DWORD rights)
        : handle_(CreateFileW(path.c_str(), rights, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr))
    {
    }
    ~Folder()
    {
        if (handle_ != INVALID_HANDLE_VALUE)
            CloseHandle(handle_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    HANDLE get() const { return handle_; }
    bool IsPlain() const
    {
        BY_HANDLE_FILE_INFORMATION information = {};
        return GetFileInformationByHandle(handle_, &information) &&
               (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
               !(information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
    }

  private:
    HANDLE handle_;
};
}  // namespace

static std::string Shown(const WideText& path)
{
    return std::filesystem::path(path).u8string();
}

static WideText DataFolder()
{
    WCHAR path[MAX_PATH];
    if (SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path) != S_OK)
        throw RefusedStep("Windows has no ProgramData folder");
    return path;
}

static WideText LogFolder()
{
    WideText path = DataFolder();
    for (const Level& level : kLevels)
        path += WideText(TEXT("\\")) + level.name;
    return path;
}

// For a folder that already existed.
static void TakeOver(const WideText& path, const Level& level, const Access& access)
{
    const Folder folder(path, READ_CONTROL | WRITE_DAC | WRITE_OWNER | FILE_READ_ATTRIBUTES);
    if (folder.get() == INVALID_HANDLE_VALUE)
        Check("opening " + Shown(path), GetLastError());
    if (!folder.IsPlain())
        throw RefusedStep(Shown(path) + " is not a folder, or is a link: remove it and try again");
    if (!IsOwnedByAdministrators(folder.get(), SE_FILE_OBJECT, Shown(path)))
        throw RefusedStep(Shown(path) + " belongs to an ordinary user: remove it and try again");
    if (!level.shared)
        access.Impose(folder.get(), SE_FILE_OBJECT, Shown(path));
}

WideText PrepareLogFolder()
{
    WideText path = DataFolder();
    for (const Level& level : kLevels) {
        path += WideText(TEXT("\\")) + level.name;
        Access access(level.access);
        if (CreateDirectoryW(path.c_str(), access.attributes()))
            continue;
        const DWORD error = GetLastError();
        if (error != ERROR_ALREADY_EXISTS)
            Check("creating " + Shown(path), error);
        TakeOver(path, level, access);
    }
    return path;
}

bool HasLogFolder()
{
    return GetFileAttributesW(LogFolder().c_str()) != INVALID_FILE_ATTRIBUTES;
}

void RemoveLogFolder()
{
    std::filesystem::path path = LogFolder();
    for (size_t level = 0; level < std::size(kLevels); ++level) {
        if (!RemoveDirectoryW(path.c_str()))
            return;
        path = path.parent_path();
    }
}

namespace {
struct FolderText {
    const char* prefix;
    ACCESS_MASK rights;
    const char* open;
};
}  // namespace

static std::string Describe(const WideText& path, const FolderText& text)
{
    // A drive's root, the setting's default, is written without its separator.
    const Folder folder(path.back() == ':' ? path + TEXT("\\") : path, READ_CONTROL);
    const std::string name = text.prefix + (", " + Shown(path) + ",");
    if (folder.get() == INVALID_HANDLE_VALUE)
        return name + (GetLastError() == ERROR_ACCESS_DENIED ? " cannot be read\n" : " is missing\n");
    const bool open = IsOpenToUsers(folder.get(), SE_FILE_OBJECT, text.rights, name);
    return name + (open ? text.open : " is closed to ordinary users\n");
}

std::string DescribeLogFolders(const std::set<WideText>& inUse)
{
    constexpr ACCESS_MASK kChange = FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY | FILE_DELETE_CHILD | DELETE;
    const WideText own = LogFolder();
    std::string lines = Describe(own, {"the log folder", kChange | FILE_READ_DATA, " can be used by ordinary users\n"});
    for (const WideText& folder : inUse) {
        if (!folder.empty() && folder != own)
            lines += Describe(folder, {"the folder of LogfilePath", kChange,
                                       " can be used by ordinary users, who could redirect the log: choose another\n"});
    }
    return lines;
}

}  // namespace kelvaro_register
