#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "kelvaroctl/doctor/doctor.h"

namespace kelvaroctl {

Outcome Good(std::string found)
{
    return {State::Ok, std::move(found)};
}

Outcome Warned(std::string found, std::string cause, std::string fix)
{
    return {State::Warn, std::move(found), std::move(cause), std::move(fix)};
}

Outcome Failed(std::string found, std::string cause, std::string fix)
{
    return {State::Fail, std::move(found), std::move(cause), std::move(fix)};
}

Outcome NotNeeded(std::string why)
{
    return {State::Skip, std::move(why)};
}

Outcome Blocked(std::string why)
{
    Outcome outcome = {State::Skip, std::move(why)};
    outcome.blocked = true;
    return outcome;
}

Outcome Because(Outcome outcome, DWORD status, const std::string& code)
{
    outcome.status = status;
    outcome.code = code;
    return outcome;
}

DWORD Facts::LeftMs() const
{
    const ULONGLONG now = GetTickCount64();
    return now < deadline ? static_cast<DWORD>(deadline - now) : 1;
}

void AddPart(std::string* list, const std::string& text, const char* separator)
{
    if (!text.empty())
        *list += (list->empty() ? "" : separator) + text;
}

namespace {

constexpr auto kTurn = std::chrono::milliseconds(50);  // how often an interruption is looked for

// Shared with the thread, which may outlive the run.
struct Work {
    Facts facts;
    Outcome outcome;
    bool done = false;
    std::mutex mutex;
    std::condition_variable ended;
};

void Perform(const Check& check, Work* work)
{
    try {
        work->outcome = check.run(work->facts);
    } catch (const Failure& failure) {
        work->outcome = Failed("the check could not be made", failure.what(), "");
        work->outcome.exit = failure.exit();
    } catch (const std::exception& error) {
        work->outcome = Failed("the check could not be made", error.what(), "");
    }
}

bool IsBroken(const Finding& finding)
{
    return (finding.outcome.state == State::Fail && !finding.outcome.goesOn) || finding.outcome.blocked;
}

// Why a check can't be made after these findings; empty if it can.
std::string Obstacle(const Check& check, const std::vector<Finding>& findings)
{
    for (const Finding& finding : findings) {
        // The module makes ten attempts: nobody should wait for them if they are known to fail.
        const bool keepsFromVault = check.group >= 15 && finding.check->group >= 6 && finding.check->group <= 12;
        const bool isNeeded = check.needs && std::string_view(check.needs) == finding.check->id;
        if ((keepsFromVault || isNeeded) && IsBroken(finding))
            return std::string("needs ") + finding.check->id;
    }
    return "";
}

class Runner {
  public:
    Runner(const Facts& facts, const RunOptions& options) : facts_(facts), options_(options), began_(options.ticks()) {}

    void Run(const Check& check)
    {
        const ULONGLONG start = options_.ticks();
        const ULONGLONG spent = start - began_;
        const std::string obstacle = Obstacle(check, result_.findings);
        Outcome outcome;
        if (!obstacle.empty()) {
            outcome = Blocked(obstacle);
        } else if (spent >= options_.totalMs) {
            outcome = Blocked("no time left: all checks together took " + std::to_string(spent / 1000) + " s");
        } else {
            const ULONGLONG left = options_.totalMs - spent;
            outcome = Await(check, std::min<ULONGLONG>(options_.limitMs ? options_.limitMs : check.limitMs, left));
        }
        if (result_.interrupted)
            return;
        result_.findings.push_back({&check, std::move(outcome), options_.ticks() - start});
        options_.onFinding(result_.findings.back());
    }

    RunResult result_;

  private:
    Outcome Await(const Check& check, ULONGLONG limitMs)
    {
        const auto work = std::make_shared<Work>();
        work->facts = facts_;
        work->facts.deadline = GetTickCount64() + limitMs;
        std::thread thread([check = check, work] {
            Perform(check, work.get());
            const std::lock_guard<std::mutex> lock(work->mutex);
            work->done = true;
            work->ended.notify_all();
        });
        // Where the platform allows, the check itself stops at the deadline and says what it waited for.
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs + limitMs / 10 + 100);
        std::unique_lock<std::mutex> lock(work->mutex);
        while (!work->done && std::chrono::steady_clock::now() < end && !options_.interrupted())
            work->ended.wait_for(lock, kTurn);
        if (work->done) {
            lock.unlock();
            // Joined, so that the libraries' per-thread data is freed before the program ends.
            thread.join();
            facts_ = work->facts;
            return work->outcome;
        }
        thread.detach();
        result_.abandoned = true;
        result_.interrupted = options_.interrupted();
        return Failed("no answer within " + std::to_string(limitMs) + " ms", "it takes too long", "run it again");
    }

    Facts facts_;
    const RunOptions& options_;
    const ULONGLONG began_;
};

}  // namespace

RunResult RunChecks(const std::vector<Check>& checks, const Facts& facts, const RunOptions& options)
{
    Runner runner(facts, options);
    for (const Check& check : checks) {
        runner.result_.interrupted = runner.result_.interrupted || options.interrupted();
        if (runner.result_.interrupted)
            break;
        runner.Run(check);
    }
    return std::move(runner.result_);
}

}  // namespace kelvaroctl
