#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "platform/linux/paths.h"
#include "tests/platform/platform_root.h"

namespace {

HANDLE Open(const std::u16string& name, DWORD access, DWORD disposition)
{
    return CreateFileW(name.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, disposition,
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
    const char* home = getenv("HOME");
    const std::string oldHome = home == nullptr ? "" : home;
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
    if (home == nullptr)
        unsetenv("HOME");
    else
        setenv("HOME", oldHome.c_str(), 1);
}

TEST(Files, DispositionsSayWhatMayBeThere)
{
    const PlatformRoot root;
    const struct {
        const char* name;
        DWORD disposition;
        bool isThere;
        bool opens;
        LONG error;
        const char* left;
    } rows[] = {
        {"new, missing", CREATE_NEW, false, true, ERROR_SUCCESS, ""},
        {"new, there", CREATE_NEW, true, false, ERROR_FILE_EXISTS, "old"},
        {"create, missing", CREATE_ALWAYS, false, true, ERROR_SUCCESS, ""},
        {"create, there", CREATE_ALWAYS, true, true, ERROR_ALREADY_EXISTS, ""},
        {"open, missing", OPEN_EXISTING, false, false, ERROR_FILE_NOT_FOUND, nullptr},
        {"open always, missing", OPEN_ALWAYS, false, true, ERROR_SUCCESS, ""},
        {"open always, there", OPEN_ALWAYS, true, true, ERROR_ALREADY_EXISTS, "old"},
        {"truncate, there", TRUNCATE_EXISTING, true, true, ERROR_SUCCESS, ""},
        {"truncate, missing", TRUNCATE_EXISTING, false, false, ERROR_FILE_NOT_FOUND, nullptr},
    };
    for (const auto& row : rows) {
        std::filesystem::remove(root.File("file"));
        if (row.isThere)
            WriteFileText(root.File("file"), "old");
        SetLastError(0);
        HANDLE file = Open(root.WideFile("file"), GENERIC_READ | GENERIC_WRITE, row.disposition);
        EXPECT_EQ(file != INVALID_HANDLE_VALUE, row.opens) << row.name;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(row.error)) << row.name;
        EXPECT_EQ(ReadFileText(root.File("file")), row.left == nullptr ? "" : row.left) << row.name;
        EXPECT_EQ(std::filesystem::exists(root.File("file")), row.left != nullptr) << row.name;
        if (row.opens) {
            EXPECT_TRUE(CloseHandle(file)) << row.name;
            EXPECT_FALSE(CloseHandle(file)) << row.name;
            EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
        }
    }
}

TEST(Files, BytesGoOutAndComeBack)
{
    const PlatformRoot root;
    DWORD count = 0;
    HANDLE file = Open(u"C:\\file", GENERIC_WRITE, CREATE_NEW);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << "the root of C: is made on demand";
    EXPECT_TRUE(WriteFile(file, "hello", 5, &count, nullptr));
    EXPECT_EQ(count, 5u);
    LARGE_INTEGER size;
    EXPECT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 5);
    CloseHandle(file);
    EXPECT_EQ(ModeOf(root.File("drive_c/file")), 0600u);
    EXPECT_EQ(ModeOf(root.File("drive_c")), 0700u);

    char buffer[16];
    file = Open(u"C:\\file", GENERIC_READ, OPEN_EXISTING);
    EXPECT_TRUE(ReadFile(file, buffer, sizeof buffer, &count, nullptr));
    EXPECT_EQ(std::string(buffer, count), "hello");
    EXPECT_TRUE(ReadFile(file, buffer, sizeof buffer, &count, nullptr));
    EXPECT_EQ(count, 0u);
    EXPECT_FALSE(WriteFile(file, "x", 1, &count, nullptr));
    CloseHandle(file);

    EXPECT_EQ(Open(u"C:\\missing\\file", GENERIC_WRITE, OPEN_ALWAYS), INVALID_HANDLE_VALUE);
    EXPECT_EQ(ErrorOf(Open(u"C:", GENERIC_READ, OPEN_EXISTING) != INVALID_HANDLE_VALUE), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(Open(u"D:\\file", GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(CreateDirectoryW(u"C:\\sub", nullptr));
    EXPECT_EQ(ErrorOf(CreateDirectoryW(u"C:\\sub", nullptr)), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(GetFileAttributesW(u"C:\\sub"), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_TRUE(DeleteFileW(u"C:\\file"));
    EXPECT_EQ(GetFileAttributesW(u"C:\\file"), INVALID_FILE_ATTRIBUTES);
}

TEST(Files, AppendedLinesOfManyHandlesStayWhole)
{
    const PlatformRoot root;
    const std::u16string name = root.WideFile("log");
    OnThreads(4, [&name](int i) {
        const std::string line = std::string(9000, static_cast<char>('a' + i)) + "\n";
        for (int turn = 0; turn < 20; turn++) {
            if (i % 2 != 0) {
                FILE* stream = nullptr;
                ASSERT_EQ(_wfopen_s(&stream, name.c_str(), u"a+"), 0);
                fwrite(line.data(), 1, line.size(), stream);
                fclose(stream);
            } else {
                DWORD written = 0;
                HANDLE file = Open(name, FILE_APPEND_DATA, OPEN_ALWAYS);
                WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
                CloseHandle(file);
            }
        }
    });
    const std::string text = ReadFileText(root.File("log"));
    ASSERT_EQ(text.size(), 4u * 20u * 9001u);
    for (size_t start = 0; start < text.size(); start += 9001)
        EXPECT_EQ(text.substr(start, 9001), std::string(9000, text[start]) + "\n");
}

TEST(Files, StreamModes)
{
    const PlatformRoot root;
    WriteFileText(root.File("file"), "secret");
    FILE* stream = _wfopen(root.WideFile("file").c_str(), u"rt");
    ASSERT_NE(stream, nullptr);
    char buffer[16] = {};
    EXPECT_EQ(fread(buffer, 1, sizeof buffer, stream), 6u);
    EXPECT_STREQ(buffer, "secret");
    fclose(stream);
    EXPECT_EQ(_wfopen(root.WideFile("none").c_str(), u"rt"), nullptr);
    EXPECT_EQ(_wfopen_s(&stream, root.WideFile("file").c_str(), u"q"), EINVAL);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(_wfopen_s(&stream, ToUtf16(root.path()).c_str(), u"r"), EISDIR);
    ASSERT_EQ(_wfopen_s(&stream, root.WideFile("file").c_str(), u"w"), 0);
    fclose(stream);
    EXPECT_EQ(ReadFileText(root.File("file")), "");
    ASSERT_EQ(_wfopen_s(&stream, root.WideFile("file").c_str(), u"a+"), 0);
    const std::string line(9000, 'x');
    fwrite(line.data(), 1, line.size(), stream);
    EXPECT_EQ(ReadFileText(root.File("file")), line) << "an appended line waits for no close";
    fclose(stream);
}
