#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <vector>

#include "tests/platform/platform_root.h"

namespace {

BOOL Report(HANDLE source, WORD type, LPCWSTR text)
{
    return ReportEventW(source, type, 0, 0, nullptr, 1, 0, &text, nullptr);
}

// The lines of a file without their stamps, which are tested to have the right form.
std::vector<std::string> Records(const std::string& path)
{
    const std::regex stamp("\\{\"time\":\"20\\d\\d-[01]\\d-[0-3]\\dT[0-2]\\d:[0-5]\\d:[0-6]\\dZ\",");
    std::istringstream text(ReadFileText(path));
    std::vector<std::string> records;
    for (std::string line; std::getline(text, line);) {
        EXPECT_TRUE(std::regex_search(line.substr(0, 31), stamp)) << line;
        records.push_back(line.substr(31));
    }
    return records;
}

}  // namespace

TEST(EventLog, OneObjectALineWithTypeAndText)
{
    const PlatformRoot root;
    HANDLE source = RegisterEventSourceW(nullptr, u"Application");
    ASSERT_NE(source, nullptr);
    EXPECT_TRUE(Report(source, EVENTLOG_ERROR_TYPE, u"KelvaroEnumKeys Error 0x80090026"));
    EXPECT_TRUE(Report(source, EVENTLOG_WARNING_TYPE, u"C:\\a \"b\"\r\n\t\u20AC \U0001F511"));
    const char16_t broken[] = {u'x', 0xDC00, 0};
    EXPECT_TRUE(Report(source, EVENTLOG_SUCCESS, broken));
    const std::string file = root.File("eventlog/Application.jsonl");
    EXPECT_EQ(Records(file), (std::vector<std::string>{
                                 R"("type":1,"text":"KelvaroEnumKeys Error 0x80090026"})",
                                 "\"type\":2,\"text\":\"C:\\\\a \\\"b\\\"\\u000d\\u000a\\u0009\xE2\x82\xAC "
                                 "\xF0\x9F\x94\x91\"}",
                                 "\"type\":0,\"text\":\"x\xEF\xBF\xBD\"}",
                             }));
    EXPECT_EQ(ModeOf(file), 0600u);
    EXPECT_EQ(RegisterEventSourceW(nullptr, u"Application"), source);

    EXPECT_EQ(RegisterEventSourceW(nullptr, nullptr), nullptr);
    EXPECT_EQ(RegisterEventSourceW(nullptr, u""), nullptr);
    EXPECT_EQ(RegisterEventSourceW(u"elsewhere", u"Application"), nullptr);
    EXPECT_EQ(ErrorOf(Report(nullptr, EVENTLOG_SUCCESS, u"text")), DWORD{ERROR_INVALID_HANDLE});
}

TEST(EventLog, ASourceNameCannotLeaveTheDirectory)
{
    const PlatformRoot root;
    HANDLE source = RegisterEventSourceW(nullptr, u"../up\\and/away");
    ASSERT_TRUE(Report(source, EVENTLOG_SUCCESS, u"text"));
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.path()))
        names.push_back(entry.path().filename().string());
    EXPECT_EQ(names, (std::vector<std::string>{"eventlog", "_._up_and_away.jsonl"}));
}

TEST(EventLog, ThreadsDoNotMixTheirLines)
{
    const PlatformRoot root;
    const std::u16string text(3000, u'x');
    OnThreads(4, [&text](int) {
        HANDLE source = RegisterEventSourceW(nullptr, u"Application");
        for (int line = 0; line < 25; line++)
            Report(source, EVENTLOG_SUCCESS, text.c_str());
    });
    const std::string record = "\"type\":0,\"text\":\"" + std::string(3000, 'x') + "\"}";
    EXPECT_EQ(Records(root.File("eventlog/Application.jsonl")), std::vector<std::string>(100, record));
}
