#include "vaultsim/faults.h"

#include <stdexcept>

#include "vaultsim/refusal.h"
#include "vaultsim/text.h"

namespace vaultsim {

namespace {

struct ActionRow {
    const char* name;
    FaultAction action;
    bool performs;  // carries the operation out in any case
};

constexpr ActionRow kActions[] = {
    {"status", FaultAction::Status, false},
    {"delay", FaultAction::Delay, true},
    {"reset-before", FaultAction::ResetBefore, false},
    {"reset-inside", FaultAction::ResetInside, true},
    {"truncate", FaultAction::Truncate, true},
    {"drip", FaultAction::Drip, true},
    {"raw", FaultAction::Raw, false},
    {"nojson", FaultAction::NoJson, false},
};

bool Matches(const Fault& fault, const Call& call)
{
    return (fault.method == "*" || fault.method == call.method) && call.target.find(fault.path) != std::string::npos &&
           call.host.find(fault.host) != std::string::npos;
}

}  // namespace

Answer Fault::Replace(const Answer& answer) const
{
    Answer replaced = answer;
    if (action == FaultAction::Status) {
        replaced = DefaultErrorAnswer(status == 0 ? 500 : status);
        if (status >= 200 && status < 300)
            replaced.body.clear();
    } else if (action == FaultAction::NoJson) {
        replaced = {status == 0 ? 200 : status,
                    "<html><body>Not what was asked for</body></html>",
                    {"Content-Type: text/html"}};
    }
    if (body)
        replaced.body = *body;
    for (const std::string& line : headerLines)
        SetHeader(replaced, line);
    return replaced;
}

Fault ParseFault(const Json& json)
{
    Fault fault;
    fault.method = json.value("method", fault.method);
    fault.path = json.value("path", fault.path);
    fault.host = json.value("host", fault.host);
    fault.skip = json.value("skip", fault.skip);
    fault.times = json.value("times", fault.times);
    fault.actionName = json.at("action").get<std::string>();
    const ActionRow* row = FindByName(kActions, fault.actionName);
    if (!row)
        throw std::invalid_argument("unknown fault action: " + fault.actionName);
    fault.action = row->action;
    fault.perform = row->performs || json.value("perform", false);
    fault.status = json.value("status", fault.status);
    fault.headerLines = json.value("headers", fault.headerLines);
    if (json.contains("inner")) {
        fault.status = 403;
        fault.body = ForbiddenAnswer(json.at("inner").get<std::string>()).body;
    }
    if (json.contains("body"))
        fault.body = json.at("body").is_string() ? json.at("body").get<std::string>() : json.at("body").dump();
    fault.delayMs = json.value("delayMs", fault.delayMs);
    fault.afterBytes = json.value("afterBytes", fault.afterBytes);
    fault.inHead = json.value("inHead", fault.inHead);
    fault.raw = json.value("raw", fault.raw);
    fault.repeat = json.value("repeat", fault.repeat);
    return fault;
}

void Faults::Add(Fault fault)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    queue_.push_back(std::move(fault));
}

void Faults::Clear()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    queue_.clear();
}

std::optional<Fault> Faults::Take(const Call& call)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto fault = queue_.begin(); fault != queue_.end(); ++fault) {
        if (!Matches(*fault, call))
            continue;
        if (fault->skip > 0) {
            fault->skip--;
            continue;
        }
        const Fault taken = *fault;
        if (fault->times > 0 && --fault->times == 0)
            queue_.erase(fault);
        return taken;
    }
    return std::nullopt;
}

}  // namespace vaultsim
