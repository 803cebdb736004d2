#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/paths.h"
#include "tests/platform/platform_root.h"

namespace {

HANDLE Open(const std::u16string& name)
{
    return CreateFileW(name.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

TEST(Paths, WindowsNamesBecomeNativeOnes)
{
    const PlatformRoot root;
    const std::string drive = root.File("drive_c");
    const struct {
        const char16_t* name;
        std::string native;
    } rows[] = {{u"C:", drive},
                {u"C:\\logs\\day.log", drive + "/logs/day.log"},
                {u"c:/logs", drive + "/logs"},
                {u"C:day.log", drive + "/day.log"},
                {u"/var/log\\day.log", "/var/log/day.log"},
                {u"/var//log", "/var//log"},
                {u"below\\it", "below/it"},
                {u"\u00FC\\\u20AC", "\xC3\xBC/\xE2\x82\xAC"},
                {u"D:\\elsewhere", ""},
                {u"", ""}};
    for (const auto& row : rows)
        EXPECT_EQ(NativePath(row.name), row.native) << ToUtf8(row.name);
    EXPECT_EQ(NativePath(nullptr), "");
}

TEST(Paths, RootsFollowTheEnvironment)
{
    const PlatformRoot root;
    const std::string home = getenv("HOME") == nullptr ? "/" : getenv("HOME");
    EXPECT_EQ(RootDirectory(), root.path());
    EXPECT_EQ(UserDirectory(), root.path() + "/user");
    setenv("KELVARO_USER_ROOT", "/somewhere/", 1);
    EXPECT_EQ(UserDirectory(), "/somewhere");
    setenv("KELVARO_USER_ROOT", "", 1);
    EXPECT_EQ(UserDirectory(), root.path() + "/user");
    setenv("HOME", "/home/someone", 1);
    setenv("KELVARO_ROOT", "", 1);
    EXPECT_EQ(RootDirectory(), "/var/lib/kelvaro");
    EXPECT_EQ(UserDirectory(), "/home/someone/.kelvaro");
    setenv("HOME", home.c_str(), 1);
}

TEST(Files, AFileIsMadeOrOpenedForAppending)
{
    const PlatformRoot root;
    HANDLE file = Open(u"C:\\file");
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << "the root of C: is made on demand";
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    DWORD count = 0;
    EXPECT_TRUE(WriteFile(file, "hello", 5, &count, nullptr));
    EXPECT_EQ(count, 5u);
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(ErrorOf(CloseHandle(file)), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(ModeOf(root.File("drive_c/file")), 0600u);
    EXPECT_EQ(ModeOf(root.File("drive_c")), 0700u);

    file = Open(u"C:\\file");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_TRUE(WriteFile(file, " again", 6, &count, nullptr));
    EXPECT_TRUE(CloseHandle(file));
    EXPECT_EQ(ReadFileText(root.File("drive_c/file")), "hello again");

    const struct {
        const char16_t* name;
        LONG error;
    } rows[] = {{u"C:\\missing\\file", ERROR_FILE_NOT_FOUND},
                {u"C:", ERROR_ACCESS_DENIED},
                {u"D:\\file", ERROR_PATH_NOT_FOUND}};
    for (const auto& row : rows)
        EXPECT_EQ(ErrorOf(Open(row.name) != INVALID_HANDLE_VALUE), static_cast<DWORD>(row.error)) << ToUtf8(row.name);
}

TEST(Files, ANewFileAdmitsTheGroupThatMayWriteToItsFolder)
{
    const PlatformRoot root;
    const mode_t oldMask = umask(077);
    const struct {
        const char* folder;
        mode_t mode;
        unsigned fileMode;
    } rows[] = {{"alone", 0755, 0600}, {"group", 0770, 0660}, {"setgid", 02770, 0660}, {"everybody", 0777, 0660}};
    // Root may choose any group; another account has its own.
    const gid_t group = geteuid() == 0 ? 12345 : getegid();
    for (const auto& row : rows) {
        const std::string folder = root.File(row.folder);
        ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
        ASSERT_EQ(chown(folder.c_str(), static_cast<uid_t>(-1), group), 0);
        ASSERT_EQ(chmod(folder.c_str(), row.mode), 0);
        EXPECT_TRUE(CloseHandle(Open(ToUtf16(folder + "/log"))));
        struct stat status = {};
        ASSERT_EQ(stat((folder + "/log").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, row.fileMode) << row.folder;
        EXPECT_TRUE(row.fileMode == 0600 || status.st_gid == group) << row.folder;
    }
    umask(oldMask);
}

TEST(Files, AStreamIsForReadingAlone)
{
    const PlatformRoot root;
    WriteFileText(root.File("file"), "secret");
    FILE* stream = _wfopen(root.WideFile("file").c_str(), u"rt");
    ASSERT_NE(stream, nullptr);
    char buffer[16] = {};
    EXPECT_EQ(fread(buffer, 1, sizeof buffer, stream), 6u);
    EXPECT_STREQ(buffer, "secret");
    fclose(stream);
    const struct {
        const char* name;
        const char16_t* mode;
        int error;
    } rows[] = {{"none", u"rt", ENOENT}, {"", u"rt", EISDIR}, {"file", u"w", EINVAL}};
    for (const auto& row : rows) {
        EXPECT_EQ(_wfopen(root.WideFile(row.name).c_str(), row.mode), nullptr) << row.name;
        EXPECT_EQ(errno, row.error) << row.name;
    }
}
