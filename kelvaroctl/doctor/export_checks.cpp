// Checks 15 to 18, which need the module. It is called only in a child process, which can be killed.
#include <algorithm>
#include <random>

#include "kelvaroctl/doctor/child.h"
#include "kelvaroctl/doctor/doctor.h"
#include "kelvaroctl/module_log.h"
#include "kelvaroctl/personal_store.h"

namespace kelvaroctl {

ChildAnswer AskChild(const Facts& facts, const std::vector<std::string>& command, const std::string& via)
{
    std::vector<std::string> arguments;
    if (!facts.tool.modulePath.empty() && via == "module")
        arguments = {"--module", facts.tool.modulePath};
    arguments.insert(arguments.end(), {"--json", "--via", via});
    if (facts.tool.user)
        arguments.push_back("--user");
    arguments.insert(arguments.end(), command.begin(), command.end());
    const DWORD limit = facts.LeftMs();
    const ChildResult result = RunChild(arguments, limit);
    ChildAnswer answer;
    if (!result.ended) {
        answer.problem = "no answer within " + std::to_string(limit) + " ms";
        return answer;
    }
    const Json object = Json::parse(result.out, nullptr, false);
    if (object.is_object())
        answer.object = object;
    if (object.is_object() && object.contains("error")) {
        answer.exit = static_cast<ExitCode>(result.exit);
        answer.problem = JsonText(object["error"], "message");
    } else if (!object.is_object()) {
        answer.problem = "the program ended with " + std::to_string(result.exit) + " in the module";
    }
    return answer;
}

// The module's errors since then.
static std::string ErrorsSince(const LogMark& mark)
{
    std::string text;
    for (const LogLine& line : mark.Lines())
        text += line.level == 1 ? "; log: " + line.text : "";
    return text;
}

static Outcome FailedInModule(const std::string& found, const ChildAnswer& answer, const LogMark& mark)
{
    return Failed(found, answer.problem + ErrorsSince(mark), "look the log's lines up in docs/log.md");
}

static std::vector<int64_t> TimesIn(const Json& object)
{
    std::vector<int64_t> times;
    for (const Json& time : object.value("ms", Json::array()))
        times.push_back(time.get<int64_t>());
    std::sort(times.begin(), times.end());
    return times;
}

Outcome CheckSignature(Facts& facts)
{
    if (facts.key.empty())
        return NotNeeded("no key to sign with");
    const LogMark mark;
    const ChildAnswer answer = AskChild(facts, {"doctor", "--step", "sign", "--key", facts.key}, facts.tool.via);
    if (!answer.problem.empty())
        return FailedInModule("no signature", answer, mark);
    const std::string found = JsonText(answer.object, "algorithm") + " with '" + facts.key + "'";
    if (!answer.object.value("verified", false))
        return Failed(found, "the signature doesn't verify", "what is between this machine and the vault?");
    return Good(found + ", verified on this machine");
}

Outcome CheckSpeed(Facts& facts)
{
    if (facts.key.empty())
        return NotNeeded("no key to sign with");
    const LogMark mark;
    const ChildAnswer answer = AskChild(facts, {"doctor", "--step", "speed", "--key", facts.key}, facts.tool.via);
    const std::vector<int64_t> times = TimesIn(answer.object);
    if (!answer.problem.empty() || times.empty())
        return FailedInModule("not all of them", answer, mark);
    const int64_t median = times[times.size() / 2];
    const std::string found = "median " + std::to_string(median) + " ms, worst " + std::to_string(times.back()) + " ms";
    return median > 500 ? Warned(found, "the vault is far away, or busy", "a vault in a nearer region") : Good(found);
}

static bool IsWritable(bool machine)
{
    const DWORD place = machine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
    const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, place, TEXT("My"));
    return store && CertCloseStore(store, 0);
}

// When the module last copied certificates, and when it may do so again.
static std::string SyncTimes(const Facts& facts)
{
    if (facts.plainKeys || facts.tool.user)
        return "";
    const Setting& setting = *FindSetting("FromKVLastSyncTime");
    const DWORD stamp = ReadSetting(facts.tool.hive(), setting).number;
    if (!stamp)
        return ", never synced";
    // The time stamp is ten minutes later than the sync; the next sync is due twenty minutes after the last one.
    const int64_t wait = static_cast<int64_t>(stamp) + 600 - _time64(nullptr);
    return ", " + NumberMeaning(setting, stamp) + ", next " +
           (wait > 0 ? "in " + std::to_string(wait / 60 + 1) + " minutes" : std::string("when a program opens a key"));
}

static std::string ProblemOf(const Json& certificate)
{
    const std::string key = JsonText(certificate, "vaultKey");
    const std::string problem = key == "missing"                      ? "its key isn't in the vault"
                                : !key.empty() && key != "matches"    ? "the vault has a different key"
                                : certificate.value("expired", false) ? "expired"
                                                                      : "";
    return problem.empty() ? "" : JsonText(certificate, "subject") + ": " + problem;
}

Outcome CheckCertificates(Facts& facts)
{
    const std::vector<StoredCertificate> stored = ReadPersonalStore(!facts.tool.user);
    const auto bound = std::count_if(stored.begin(), stored.end(), [](const auto& one) { return one.IsBound(); });
    const std::string found = std::to_string(bound) + " bound to the provider's keys" + SyncTimes(facts);
    if (!IsWritable(!facts.tool.user))
        return Warned(found, "this account can't write to the store", "run kelvaroctl certs sync as an administrator");
    if (!bound)
        return Good(found);
    const ChildAnswer answer = AskChild(facts, {"certs", "list", "--check"}, facts.tool.via);
    std::string problems = answer.problem;
    for (const Json& certificate : answer.object.value("certificates", Json::array())) {
        const std::string problem = certificate.value("bound", false) ? ProblemOf(certificate) : "";
        AddPart(&problems, problem);
    }
    return problems.empty() ? Good(found) : Warned(found, problems, "renew or install them: docs/certificates.md");
}

// What the vault still has of a key, "" for nothing.
static std::string LeftBehind(const Facts& facts, const std::string& name, bool* deletedOnly)
{
    const std::string area = facts.plainKeys ? "keys/" : "certificates/";
    *deletedOnly = false;
    if (AskVault(facts, "/" + area + name).status == 200)
        return name;
    *deletedOnly = AskVault(facts, "/deleted" + area + name).status == 200;
    return *deletedOnly ? "the deleted " + name : "";
}

Outcome CheckWriting(Facts& facts)
{
    constexpr DWORD kForLeftovers = 5000;
    if (!facts.write)
        return NotNeeded("only with --write");
    const std::string name = "doctor-" + HexNumber(std::random_device()()).substr(2);
    const LogMark mark;
    Facts bounded = facts;
    bounded.deadline -= std::min<DWORD>(kForLeftovers, facts.LeftMs() / 2);
    const ChildAnswer answer = AskChild(bounded, {"doctor", "--step", "write", "--key", name}, facts.tool.via);
    bool deletedOnly = false;
    const std::string left = LeftBehind(facts, name, &deletedOnly);
    if (!answer.problem.empty()) {
        return Failed(left.empty() ? "nothing was left behind" : "left behind: " + left,
                      answer.problem + ErrorsSince(mark),
                      "the rights create and delete, and purge: docs/permissions.md");
    }
    const std::string found = name + " was created, has signed and was deleted";
    if (left.empty() || (deletedOnly && !facts.purges))
        return Good(found);
    return Warned(found + "; left behind: " + left, "it can't be purged: purge protection, or the right is missing",
                  "kelvaroctl config set DoDeletePurge 1, or grant the right");
}

}  // namespace kelvaroctl
