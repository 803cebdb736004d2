#include "stress/failing_calls.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <tuple>
#include <type_traits>

#include "platform/platform.h"

namespace stress {

namespace {

enum What {
    Nothing,
    Algorithm,
    Block,
    File,
    Handle,
    Hash,
    HeapBlock,
    Internet,
    Lock,
    RegistryKey,
    Semaphore,
    SoftwareKey,
    Store,
    SymmetricKey,
    Uuid,
    kWhats
};
constexpr const char* kNames[kWhats] = {"",          "Algorithm",   "Block",    "File",         "Handle",
                                        "Hash",      "HeapBlock",   "Internet", "Lock",         "RegistryKey",
                                        "Semaphore", "SoftwareKey", "Store",    "SymmetricKey", "Uuid"};
std::atomic<int> held[kWhats];

struct Plan {
    bool armed = false;
    bool allAfter = false;
    int failAt = INT_MAX;
    int seen = 0;
    const char* name = "";
};
thread_local Plan plan;

bool MustFail(const char* name)
{
    if (!plan.armed)
        return false;
    const int number = plan.seen++;
    if (number == plan.failAt)
        plan.name = name;
    return number == plan.failAt || (plan.allAfter && number > plan.failAt);
}

enum class Kind { Plain, Opens, Resizes, Closes };

// A function fails with 0, a null pointer or the like, or it returns an error, and 0 if it has none.
template <typename Result>
bool Succeeded(Result result, Result failing)
{
    return std::is_pointer_v<Result> || failing == Result{} ? result != failing : result == Result{};
}

// Whether there is something to be closed: the first argument, or the last with a heap in front.
template <What kWhat, typename... Arguments>
bool IsGiven(Arguments... arguments)
{
    constexpr size_t kIndex = kWhat == HeapBlock ? sizeof...(Arguments) - 1 : 0;
    const auto given = std::get<kIndex>(std::make_tuple(arguments...));
    return given != decltype(given){};
}

template <typename Function>
struct Caller;
template <typename Result, typename... Arguments, bool kNoThrow>
struct Caller<Result(Arguments...) noexcept(kNoThrow)> {
    template <typename Row>
    static Result Call(Arguments... arguments) noexcept(kNoThrow)
    {
        if constexpr (std::is_void_v<Result>) {
            held[Row::kWhat] += Row::kKind == Kind::Opens ? 1 : IsGiven<Row::kWhat>(arguments...) ? -1 : 0;
            Row::real(arguments...);
        } else {
            const Result failing = (Result)Row::Value();
            const bool fails = MustFail(Row::kName);
            bool given = false;
            if constexpr (Row::kWhat != Nothing)
                given = IsGiven<Row::kWhat>(arguments...);
            Result result = failing;
            if (!fails || Row::kKind == Kind::Closes)
                result = Row::real(arguments...);
            if (Row::kKind == Kind::Closes && given)
                --held[Row::kWhat];
            else if (Row::kKind == Kind::Opens || (Row::kKind == Kind::Resizes && !given))
                held[Row::kWhat] += Succeeded(result, failing);
            if (fails && Row::kError != ERROR_SUCCESS)
                SetLastError(static_cast<DWORD>(Row::kError));
            return fails ? failing : result;
        }
    }
};

template <typename Result, typename... Arguments, bool kNoThrow>
Caller<Result(Arguments...) noexcept(kNoThrow)> CallerOf(Result (*)(Arguments...) noexcept(kNoThrow));

}  // namespace

FailingCalls::FailingCalls(int failAt, bool allAfter)
{
    plan = {true, allAfter, failAt, 0, ""};
}

FailingCalls::~FailingCalls()
{
    plan.armed = false;
}

int FailingCalls::Seen()
{
    return plan.seen;
}

std::string FailingCalls::Name()
{
    return plan.name;
}

std::string HeldByModule()
{
    std::string text;
    for (int what = Nothing + 1; what < kWhats; ++what) {
        if (held[what] != 0)
            text += std::string(kNames[what]) + " " + std::to_string(held[what]) + " ";
    }
    return text;
}

}  // namespace stress

using namespace stress;

// The symbols to which the build redirects the module's calls.
#define ROW(name, kind, what, value, error)                      \
    namespace {                                                  \
    struct Row_##name {                                          \
        static constexpr auto real = &::name;                    \
        static constexpr const char* kName = #name;              \
        static constexpr Kind kKind = kind;                      \
        static constexpr What kWhat = what;                      \
        static constexpr LONG kError = static_cast<LONG>(error); \
        static auto Value() { return value; }                    \
    };                                                           \
    }                                                            \
    extern "C" decltype(&::name) Resolve_##name();               \
    extern "C" decltype(&::name) Resolve_##name()                \
    {                                                            \
        return &decltype(CallerOf(&::name))::Call<Row_##name>;   \
    }                                                            \
    extern "C" decltype(::name) Faulty_##name __attribute__((ifunc("Resolve_" #name)));
#define CALL(name, value, error) ROW(name, Kind::Plain, Nothing, value, error)
#define OPENS(name, value, error, what) ROW(name, Kind::Opens, what, value, error)
#define RESIZES(name, value, error, what) ROW(name, Kind::Resizes, what, value, error)
#define CLOSES(name, value, error, what) ROW(name, Kind::Closes, what, value, error)
#define TAKES(name, what) ROW(name, Kind::Opens, what, 0, 0)
#define GIVES(name, what) ROW(name, Kind::Closes, what, 0, 0)
#define SOUND(name)
#include "stress/calls.inc"
