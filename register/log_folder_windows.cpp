#include "register/log_folder_windows.h"

#include <shlobj.h>

#include <filesystem>

#include "platform/owner.h"

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

using Folder = Owner<void, CloseHandle>;

// Opens the folder itself, not the target of a link. NULL if that fails.
Folder OpenFolder(const WideText& path, DWORD rights)
{
    const HANDLE opened =
        CreateFileW(path.c_str(), rights, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    return Folder(opened == INVALID_HANDLE_VALUE ? nullptr : opened);
}

bool IsPlain(const Folder& folder)
{
    BY_HANDLE_FILE_INFORMATION information = {};
    return GetFileInformationByHandle(folder.get(), &information) &&
           (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
           !(information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
}
}  // namespace

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
    const Folder folder = OpenFolder(path, READ_CONTROL | WRITE_DAC | WRITE_OWNER | FILE_READ_ATTRIBUTES);
    if (!folder)
        Check("opening " + Utf8(path), GetLastError());
    if (!IsPlain(folder))
        throw RefusedStep(Utf8(path) + " is not a folder, or is a link: remove it and try again");
    if (!IsOwnedByAdministrators(folder.get(), SE_FILE_OBJECT, Utf8(path)))
        throw RefusedStep(Utf8(path) + " belongs to an ordinary user: remove it and try again");
    if (!level.shared)
        access.Impose(folder.get(), SE_FILE_OBJECT, Utf8(path));
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
            Check("creating " + Utf8(path), error);
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
    const Folder folder = OpenFolder(path.back() == ':' ? path + TEXT("\\") : path, READ_CONTROL);
    const std::string name = text.prefix + (", " + Utf8(path) + ",");
    if (!folder)
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
