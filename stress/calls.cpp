// Makes every platform call of an operation fail in turn, alone and together with all later ones. Prints a JSON array,
// one object for each case.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <iterator>
#include <regex>

#include "stress/calls_subjects.h"
#include "stress/failing_calls.h"
#include "stress/shares.h"

using namespace stress;
using nlohmann::json;

namespace {

// Requests without what differs from one run to the next: tokens, identifiers, versions, signatures, certificates.
std::vector<std::string> Requests(Simulator& sim)
{
    static const std::regex kRandom(
        R"re((Bearer |Basic |"value":"|"x5c": \[")[^" ]+|[0-9a-f]{8}-[0-9a-f-]{27}|[0-9a-f]{32})re");
    std::vector<std::string> requests;
    for (const json& entry : sim.Journal()) {
        std::string text = entry.at("method").get<std::string>() + " " + entry.at("target").get<std::string>();
        for (const std::string line : entry.at("headers")) {
            if (line.rfind("Content-Length:", 0) != 0)
                text += " | " + line;
        }
        requests.push_back(std::regex_replace(text + " " + entry.at("body").get<std::string>(), kRandom, "$1*"));
    }
    return requests;
}

size_t Descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

// Whether `after` begins with `before` and the rest is zero: the operation has made room and written nothing.
bool Untouched(const std::vector<BYTE>& before, const std::vector<BYTE>& after)
{
    return after.size() >= before.size() && std::equal(before.begin(), before.end(), after.begin()) &&
           std::all_of(after.begin() + static_cast<ptrdiff_t>(before.size()), after.end(),
                       [](BYTE b) { return b == 0; });
}

struct Case {
    int failAt;
    bool allAfter;
};

struct Result {
    int seen;
    std::string call;
    SECURITY_STATUS status;
    bool partly;  // success, with less than the whole work
    std::vector<std::string> requests;
    std::vector<std::string> wrong;
};

// Another thread opens a key and signs. The stage's own key may have been deleted.
bool NextCallWorks(Stage& stage)
{
    stage.host.sim.AddKey(Simulator::kVault, {{"name", "next"}, {"kty", "EC"}, {"crv", "P-256"}});
    std::future<bool> next = std::async(std::launch::async, [&] {
        NCRYPT_KEY_HANDLE key = 0;
        if (stage.host.table->OpenKey(stage.provider, &key, TEXT("next"), 0, NCRYPT_MACHINE_KEY_FLAG) != 0)
            return false;
        const bool signs = stage.host.Sign(stage.provider, key, false) == 0;
        return stage.host.table->FreeKey(stage.provider, key) == 0 && signs;
    });
    if (next.wait_for(std::chrono::seconds(100)) == std::future_status::ready)
        return next.get();
    std::cerr << "the next call is stuck\n";
    std::_Exit(1);
}

// All calls after the first may fail too, so then the status may be any of the stated ones.
bool IsStated(const Subject& subject, const Case& which, const Result& result)
{
    const auto stated = subject.failures.find(result.status);
    return stated != subject.failures.end() && (which.allAfter || (stated->second & FamilyOf(result.call)) != 0);
}

// What the operation was given to change.
struct Outputs {
    explicit Outputs(const Stage& stage) : input(stage.input), other(stage.other) {}
    bool UntouchedIn(const Stage& stage, DWORD room) const
    {
        return Untouched(input, stage.input) && Untouched(other, stage.other) &&
               (stage.size == Stage::kUntouched || stage.size == room) && stage.opened == Stage::kUntouched &&
               stage.another == Stage::kUntouched && stage.listed.empty();
    }

    const std::vector<BYTE> input, other;
};

void JudgeOutcome(const Subject& subject, const Case& which, const Outputs& before, Stage& stage, Result* result)
{
    if (result->status == 0) {
        const Work work = subject.work(stage);
        result->partly = work == Work::Partly;
        if (work == Work::Missing)
            result->wrong.push_back("success without the work");
        return;
    }
    if (!IsStated(subject, which, *result))
        result->wrong.push_back("not a status for this failure");
    if (!before.UntouchedIn(stage, subject.room))
        result->wrong.push_back("an output is touched");
}

Result RunOnce(const Subject& subject, const Case& which)
{
    Result result = {};
    Stage stage;
    subject.prepare(stage);
    stage.size = Stage::kUntouched;
    stage.listed.clear();
    stage.host.sim.ClearJournal();
    const Outputs before(stage);
    {
        const FailingCalls failing(which.failAt, which.allAfter);
        result.status = subject.run(stage);
        result.seen = FailingCalls::Seen();
        result.call = FailingCalls::Name();
    }
    result.requests = Requests(stage.host.sim);
    JudgeOutcome(subject, which, before, stage, &result);
    if (!NextCallWorks(stage))
        result.wrong.push_back("the next call fails");
    return result;
}

// Also judges what is left once everything is closed.
Result RunAndLook(const Subject& subject, const Case& which)
{
    const size_t descriptors = Descriptors();
    const std::string held = HeldByModule();
    Result result = RunOnce(subject, which);
    if (Descriptors() > descriptors + 2)
        result.wrong.push_back(std::to_string(Descriptors() - descriptors) + " descriptors are left");
    if (HeldByModule() != held)
        result.wrong.push_back("left: " + HeldByModule() + "before: " + held);
    return result;
}

bool IsUsual(const Subject& subject, const std::vector<std::string>& usual, const std::string& call,
             const std::string& request)
{
    return std::find(usual.begin(), usual.end(), request) != usual.end() ||
           std::any_of(subject.fallbacks.begin(), subject.fallbacks.end(), [&](const Fallback& fallback) {
               return fallback.call == call && request.find(fallback.text) != std::string::npos;
           });
}

json RunCase(const Subject& subject, const std::vector<std::string>& usual, const Case& which)
{
    Result result = RunAndLook(subject, which);
    for (const std::string& request : result.requests) {
        if (!IsUsual(subject, usual, result.call, request))
            result.wrong.push_back("unusual request: " + request);
    }
    return {{"operation", subject.name},
            {"number", which.failAt},
            {"call", result.call},
            {"allAfter", which.allAfter},
            {"status", StatusName(result.status)},
            {"partly", result.partly},
            {"wrong", result.wrong}};
}

// The first run fills what the process fills once.
Result RunUndisturbed(const Subject& subject)
{
    RunOnce(subject, {INT_MAX, false});
    Result result = RunOnce(subject, {INT_MAX, false});
    Require(result.status == 0 && !result.partly && result.wrong.empty(),
            subject.name + ": " + StatusName(result.status) + (result.partly ? ", in part" : "") +
                " without a failure: " + json(result.wrong).dump());
    return result;
}

void RunShare(int share, int shares, int step, const std::string& only, FILE* out)
{
    int number = 0;
    for (const Subject& subject : Subjects()) {
        if (!only.empty() && subject.name != only)
            continue;
        const Result usual = RunUndisturbed(subject);
        for (int failAt = 0; failAt < usual.seen; failAt += step) {
            for (const bool allAfter : {false, true}) {
                if (number++ % shares != share)
                    continue;
                std::fprintf(out, "%s\n", RunCase(subject, usual.requests, {failAt, allAfter}).dump().c_str());
                std::fflush(out);
            }
        }
    }
}

}  // namespace

// Arguments: the number of processes; N to fail only every Nth call; the only operation to run.
int main(int argc, char** argv)
{
    return PrintInShares(argc > 1 ? std::atoi(argv[1]) : 4, [&](int share, int shares, FILE* out) {
        RunShare(share, shares, argc > 2 ? std::atoi(argv[2]) : 1, argc > 3 ? argv[3] : "", out);
    });
}
