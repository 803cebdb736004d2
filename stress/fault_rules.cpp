#include "stress/fault_rules.h"

#include <algorithm>

namespace stress {

using nlohmann::json;

namespace {

const json kPadded = {{"pad", std::string(8192, 'a')}};
const json kWrongTypes = {{"key", json::object()},     {"value", json::object()},        {"cer", json::object()},
                          {"csr", json::object()},     {"access_token", json::object()}, {"token_type", json::object()},
                          {"nextLink", json::object()}};

Fault AtGate(const char* name, FaultClass cls, GateFault gate, int connectMs = 0)
{
    Fault fault{name, cls};
    fault.gate = gate;
    fault.connectMs = connectMs;
    return fault;
}

Fault WithCertificate(const char* name, const char* mode)
{
    Fault fault{name, FaultClass::Unreached};
    fault.certificate = mode;
    return fault;
}

Fault InAnswer(const char* name, FaultClass cls, json sim, int receiveMs = 0)
{
    Fault fault{name, cls};
    const std::string action = sim.at("action");
    fault.performed = action == "drip" || action == "truncate" || action == "reset-inside";
    fault.sim = std::move(sim);
    fault.receiveMs = receiveMs;
    return fault;
}

Fault OneByteASecond()
{
    Fault fault = InAnswer("one byte a second", FaultClass::CutBody,
                           {{"action", "drip"}, {"afterBytes", 1}, {"delayMs", 1}, {"body", kPadded}});
    fault.tickMs = 1000;
    return fault;
}

Fault WithStatus(const char* name, DWORD status, bool once = false)
{
    Fault fault{name, once ? FaultClass::StatusOnce : FaultClass::Status, status};
    fault.sim = {{"action", "status"}, {"status", status}, {"times", once ? 1 : -1}};
    return fault;
}

std::vector<DWORD> Repeated(size_t count, const std::vector<DWORD>& waits)
{
    std::vector<DWORD> all;
    for (; count > 0; --count)
        all.insert(all.end(), waits.begin(), waits.end());
    return all;
}

// `count` waits: 1 s, then doubling up to 64 s.
std::vector<DWORD> Doubling(size_t count)
{
    std::vector<DWORD> waits;
    for (DWORD wait = 1000; waits.size() < count; wait = std::min<DWORD>(2 * wait, 64000))
        waits.push_back(wait);
    return waits;
}

bool IsSignIn(Kind kind)
{
    return kind == Kind::SignIn || kind == Kind::Identity || kind == Kind::Arc;
}

bool IsDeletion(Kind kind)
{
    return kind == Kind::Delete || kind == Kind::Purge;
}

// How often a request is sent if each is answered with that status.
Outcome Persisting(Kind kind, DWORD status)
{
    if (kind == Kind::Arc)
        return {0, 241, Repeated(241, {1000})};
    if (!IsSignIn(kind) && status == 429)
        return IsDeletion(kind) ? Outcome{0, 20, Doubling(20)} : Outcome{0, 5, Doubling(5)};
    if (IsDeletion(kind) && status == 409)
        return {0, 5, Doubling(5)};
    const bool creation = kind == Kind::Create || kind == Kind::CreateCertificate;
    return {0, creation && status >= 400 && status <= 410 ? 2u : 1u, {}};
}

}  // namespace

DWORD GoodStatus(Kind kind)
{
    return kind == Kind::CreateCertificate ? 202 : 200;
}

const std::vector<Fault>& Faults()
{
    using Class = FaultClass;
    static const std::string kCutJson = R"({"access_token":"e30.e30.e30","key":{"kid":"https://a/keys/b/c","n":"AQ)";
    static const std::string kChunk = "10000\r\n" + std::string(0x10000, 'a') + "\r\n";
    static const std::vector<Fault> kFaults = {
        {"none"},
        AtGate("refused", Class::Refused, GateFault::Refuse),
        AtGate("silent at connect", Class::Unreached, GateFault::SilentAtConnect, 150),
        AtGate("reset at connect", Class::Unreached, GateFault::ResetAtConnect),
        AtGate("reset in the handshake", Class::Unreached, GateFault::ResetInHandshake),
        AtGate("silent in the handshake", Class::Unreached, GateFault::SilentInHandshake, 150),
        WithCertificate("expired certificate", "expired"),
        WithCertificate("certificate not yet valid", "not-yet-valid"),
        WithCertificate("certificate of another name", "wrong-host"),
        WithCertificate("unknown root", "unknown-root"),
        InAnswer("reset before the head", Class::Unanswered, {{"action", "reset-before"}}),
        InAnswer("silent before the head", Class::Unanswered,
                 {{"action", "status"}, {"status", 500}, {"delayMs", 1500}}, 100),
        InAnswer("reset inside the head", Class::Unanswered,
                 {{"action", "reset-inside"}, {"inHead", true}, {"afterBytes", 20}}),
        InAnswer("silent inside the head", Class::Unanswered,
                 {{"action", "drip"}, {"afterBytes", 20}, {"delayMs", 600000}}, 100),
        InAnswer("reset inside the body", Class::CutBody,
                 {{"action", "reset-inside"}, {"afterBytes", 10}, {"body", kPadded}}),
        InAnswer("body too short", Class::CutBody, {{"action", "truncate"}, {"afterBytes", 10}, {"body", kPadded}}),
        InAnswer("silent inside the body", Class::CutBody,
                 {{"action", "drip"}, {"afterBytes", 4096}, {"delayMs", 600000}, {"body", kPadded}}, 400),
        OneByteASecond(),
        InAnswer("body too long", Class::WrongBody, {{"action", "raw"}, {"raw", "Content-Length: 2\r\n\r\n{}surplus"}}),
        InAnswer("chunked with garbage", Class::WrongBody,
                 {{"action", "raw"}, {"raw", "Transfer-Encoding: chunked\r\n\r\nzz\r\n{}\r\n"}}),
        InAnswer("body over the limit", Class::WrongBody,
                 {{"action", "status"}, {"body", {{"pad", std::string(17 * 1024 * 1024, 'a')}, {"value", "AAAA"}}}}),
        InAnswer("endless body", Class::WrongBody,
                 {{"action", "raw"}, {"raw", "Transfer-Encoding: chunked\r\n\r\n"}, {"repeat", kChunk}}),
        InAnswer(
            "endless head", Class::Unanswered,
            {{"action", "raw"}, {"raw", "X-First: 1\r\n"}, {"repeat", "X-More: " + std::string(1000, 'a') + "\r\n"}}),
        InAnswer("not JSON", Class::WrongBody, {{"action", "nojson"}}),
        InAnswer("cut JSON", Class::WrongBody, {{"action", "status"}, {"body", kCutJson}}),
        InAnswer("wrong types", Class::WrongTypes, {{"action", "status"}, {"body", kWrongTypes}}),
        WithStatus("400", 400),
        WithStatus("401", 401),
        WithStatus("403", 403),
        WithStatus("404", 404),
        WithStatus("409", 409),
        WithStatus("429 once", 429, true),
        WithStatus("429", 429),
        WithStatus("500", 500),
        WithStatus("503", 503),
    };
    return kFaults;
}

Outcome Expect(Kind kind, const Statuses& statuses, const Fault& fault)
{
    // An Arc sign-in makes two requests, a second apart.
    const Outcome arc = {statuses.good, 2, {1000}};
    Outcome outcome = {statuses.failed, 1, {}};
    switch (fault.cls) {
        case FaultClass::None:
            return kind == Kind::Arc ? arc : Outcome{statuses.good, 1, {}};
        case FaultClass::Refused:
            outcome = {statuses.failed, 0, Repeated(10, {20000, 200})};
            break;
        case FaultClass::Unreached:
            outcome = {statuses.failed, 0, Repeated(10, {200})};
            break;
        case FaultClass::Unanswered:
            outcome = {statuses.failed, 10, Repeated(10, {200})};
            break;
        case FaultClass::CutBody:
            // An Arc challenge needs no body, but a token does.
            return kind == Kind::Arc ? Outcome{statuses.wrongBody, 2, {1000}}
                                     : Outcome{kind == Kind::Merge ? statuses.good : statuses.wrongBody, 1, {}};
        case FaultClass::WrongBody:
            return {statuses.wrongBody, 1, {}};
        case FaultClass::WrongTypes:
            return {statuses.wrongTypes, 1, {}};
        case FaultClass::StatusOnce:
            if (kind == Kind::Arc)
                return {statuses.good, 3, {1000, 1000}};
            return IsSignIn(kind) ? outcome : Outcome{statuses.good, 2, {1000}};
        case FaultClass::Status:
            outcome = Persisting(kind, fault.status);
            outcome.status = statuses.failed;
            break;
    }
    // The service has done the work, although its answer was lost: a merged certificate's key can be read, and a
    // deleted key can be purged.
    if (fault.performed && (kind == Kind::Merge || kind == Kind::Delete))
        outcome.status = statuses.good;
    return outcome;
}

Outcome ExpectAfterThrottling(Kind kind, const Statuses& statuses, const Fault& fault)
{
    Outcome outcome = Expect(kind, statuses, fault);
    // A purge doesn't start again with short waits.
    if (kind == Kind::Purge && fault.cls == FaultClass::StatusOnce)
        outcome.waits = {2000};
    outcome.waits.insert(outcome.waits.begin(), 1000);
    return outcome;
}

}  // namespace stress
