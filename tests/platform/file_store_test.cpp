#include "platform/linux/file_store.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "platform/linux/outcome.h"
#include "tests/platform/platform_root.h"

TEST(FileStore, AFailedRewriteLeavesTheOldFile)
{
    const PlatformRoot root;
    const std::string path = root.File("store/file");
    WriteFileText(path, "old");
    // A directory where the temporary file should be.
    std::filesystem::create_directories(path + ".new/held");
    EXPECT_NE(ReplaceFile(path, "new"), ERROR_SUCCESS);
    EXPECT_EQ(ReadFileText(path), "old");
    std::filesystem::remove_all(path + ".new");
    // A FIFO there would block its writer.
    ASSERT_EQ(mkfifo((path + ".new").c_str(), 0600), 0);
    EXPECT_EQ(ReplaceFile(path, "new"), ERROR_BAD_FILE_TYPE);
    EXPECT_EQ(ReadFileText(path), "old");

    // What a crash left behind is no hindrance and no source.
    WriteFileText(path + ".new", "half a fi");
    EXPECT_EQ(ReadFileText(path), "old");
    EXPECT_EQ(ReplaceFile(path, "new"), ERROR_SUCCESS);
    EXPECT_EQ(ReadFileText(path), "new");
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(FileStore, AReaderNeverSeesHalfAFile)
{
    const PlatformRoot root;
    const std::string path = root.File("file");
    const std::string contents[] = {std::string(100000, 'a'), std::string(200000, 'b')};
    ASSERT_EQ(ReplaceFile(path, contents[0]), ERROR_SUCCESS);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 50; i++)
            ReplaceFile(path, contents[i % 2]);
        done = true;
    });
    while (!done) {
        SecretString content;
        ASSERT_EQ(ReadWholeFile(path, 1 << 20, &content), ERROR_SUCCESS);
        EXPECT_TRUE(std::string_view(content) == contents[0] || std::string_view(content) == contents[1])
            << content.size();
    }
    writer.join();
}

TEST(FileStore, TheLockHoldsBetweenThreadsAndProcesses)
{
    const PlatformRoot root;
    const std::string path = root.File("deep/down/counter");
    OnThreadsAndInAChild(2, [&path](int) {
        for (int i = 0; i < 20; i++) {
            StoreLock lock;
            ASSERT_EQ(lock.Acquire(path), ERROR_SUCCESS);
            SecretString count;
            ReadWholeFile(path, 100, &count);
            ReplaceFile(path, count + "1");
        }
    });
    EXPECT_EQ(ReadFileText(path), std::string(60, '1'));
    EXPECT_EQ(ModeOf(path), 0600u);
    EXPECT_EQ(ModeOf(root.File("deep/down")), 0700u);
}

TEST(FileStore, ALockThatIsNotReleasedIsNotWaitedForForever)
{
    const PlatformRoot root;
    const std::string path = root.File("file");
    StoreLock held;
    ASSERT_EQ(held.Acquire(path), ERROR_SUCCESS);
    EXPECT_EQ(StoreLock().Acquire(path, 20), ERROR_LOCK_VIOLATION);
}

TEST(FileStore, OnlyRegularFilesAreOpened)
{
    const PlatformRoot root;
    const std::string target = root.File("target");
    WriteFileText(target, "target");
    struct Way {
        const char* name;
        std::function<LONG(const std::string& path)> open;
    };
    const auto errorOf = [](bool opened) { return opened ? LONG{ERROR_SUCCESS} : static_cast<LONG>(GetLastError()); };
    const Way ways[] = {
        {"read as a whole",
         [](const std::string& path) {
             SecretString content;
             return ReadWholeFile(path, 100, &content);
         }},
        {"append", [](const std::string& path) { return AppendToFile(path, "more"); }},
        {"lock",
         [](const std::string& path) {
             // What stands where the lock's file belongs.
             return StoreLock().Acquire(path.substr(0, path.size() - 5), 0);
         }},
        {"CreateFileW",
         [&errorOf](const std::string& path) {
             return errorOf(CreateFileW(ToUtf16(path).c_str(), FILE_APPEND_DATA, 0, nullptr, OPEN_ALWAYS, 0, nullptr) !=
                            INVALID_HANDLE_VALUE);
         }},
        {"_wfopen",
         [](const std::string& path) {
             return _wfopen(ToUtf16(path).c_str(), u"rt") == nullptr ? ErrorFromErrno(errno) : ERROR_SUCCESS;
         }},
    };
    const std::string fifo = root.File("fifo.lock");
    const std::string link = root.File("link.lock");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::filesystem::create_symlink(target, link);
    for (const Way& way : ways) {
        EXPECT_EQ(way.open(fifo), ERROR_BAD_FILE_TYPE) << way.name;
        EXPECT_EQ(way.open(link), ERROR_BAD_FILE_TYPE) << way.name;
    }
    // Somebody waits at the other end: opening would work, and so would the writing.
    const FileDescriptor reader(open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
    for (const Way& way : ways)
        EXPECT_EQ(way.open(fifo), ERROR_BAD_FILE_TYPE) << way.name;
    EXPECT_EQ(ReadFileText(target), "target");
}

TEST(FileStore, WhatCannotBeReadIsNamed)
{
    const PlatformRoot root;
    SecretString content;
    WriteFileText(root.File("file"), "12345");
    EXPECT_EQ(ReadWholeFile(root.File("file"), 5, &content), ERROR_SUCCESS);
    EXPECT_EQ(content, "12345");
    EXPECT_EQ(ReadWholeFile(root.File("file"), 4, &content), ERROR_FILE_TOO_LARGE);
    EXPECT_EQ(ReadWholeFile(root.File("none"), 5, &content), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ReadWholeFile(root.File("file/below"), 5, &content), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(ReadWholeFile(root.path(), 5, &content), ERROR_ACCESS_DENIED);
    EXPECT_EQ(MakeDirectories(root.File("file")), ERROR_PATH_NOT_FOUND);
}
