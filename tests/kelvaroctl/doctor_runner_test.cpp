// How doctor's checks run: their limits, what they need, and how a run ends.
#include <gtest/gtest.h>

#include <atomic>

#include "kelvaroctl/doctor/doctor.h"

namespace {

using kelvaroctl::Check;
using kelvaroctl::ExitCode;
using kelvaroctl::Facts;
using kelvaroctl::Outcome;

ULONGLONG now = 0;
std::atomic<bool> release(false);

Outcome TakesHalfAMinute(Facts&)
{
    now += 30000;
    return kelvaroctl::Good("");
}

Outcome NeverEnds(Facts&)
{
    while (!release)
        Sleep(1);
    return kelvaroctl::Good("");
}

Outcome Ends(Facts& facts)
{
    facts.key += "x";
    return kelvaroctl::Good(facts.key);
}

kelvaroctl::RunResult RunAll(const std::vector<Check>& checks, const std::function<bool()>& interrupted)
{
    return RunChecks(checks, Facts(), {60000, 0, [] { return now; }, interrupted, [](const auto&) {}});
}

Check CheckOf(const char* id, int group, DWORD limitMs, const char* ground, Outcome (*run)(Facts&))
{
    return {id, id, group, limitMs, ExitCode::Refused, ground, run};
}

TEST(DoctorRunnerTest, EndsWhateverIsBroken)
{
    const auto never = [] { return false; };
    const std::vector<Check> slow = {CheckOf("a", 1, 60000, nullptr, TakesHalfAMinute),
                                     CheckOf("b", 1, 60000, nullptr, TakesHalfAMinute),
                                     CheckOf("c", 1, 60000, nullptr, Ends)};
    const auto late = RunAll(slow, never);
    EXPECT_EQ(kelvaroctl::State::Ok, late.findings[1].outcome.state);
    EXPECT_TRUE(late.findings[2].outcome.blocked);
    const std::vector<Check> checks = {CheckOf("a", 1, 1, nullptr, NeverEnds), CheckOf("b", 2, 1000, "a", Ends),
                                       CheckOf("c", 3, 1000, "b", Ends), CheckOf("d", 3, 1000, nullptr, Ends),
                                       CheckOf("e", 4, 1000, "d", Ends)};
    const auto result = RunAll(checks, never);
    EXPECT_TRUE(result.abandoned);
    EXPECT_EQ("no answer within 1 ms", result.findings[0].outcome.found);
    EXPECT_EQ("needs a", result.findings[1].outcome.found);
    EXPECT_EQ("needs b", result.findings[2].outcome.found);
    EXPECT_EQ("xx", result.findings[4].outcome.found);
    EXPECT_EQ(ExitCode::Refused, ExitOf(result, false));
    int asked = 0;
    const auto stopped =
        RunAll({checks[3], CheckOf("f", 5, 60000, nullptr, NeverEnds), checks[4]}, [&asked] { return ++asked > 4; });
    release = true;
    EXPECT_TRUE(stopped.interrupted);
    EXPECT_EQ(1u, stopped.findings.size());
    EXPECT_NE(std::string::npos, SummaryOf(stopped).find("interrupted"));
}

}  // namespace
