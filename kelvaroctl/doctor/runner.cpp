#include <algorithm>
#include <future>
#include <memory>
#include <thread>

#include "kelvaroctl/doctor/doctor.h"

namespace kelvaroctl {

DWORD Facts::LeftMs() const
{
    const ULONGLONG now = GetTickCount64();
    return now < deadline ? static_cast<DWORD>(deadline - now) : 1;
}

namespace {

constexpr auto kTurn = std::chrono::milliseconds(50);  // how often to check for an interruption

Outcome Perform(const Check& check, Facts* facts)
{
    Outcome outcome = Failed("the check could not be made", "", "");
    try {
        return check.run(*facts);
    } catch (const Failure& failure) {
        outcome.cause = failure.what();
        outcome.exit = failure.exit();
    } catch (const std::exception& error) {
        outcome.cause = error.what();
    }
    return outcome;
}

bool IsBroken(const Finding& finding)
{
    return (finding.outcome.state == State::Fail && !finding.outcome.goesOn) || finding.outcome.blocked;
}

// Why a check can't be made after these findings; empty if it can.
std::string Obstacle(const Check& check, const std::vector<Finding>& findings)
{
    for (const Finding& finding : findings) {
        // The module retries ten times: don't wait for that if it is known to fail.
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
        Outcome outcome = Prevented(check, spent);
        if (outcome.state == State::Ok) {
            const ULONGLONG limit = options_.limitMs ? options_.limitMs : check.limitMs;
            outcome = Await(check, std::min(limit, options_.totalMs - spent));
        }
        if (result_.interrupted)
            return;
        result_.findings.push_back({&check, std::move(outcome), options_.ticks() - start});
        options_.onFinding(result_.findings.back());
    }

    RunResult result_;

  private:
    // Why the check isn't made; good if it is.
    Outcome Prevented(const Check& check, ULONGLONG spent) const
    {
        const std::string obstacle = Obstacle(check, result_.findings);
        if (!obstacle.empty())
            return Blocked(obstacle);
        if (spent >= options_.totalMs)
            return Blocked("no time left: all checks together took " + std::to_string(spent / 1000) + " s");
        if (check.method && !(facts_.signInMethods & check.method))
            return NotNeeded("not used with this AuthenticationType");
        return Good("");
    }

    Outcome Await(const Check& check, ULONGLONG limitMs)
    {
        // Shared with the thread, which may outlive the run.
        const auto facts = std::make_shared<Facts>(facts_);
        facts->deadline = GetTickCount64() + limitMs;
        std::packaged_task<Outcome()> task([check = check, facts] { return Perform(check, facts.get()); });
        std::future<Outcome> outcome = task.get_future();
        std::thread thread(std::move(task));
        // Where the platform allows it, the check itself stops at the deadline and says what it waited for.
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs + limitMs / 10 + 100);
        while (std::chrono::steady_clock::now() < end && !options_.interrupted()) {
            if (outcome.wait_for(kTurn) != std::future_status::ready)
                continue;
            // Joined, so that the libraries' per-thread data is freed before the program ends.
            thread.join();
            facts_ = *facts;
            return outcome.get();
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
        if (!runner.result_.interrupted && !options.interrupted())
            runner.Run(check);
        else
            runner.result_.interrupted = true;
    }
    return std::move(runner.result_);
}

}  // namespace kelvaroctl
