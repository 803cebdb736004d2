#include "platform/linux/file_store.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

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
        std::string content;
        ASSERT_EQ(ReadWholeFile(path, 1 << 20, &content), ERROR_SUCCESS);
        EXPECT_TRUE(content == contents[0] || content == contents[1]) << content.size();
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
            std::string count;
            ReadWholeFile(path, 100, &count);
            ReplaceFile(path, count + "1");
        }
    });
    EXPECT_EQ(ReadFileText(path), std::string(60, '1'));
    EXPECT_EQ(ModeOf(path), 0600u);
    EXPECT_EQ(ModeOf(root.File("deep/down")), 0700u);
}

TEST(FileStore, WhatCannotBeReadIsNamed)
{
    const PlatformRoot root;
    std::string content;
    WriteFileText(root.File("file"), "12345");
    EXPECT_EQ(ReadWholeFile(root.File("file"), 5, &content), ERROR_SUCCESS);
    EXPECT_EQ(content, "12345");
    EXPECT_EQ(ReadWholeFile(root.File("file"), 4, &content), ERROR_FILE_TOO_LARGE);
    EXPECT_EQ(ReadWholeFile(root.File("none"), 5, &content), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ReadWholeFile(root.File("file/below"), 5, &content), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(ReadWholeFile(root.path(), 5, &content), ERROR_ACCESS_DENIED);
    EXPECT_EQ(MakeDirectories(root.File("file")), ERROR_PATH_NOT_FOUND);
}
