#include "kelvaroctl/doctor/doctor.h"

namespace kelvaroctl {

namespace {

constexpr const char* kWords[] = {"ok", "warn", "fail", "skip"};

const char* WordFor(State state)
{
    return kWords[static_cast<size_t>(state)];
}

std::string Padded(const std::string& text, size_t width, bool right = false)
{
    const std::string fill(text.size() < width ? width - text.size() : 0, ' ');
    return right ? fill + text : text + fill;
}

bool Counts(const Finding& finding, bool strict)
{
    return finding.outcome.state == State::Fail || (strict && finding.outcome.state == State::Warn);
}

size_t CountOf(const RunResult& result, State state)
{
    size_t count = 0;
    for (const Finding& finding : result.findings)
        count += finding.outcome.state == state ? 1 : 0;
    return count;
}

void AddLine(const char* label, const std::string& text, std::string* lines)
{
    if (!text.empty())
        *lines += std::string(6, ' ') + label + Printable(text) + "\n";
}

}  // namespace

ExitCode ExitOf(const RunResult& result, bool strict)
{
    for (const Finding& finding : result.findings) {
        if (Counts(finding, strict))
            return finding.outcome.exit == ExitCode::Ok ? finding.check->exit : finding.outcome.exit;
    }
    return result.interrupted ? ExitCode::Negative : ExitCode::Ok;
}

std::string TextOf(const Finding& finding)
{
    const State state = finding.outcome.state;
    std::string text = Padded(state == State::Fail ? "FAIL" : WordFor(state), 5) +
                       Padded(std::to_string(finding.ms) + " ms", 9, true) + "  " + Padded(finding.check->id, 24) +
                       finding.check->title + ": " + Printable(finding.outcome.found) + "\n";
    AddLine("cause: ", finding.outcome.cause, &text);
    AddLine("fix:   ", finding.outcome.fix, &text);
    return text;
}

std::string SummaryOf(const RunResult& result)
{
    const auto part = [&](State state, const char* word) {
        return std::to_string(CountOf(result, state)) + " " + word;
    };
    std::string text = part(State::Ok, "ok, ") + part(State::Warn, "to look at, ") + part(State::Fail, "failed, ") +
                       part(State::Skip, "skipped");
    if (result.interrupted)
        text += "; interrupted, the rest wasn't checked";
    return text + "\n";
}

Json ObjectOf(const RunResult& result, bool strict)
{
    Json checks = Json::array();
    for (const Finding& finding : result.findings) {
        const Outcome& outcome = finding.outcome;
        Json row = {
            {"id", finding.check->id}, {"state", WordFor(outcome.state)}, {"ms", finding.ms}, {"found", outcome.found}};
        if (!outcome.cause.empty())
            row["cause"] = outcome.cause;
        if (!outcome.fix.empty())
            row["fix"] = outcome.fix;
        if (outcome.status)
            row["service"] = {{"status", outcome.status}, {"code", outcome.code}};
        checks.push_back(std::move(row));
    }
    Json object = {{"ok", ExitOf(result, strict) == ExitCode::Ok}, {"checks", std::move(checks)}};
    if (result.interrupted)
        object["interrupted"] = true;
    return object;
}

}  // namespace kelvaroctl
