// How much stack a log call uses, and what is written where.
#include <pthread.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <sstream>

#include "provider/property_trace.h"
#include "tests/provider/provider_fixture.h"

static std::atomic<int> userLookups{0};

BOOL RealGetUserName(LPWSTR buffer, LPDWORD size) __asm__("__real__Z12GetUserNameWPDsPj");
BOOL CountedGetUserName(LPWSTR buffer, LPDWORD size) __asm__("__wrap__Z12GetUserNameWPDsPj");
BOOL CountedGetUserName(LPWSTR buffer, LPDWORD size)
{
    userLookups++;
    return RealGetUserName(buffer, size);
}

namespace {

// Sanitizers enlarge every frame.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// Hosts run threads with stacks of 64 KiB. These calls overflow a small stack, which ends the program, if they use more
// than about 16 KiB.
TEST_F(ProviderTest, LogCallsNeedLittleStack)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", 10);
    const TextString wideText(20000, 0x20AC);
    const std::string byteText(20000, '\xE4');
    // A host's bytes, at an odd address.
    const Bytes value(40001, 'v');
    const BYTE* const odd = value.data() + 1;
    const WCHAR* const text = wideText.c_str();
    const std::function<void()> calls[] = {
        [] { DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr); },
        [=] { LogLine(text, 1); },
        [=] { LogError(text, DWORD{5}, 1); },
        [=] { LogString(TEXT("message"), text, 10); },
        [=] { LogStrings(TEXT("message"), text, text, 10); },
        [=] { LogNumber(TEXT("message"), text, -1, 8); },
        [=] { LogData(TEXT("message"), text); },
        [&] { LogAscii(TEXT("message"), byteText.c_str()); },
        [=] { TraceProperty(TEXT("function"), TEXT("Length"), odd, 4); },
        [=] { TraceProperty(TEXT("function"), TEXT("Name"), odd, 40000); },
        [=] { TraceProperty(TEXT("function"), TEXT("Other"), odd, 40000); },
        [] { DllMain(nullptr, DLL_PROCESS_DETACH, nullptr); },
    };
    const auto run = [](void* call) -> void* {
        (*static_cast<const std::function<void()>*>(call))();
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 24 * 1024));
    for (std::function<void()> call : calls) {
        root.ClearLog();
        pthread_t thread;
        ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &call));
        pthread_join(thread, nullptr);
        EXPECT_FALSE(root.WholeLog().empty());
    }
    pthread_attr_destroy(&attributes);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

#endif

class LogOutletsTest : public testing::Test {
  protected:
    void Attach(DWORD fileLevel, DWORD eventLevel)
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", fileLevel);
        root.SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", eventLevel);
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    }
    void TearDown() override { DllMain(nullptr, DLL_PROCESS_DETACH, nullptr); }

    std::string Events() const
    {
        std::ostringstream text;
        text << std::ifstream(root.directory() + "/root/eventlog/Application.jsonl").rdbuf();
        return text.str();
    }

    TestRoot root;
};

TEST_F(LogOutletsTest, LineBreaksBecomeBlanksInTheFileAlone)
{
    Attach(1, 1);
    root.ClearLog();
    LogString(TEXT("error"), TEXT("a\r\nKelvaro: 2026-01-31 09:05:07 forged 1\vb\u0085c\u2028d\u2029"), 1);
    LogAscii(TEXT("body"), "\n{\n\t}");
    EXPECT_EQ((std::vector<std::string>{"error a  Kelvaro: 2026-01-31 09:05:07 forged 1 b c d  1", "body  { \t} 1"}),
              root.LogLines());
    EXPECT_NE(std::string::npos, Events().find("\"error a\\u000d\\u000aKelvaro: ")) << Events();
}

TEST_F(LogOutletsTest, LoadAndUnloadLookUpTheUserOnlyForTheirLines)
{
    BYTE processEnds = 0;
    // level, reason, reserved, lines of the file, each with a look-up, and whether there is an event
    const Row<DWORD, DWORD, void*, int, bool> rows[] = {
        {0, DLL_PROCESS_ATTACH, nullptr, 0, false},      {2, DLL_PROCESS_ATTACH, nullptr, 0, false},
        {4, DLL_PROCESS_ATTACH, &processEnds, 1, true},  {10, DLL_THREAD_ATTACH, nullptr, 0, false},
        {10, DLL_THREAD_DETACH, nullptr, 0, false},      {4, DLL_PROCESS_DETACH, nullptr, 1, true},
        {4, DLL_PROCESS_DETACH, &processEnds, 1, false},  // no event when the process ends
        {0, DLL_PROCESS_DETACH, &processEnds, 0, false},
    };
    for (const auto& [level, reason, reserved, lines, event] : rows) {
        SCOPED_TRACE(testing::Message() << level << " " << reason << " " << reserved);
        Attach(level, level);
        root.ClearLog();
        const std::string before = Events();
        userLookups = 0;
        EXPECT_EQ(TRUE, DllMain(nullptr, reason, reserved));
        EXPECT_EQ(lines, userLookups);
        EXPECT_EQ(static_cast<size_t>(lines), root.LogLines().size());
        EXPECT_EQ(event, Events() != before);
    }
}

}  // namespace
