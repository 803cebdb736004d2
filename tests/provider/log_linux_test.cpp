// What a log call takes of its host, and what of it goes to the event log.
#include <pthread.h>

#include <algorithm>
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

// Runs `body` on a thread with a painted stack; how many bytes of it were used.
size_t DepthOf(const std::function<void()>& body)
{
    constexpr size_t kSize = 256 * 1024;
    constexpr unsigned char kPaint = 0xA5;
    static unsigned char stack[kSize] __attribute__((aligned(64)));
    std::fill_n(stack, kSize, kPaint);
    struct Run {
        const std::function<void()>& body;
        const void* start;
    } run = {body, nullptr};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, kSize);
    pthread_t thread;
    const auto enter = [](void* argument) -> void* {
        static_cast<Run*>(argument)->start = __builtin_frame_address(0);
        static_cast<Run*>(argument)->body();
        return nullptr;
    };
    EXPECT_EQ(0, pthread_create(&thread, &attributes, enter, &run));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const auto* const deepest = std::find_if(stack, stack + kSize, [](unsigned char byte) { return byte != kPaint; });
    return static_cast<size_t>(static_cast<const unsigned char*>(run.start) - deepest);
}

TEST_F(ProviderTest, LogCallsLeaveAHostsStackAlone)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", 10);
    const TextString wideText(20000, 0x20AC);
    const std::string byteText(20000, '\xE4');
    // A host's bytes, at an odd address.
    Bytes value(40001, 'v');
    const BYTE* const odd = value.data() + 1;
    const WCHAR* const text = wideText.c_str();
    const struct {
        const char* name;
        std::function<void()> call;
    } rows[] = {
        {"attach", [] { DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr); }},
        {"line", [=] { LogLine(text, 1); }},
        {"error", [=] { LogError(text, DWORD{5}, 1); }},
        {"string", [=] { LogString(TEXT("message"), text, 10); }},
        {"strings", [=] { LogStrings(TEXT("message"), text, text, 10); }},
        {"number", [=] { LogNumber(TEXT("message"), text, -1, 8); }},
        {"data", [=] { LogData(TEXT("message"), text); }},
        {"bytes", [&] { LogAscii(TEXT("message"), byteText.c_str()); }},
        {"trace of a number", [=] { TraceProperty(TEXT("function"), TEXT("Length"), odd, 4); }},
        {"trace of a text", [=] { TraceProperty(TEXT("function"), TEXT("Name"), odd, 40000); }},
        {"trace of bytes", [=] { TraceProperty(TEXT("function"), TEXT("Other"), odd, 40000); }},
        {"detach", [] { DllMain(nullptr, DLL_PROCESS_DETACH, nullptr); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        const size_t depth = DepthOf(row.call);
        EXPECT_LE(depth, 16u * 1024) << "hosts run threads with stacks of 64 KiB";
        EXPECT_FALSE(root.WholeLog().empty());
    }
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

TEST_F(LogOutletsTest, LineBreaksAreBlanksInTheFileAndStayInTheEventLog)
{
    Attach(1, 1);
    root.ClearLog();
    LogString(TEXT("error"), TEXT("a\r\nKelvaro: 2026-01-31 09:05:07 forged 1\vb\u0085c\u2028d\u2029"), 1);
    LogAscii(TEXT("body"), "\n{\n\t}");
    EXPECT_EQ((std::vector<std::string>{"error a  Kelvaro: 2026-01-31 09:05:07 forged 1 b c d  1", "body  { \t} 1"}),
              root.LogLines());
    EXPECT_NE(std::string::npos, Events().find("\"error a\\u000d\\u000aKelvaro: ")) << Events();
}

TEST_F(LogOutletsTest, LoadAndUnloadLookUpNamesForTheirLinesAndTheEndOfAProcessMakesNoEvent)
{
    BYTE processEnds = 0;
    const struct {
        const char* name;
        DWORD file, event;
        DWORD reason;
        LPVOID reserved;
        int lookups, lines;
        bool event_written;
    } rows[] = {
        {"load, no log", 0, 0, DLL_PROCESS_ATTACH, nullptr, 0, 0, false},
        {"load, errors alone", 2, 2, DLL_PROCESS_ATTACH, nullptr, 0, 0, false},
        {"load, entry points", 4, 4, DLL_PROCESS_ATTACH, &processEnds, 1, 1, true},
        {"new thread", 10, 10, DLL_THREAD_ATTACH, nullptr, 0, 0, false},
        {"thread's end", 10, 10, DLL_THREAD_DETACH, nullptr, 0, 0, false},
        {"unload", 4, 4, DLL_PROCESS_DETACH, nullptr, 1, 1, true},
        {"end of the process", 4, 4, DLL_PROCESS_DETACH, &processEnds, 1, 1, false},
        {"end of the process, no log", 0, 0, DLL_PROCESS_DETACH, &processEnds, 0, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Attach(row.file, row.event);
        root.ClearLog();
        const std::string before = Events();
        userLookups = 0;
        EXPECT_EQ(TRUE, DllMain(nullptr, row.reason, row.reserved));
        EXPECT_EQ(row.lookups, userLookups);
        EXPECT_EQ(static_cast<size_t>(row.lines), root.LogLines().size());
        EXPECT_EQ(row.event_written, Events() != before);
    }
}

}  // namespace
