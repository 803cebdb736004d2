// Paths, and files through the platform's functions and through the layer's own.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/linux/file_store.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "tests/common/row.h"
#include "tests/platform/platform_root.h"

namespace {

HANDLE Open(const std::u16string& name)
{
    return CreateFileW(name.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

// What fsync is called for while this isn't NULL.
std::vector<std::string>* synced = nullptr;

}  // namespace

// The layer's calls come here first.
extern "C" int fsync(int file)
{
    if (synced != nullptr)
        synced->push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file)).string());
    return static_cast<int>(syscall(SYS_fsync, file));
}

TEST(Paths, WindowsNamesBecomeNativeOnes)
{
    const PlatformRoot root;
    const std::string drive = root.File("drive_c");
    const std::string here = std::filesystem::current_path().string();
    const Row<const char16_t*, std::string, std::string> rows[] = {
        {u"C:\\logs\\day.log", drive + "/logs/day.log", "C:\\logs\\day.log"},
        {u"c:/logs/../x", drive + "/logs/../x", "c:\\x"},
        {u"/var/log\\day.log", "/var/log/day.log", "/var/log/day.log"},
        {u"below\\it", "below/it", here + "/below/it"},
        {u"\u00FC\\\u20AC", "\xC3\xBC/\xE2\x82\xAC", here + "/\xC3\xBC/\xE2\x82\xAC"},
        {u"D:\\elsewhere", "", "D:\\elsewhere"},
        {u"", "", ""}};
    for (const auto& [name, native, expected] : rows) {
        EXPECT_EQ(NativePath(name), native) << ToUtf8(name);
        WCHAR full[4096] = {};
        const auto length = static_cast<DWORD>(ToUtf16(expected).size());
        EXPECT_EQ(GetFullPathNameW(name, 4096, full, nullptr), length) << ToUtf8(name);
        EXPECT_EQ(ToUtf8(full), expected);
        full[0] = u'?';
        EXPECT_EQ(GetFullPathNameW(name, length, full, nullptr), length == 0 ? 0 : length + 1);
        EXPECT_EQ(full[0], u'?') << "too small, by the terminator";
    }
}

TEST(Paths, RootsFollowTheEnvironment)
{
    const PlatformRoot root;
    const std::string home = getenv("HOME") == nullptr ? "/" : getenv("HOME");
    const Row<const char*, const char*, std::string, std::string> rows[] = {
        {"HOME", "/home/someone", root.path(), root.path() + "/user"},
        {"KELVARO_USER_ROOT", "/somewhere/", root.path(), "/somewhere"},
        {"KELVARO_USER_ROOT", "/", root.path(), "/"},
        {"KELVARO_USER_ROOT", "", root.path(), root.path() + "/user"},
        {"KELVARO_ROOT", "", "/var/lib/kelvaro", "/home/someone/.kelvaro"},
    };
    for (const auto& [variable, value, rootDirectory, userDirectory] : rows) {
        setenv(variable, value, 1);
        EXPECT_EQ(RootDirectory(), rootDirectory) << variable;
        EXPECT_EQ(UserDirectory(), userDirectory) << variable;
    }
    setenv("HOME", home.c_str(), 1);
}

TEST(Files, AFileIsCreatedOrOpenedForAppending)
{
    const PlatformRoot root;
    const Row<const char*, LONG, const char*> writes[] = {{"hello", ERROR_SUCCESS, "hello"},
                                                          {" again", ERROR_ALREADY_EXISTS, "hello again"}};
    for (const auto& [text, error, content] : writes) {
        const HANDLE file = Open(u"C:\\file");
        ASSERT_NE(file, INVALID_HANDLE_VALUE) << "the root of C: is made on demand";
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(error));
        DWORD count = 0;
        EXPECT_TRUE(WriteFile(file, text, static_cast<DWORD>(strlen(text)), &count, nullptr));
        EXPECT_EQ(count, strlen(text));
        EXPECT_TRUE(CloseHandle(file));
        EXPECT_EQ(ReadFileText(root.File("drive_c/file")), content);
    }
    EXPECT_EQ(ModeOf(root.File("drive_c/file")), 0600u);
    EXPECT_EQ(ModeOf(root.File("drive_c")), 0700u);

    const Row<const char16_t*, LONG> rows[] = {{u"C:\\missing\\file", ERROR_FILE_NOT_FOUND},
                                               {u"C:", ERROR_ACCESS_DENIED},
                                               {u"D:\\file", ERROR_PATH_NOT_FOUND}};
    for (const auto& [name, error] : rows)
        EXPECT_EQ(ErrorOf(Open(name) != INVALID_HANDLE_VALUE), static_cast<DWORD>(error)) << ToUtf8(name);
}

TEST(Files, ANewFileAdmitsTheGroupThatMayWriteToItsFolder)
{
    const PlatformRoot root;
    const mode_t oldMask = umask(077);
    const Row<const char*, mode_t, unsigned> rows[] = {
        {"alone", 0755, 0600}, {"group", 0770, 0660}, {"everybody", 0777, 0660}};
    // Root may choose any group; another account has its own.
    const gid_t group = geteuid() == 0 ? 12345 : getegid();
    for (const auto& [name, mode, fileMode] : rows) {
        const std::string folder = root.File(name);
        ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
        ASSERT_EQ(chown(folder.c_str(), static_cast<uid_t>(-1), group), 0);
        ASSERT_EQ(chmod(folder.c_str(), mode), 0);
        EXPECT_TRUE(CloseHandle(Open(ToUtf16(folder + "/log"))));
        struct stat status = {};
        ASSERT_EQ(stat((folder + "/log").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, fileMode) << folder;
        EXPECT_TRUE(fileMode == 0600 || status.st_gid == group) << folder;
    }
    umask(oldMask);
}

TEST(FileStore, AFailedRewriteLeavesTheOldFile)
{
    const PlatformRoot root;
    const std::string path = root.File("store/file");
    WriteFileText(path, "old");
    std::filesystem::create_directory(path + ".new");
    EXPECT_EQ(ReplaceFile(path, "new"), ERROR_FILE_EXISTS);
    EXPECT_EQ(ReadFileText(path), "old");
    std::filesystem::remove(path + ".new");

    // What a crash or another account left in place of the temporary file is removed: a FIFO would block its writer,
    // and whoever has a file open could read what is written to it.
    WriteFileText(root.File("theirs"), "theirs");
    const std::function<void(const std::string&)> leftovers[] = {
        [](const std::string& there) { WriteFileText(there, "half a file"); },
        [](const std::string& there) { mkfifo(there.c_str(), 0600); },
        [&](const std::string& there) { std::filesystem::create_symlink(root.File("theirs"), there); },
        [&](const std::string& there) { std::filesystem::create_hard_link(root.File("theirs"), there); },
    };
    for (size_t i = 0; i < std::size(leftovers); i++) {
        leftovers[i](path + ".new");
        const std::string content = "new " + std::to_string(i);
        EXPECT_EQ(ReplaceFile(path, content), ERROR_SUCCESS) << i;
        EXPECT_EQ(ReadFileText(path), content);
        EXPECT_FALSE(std::filesystem::exists(path + ".new"));
        EXPECT_EQ(ReadFileText(root.File("theirs")), "theirs") << i;
    }
}

TEST(FileStore, ANewFileAndItsNewFoldersSurviveALossOfPower)
{
    const PlatformRoot root;
    const std::string base = std::filesystem::canonical(root.path()).string();
    std::vector<std::string> calls;
    synced = &calls;
    EXPECT_EQ(MakeDirectories(base + "/a/b"), ERROR_SUCCESS);
    EXPECT_EQ(ReplaceFile(base + "/a/b/file", "new"), ERROR_SUCCESS);
    synced = nullptr;
    EXPECT_EQ(calls, (std::vector<std::string>{base, base + "/a", base + "/a/b/file.new", base + "/a/b"}));
}

TEST(FileStore, OnlyRegularFilesAreOpened)
{
    const PlatformRoot root;
    const std::string target = root.File("target");
    const std::string fifo = root.File("fifo.lock");
    const std::string link = root.File("link.lock");
    WriteFileText(target, "target");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_symlink(target, link);
    const std::function<LONG(const std::string&)> ways[] = {
        [](const std::string& path) {
            SecretString content;
            return ReadWholeFile(path, 100, &content);
        },
        [](const std::string& path) { return AppendToFile(path, "more"); },
        // The lock's file has the path with ".lock".
        [](const std::string& path) { return StoreLock().Acquire(path.substr(0, path.size() - 5), 0); },
        [](const std::string& path) { return static_cast<LONG>(ErrorOf(Open(ToUtf16(path)) != INVALID_HANDLE_VALUE)); },
        [](const std::string& path) {
            return _wfopen(ToUtf16(path).c_str(), u"rt") ? ERROR_SUCCESS : ErrorFromErrno(errno);
        },
    };
    for (size_t i = 0; i < std::size(ways); i++) {
        EXPECT_EQ(ways[i](fifo), ERROR_BAD_FILE_TYPE) << i;
        EXPECT_EQ(ways[i](link), ERROR_BAD_FILE_TYPE) << i;
        // With a reader at the other end, opening and writing would work.
        const FileDescriptor reader(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
        EXPECT_EQ(ways[i](fifo), ERROR_BAD_FILE_TYPE) << i;
    }
    EXPECT_EQ(ReadFileText(target), "target");
}

TEST(FileStore, UnreadableFilesHaveTheirErrors)
{
    const PlatformRoot root;
    WriteFileText(root.File("file"), "12345");
    const Row<const char*, size_t, LONG> rows[] = {{"file", 4, ERROR_FILE_TOO_LARGE},
                                                   {"file", 5, ERROR_SUCCESS},
                                                   {"none", 5, ERROR_FILE_NOT_FOUND},
                                                   {"file/below", 5, ERROR_PATH_NOT_FOUND},
                                                   {"", 5, ERROR_ACCESS_DENIED}};
    for (const auto& [name, room, expected] : rows) {
        SecretString content;
        EXPECT_EQ(ReadWholeFile(root.File(name), room, &content), expected) << name;
        EXPECT_EQ(content, expected == ERROR_SUCCESS ? "12345" : "") << name;
    }
}
