// What a log call takes of its host, and what of it goes to the event log.
#include <pthread.h>
#include <sys/mman.h>

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

// Hosts run threads with stacks as small as this.
constexpr size_t kThreadStack = 64 * 1024;
constexpr size_t kLogStack = 16 * 1024;
constexpr unsigned char kPaint = 0xA5;

// A painted stack above a page that nobody may touch.
class Stack {
  public:
    Stack()
    {
        void* const block =
            mmap(nullptr, kGuard + kThreadStack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        low_ = static_cast<unsigned char*>(block) + kGuard;
        mprotect(block, kGuard, PROT_NONE);
        std::fill(low_, low_ + kThreadStack, kPaint);
    }
    ~Stack() { munmap(low_ - kGuard, kGuard + kThreadStack); }
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    unsigned char* low() const { return low_; }
    const unsigned char* Deepest() const
    {
        return std::find_if(low_, low_ + kThreadStack, [](unsigned char byte) { return byte != kPaint; });
    }

  private:
    static constexpr size_t kGuard = 4096;
    unsigned char* low_;
};

struct Run {
    const std::function<void()>* body;
    const unsigned char* start;
};

void* Enter(void* argument)
{
    Run* const run = static_cast<Run*>(argument);
    run->start = static_cast<unsigned char*>(__builtin_frame_address(0));
    (*run->body)();
    return nullptr;
}

// Runs `body` on a thread of its own; how many bytes of the stack it took.
size_t DepthOf(const std::function<void()>& body)
{
    const Stack stack;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack.low(), kThreadStack);
    Run run = {&body, nullptr};
    pthread_t thread;
    EXPECT_EQ(0, pthread_create(&thread, &attributes, Enter, &run));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return static_cast<size_t>(run.start - stack.Deepest());
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
        EXPECT_LE(depth, kLogStack);
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
