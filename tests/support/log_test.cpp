#include "support/log.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/common/alloc_fault.h"
#include "tests/common/row.h"
#include "tests/common/test_clock.h"
#include "tests/common/test_root.h"
#include "tests/common/threads.h"

class LogTest : public testing::Test {
  protected:
    void Attach(DWORD fileLevel, DWORD eventLevel)
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", fileLevel);
        root.SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", eventLevel);
        LogAttach();
    }
    void TearDown() override { LogLevel = EVLoggingLevel = LoggingLevel = 0; }

    TestClock clock;
    TestRoot root;
};

TEST_F(LogTest, TheFormOfEachCall)
{
    Attach(10, 10);
    SetLastError(4711);
    LogLine(TEXT("KVCDelete"), 8);
    LogError(TEXT("KelvaroEnumKeys"), NTE_INVALID_HANDLE, 1);
    LogError(TEXT("KVCGetKeys ActionThrottled"), DWORD{429}, 2);
    LogString(TEXT("KelvaroOpenKey"), nullptr, 4);
    LogStrings(TEXT("KelvaroOpenProvider"), TEXT("%G"), TEXT("id"), 8);
    LogNumber(TEXT("KVCNew"), TEXT("name"), -1, 8);
    LogData(TEXT("KelvaroSetKeyProperty"), TEXT("Own"));
    LogAscii(TEXT("Return String"), "{\"error\":1}");
    LogAscii(TEXT("Return String"), nullptr);
    EXPECT_EQ(4711u, GetLastError());
    EXPECT_EQ((std::vector<std::string>{
                  "KVCDelete 8", "KelvaroEnumKeys Error 0x80090026 1", "KVCGetKeys ActionThrottled Error 0x1ad 2",
                  "KelvaroOpenKey (NULL) 4", "KelvaroOpenProvider %G id 8", "KVCNew name -1 8",
                  "KelvaroSetKeyProperty Own (NULL) 10", "Return String {\"error\":1} 1", "Return String (NULL) 1"}),
              root.LogLines());
}

TEST_F(LogTest, TheGatesFollowBothSettings)
{
    // taken: the highest of the levels 1, 4, 8 and 10 in the file
    const Row<DWORD, DWORD, int, bool> rows[] = {
        {0, 0, 0, false}, {8, 0, 8, true}, {0, 4, 4, false}, {4, 10, 10, true}, {10, 4, 10, true}};
    for (const auto& [file, event, taken, dateLine] : rows) {
        Attach(file, event);
        EXPECT_EQ(dateLine, !root.WholeLog().empty()) << file << "/" << event;
        root.ClearLog();
        for (const LONG level : {1, 4, 8, 10})
            LogLine(TEXT("line"), level);
        const std::vector<std::string> lines = root.LogLines();
        EXPECT_EQ(taken, lines.empty() ? 0 : std::stoi(lines.back().substr(5))) << file << "/" << event;
        root.ClearLog();
    }
    Attach(0, 0);
    const TextString longText(20000, 'x');
    const AllocFault count(SIZE_MAX);
    LogString(TEXT("line"), longText.c_str(), 10);
    EXPECT_EQ(0u, count.Seen()) << "a closed gate formats nothing";
}

TEST_F(LogTest, TheFileFollowsTheUtcDayAndTheDirectorySetting)
{
    Attach(1, 0);
    root.ClearLog();
    clock.Set(1769903999);  // 2026-01-31 23:59:59 UTC
    LogLine(TEXT("last"), 1);
    clock.Advance(1);
    LogLine(TEXT("first"), 1);
    const time_t second = 1769903999;
    char head[64];
    strftime(head, sizeof(head), "Kelvaro: %Y-%m-%d %H:%M:%S last 1", localtime(&second));
    EXPECT_NE(std::string::npos, root.WholeLog().find(head)) << "in local time";
    EXPECT_TRUE(std::filesystem::exists(root.logDirectory() + "/2026-01-31_Kelvaro.log"));
    EXPECT_TRUE(std::filesystem::exists(root.logDirectory() + "/2026-02-01_Kelvaro.log"));

    const std::string other = root.directory() + "/other";
    root.SetText(HKEY_LOCAL_MACHINE, "LogfilePath", other);
    LogAttach();
    LogLine(TEXT("lost"), 1);
    EXPECT_FALSE(std::filesystem::exists(other));
    std::filesystem::create_directory(other);
    LogLine(TEXT("kept"), 1);
    EXPECT_TRUE(std::filesystem::exists(other + "/2026-02-01_Kelvaro.log"));
}

TEST_F(LogTest, LongTextsAreCut)
{
    Attach(10, 0);
    root.ClearLog();
    LogString(TEXT("body"), Wide(std::string(20000, 'x')).c_str(), 10);
    LogString(TEXT("name"), TEXT("Schl\u00fcssel \u2713"), 10);
    const std::vector<std::string> lines = root.LogLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("body " + std::string(9995, 'x') + " 10", lines[0]);
    EXPECT_EQ("name Schl\u00fcssel \u2713 10", lines[1]);

    // Without memory, what fits on the stack is still written.
    root.ClearLog();
    const TextString body = Wide(std::string(20000, 'x'));
    {
        const AllocFault fault(0, true);
        LogString(TEXT("body"), body.c_str(), 10);
        LogLine(body.c_str(), 10);
    }
    EXPECT_EQ((std::vector<std::string>{"body " + std::string(495, 'x') + " 10", std::string(500, 'x') + " 10"}),
              root.LogLines());
}

TEST_F(LogTest, LinesOfManyThreadsStayWhole)
{
    Attach(1, 0);
    root.ClearLog();
    const TextString text(80, 'a');
    OnThreads(8, [&](int) {
        for (int i = 0; i < 50; i++)
            LogString(TEXT("thread"), text.c_str(), 1);
    });
    const std::vector<std::string> lines = root.LogLines();
    EXPECT_EQ(400u, lines.size());
    for (const std::string& line : lines)
        EXPECT_EQ(lines[0], line);
}
