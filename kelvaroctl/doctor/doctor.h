// The parts of `doctor`: a table of checks, the facts that they pass on, and their outcomes.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kelvaroctl/doctor/sockets.h"
#include "kelvaroctl/doctor/web.h"
#include "kelvaroctl/tool.h"

namespace kelvaroctl {

enum class State { Ok, Warn, Fail, Skip };

struct Outcome {
    State state = State::Ok;
    std::string found;
    std::string cause = {};  // of a warning or failure
    std::string fix = {};
    ExitCode exit = ExitCode::Ok;  // of a failure, if it isn't the check's usual one
    DWORD status = 0;              // HTTP status of the service's answer; 0: none
    std::string code = {};         // the service's own error code
    bool blocked = false;          // of a skip: caused by a broken check, so checks that need this one are skipped too
    bool goesOn = false;           // of a failure: checks that need this one still run
};

inline Outcome Good(std::string found)
{
    return {State::Ok, std::move(found)};
}

inline Outcome Warned(std::string found, std::string cause, std::string fix)
{
    return {State::Warn, std::move(found), std::move(cause), std::move(fix)};
}

inline Outcome Failed(std::string found, std::string cause, std::string fix)
{
    return {State::Fail, std::move(found), std::move(cause), std::move(fix)};
}

inline Outcome NotNeeded(std::string why)
{
    return {State::Skip, std::move(why)};
}

inline Outcome Blocked(std::string why)
{
    Outcome outcome = {State::Skip, std::move(why)};
    outcome.blocked = true;
    return outcome;
}

// Adds the service's status and its own error code, for the JSON answer.
inline Outcome Because(Outcome outcome, DWORD status, const std::string& code)
{
    outcome.status = status;
    outcome.code = code;
    return outcome;
}

// What the checks have learned. Each check works on a copy, which replaces the original only if the check ends in time.
struct Facts {
    Tool tool;
    std::string key;  // --key, else the first usable one; empty if there is none
    bool keyNamed = false;
    bool write = false;
    ULONGLONG deadline = 0;  // of the running check, in ticks

    // Settings.
    std::string vault;  // empty while it isn't known
    bool vaultFromIdentity = false;
    DWORD signInMethods = 1;
    std::string tenant;
    std::string clientId;
    std::string secret;
    std::string sealedSecret;
    bool plainKeys = false;
    bool purges = true;

    // From the services.
    std::string token;
    std::string tokenTenant;
    std::string objectId;
    std::vector<Endpoint> signInEndpoints;
    std::vector<Endpoint> vaultEndpoints;
    int64_t serviceTime = 0;  // the latest `Date`, seconds since 1970; 0: none
    int64_t askedAt = 0;      // this machine's clock at that time
    std::string vaultTenant;  // the directory that the vault asks for
    DWORD listStatus = 0;     // of the list of keys
    std::string listCode;
    std::vector<std::string> listedKeys;  // the vault's names; usable ones
    std::string vaultKey;                 // the key as the vault names it
    Json keyBundle;                       // the vault's answer for it, null if it was refused
    DWORD keyStatus = 0;

    std::string certificate;  // the vault's name of its first one, or ""

    std::string VaultHost() const { return vault + ".vault.azure.net"; }
    DWORD LeftMs() const;  // until the deadline, at least 1
};

struct Check {
    const char* id;  // stable, for programs
    const char* title;
    int group;  // 6 to 12 lead to the vault, 15 and more sign or write
    DWORD limitMs;
    ExitCode exit;      // of a failure
    const char* needs;  // the id of a check that must not be broken, or NULL
    Outcome (*run)(Facts& facts);
    DWORD method = 0;  // of signing in, which the settings must allow; 0: any
};
extern const std::vector<Check> kChecks;

// One line of the report.
struct Finding {
    const Check* check;
    Outcome outcome;
    ULONGLONG ms;
};

struct RunOptions {
    DWORD totalMs;
    DWORD limitMs;                                  // of each check; 0: its own
    std::function<ULONGLONG()> ticks;               // milliseconds
    std::function<bool()> interrupted;              // asked often
    std::function<void(const Finding&)> onFinding;  // at once after each check
};

struct RunResult {
    std::vector<Finding> findings;
    bool interrupted = false;
    bool abandoned = false;  // a check is still running
};

// Runs the checks in order, each on its own thread, which is abandoned at the check's limit.
RunResult RunChecks(const std::vector<Check>& checks, const Facts& facts, const RunOptions& options);

// Of the first failure; with `strict` of the first warning too.
ExitCode ExitOf(const RunResult& result, bool strict);
std::string TextOf(const Finding& finding);
std::string SummaryOf(const RunResult& result);
Json ObjectOf(const RunResult& result, bool strict);

// What this program answered as a child process.
struct ChildAnswer {
    Json object = Json::object();
    ExitCode exit = ExitCode::Ok;
    std::string problem;  // why there is no good answer; empty if there is one
};
// command: without the shared options. via: "module" or "ncrypt".
ChildAnswer AskChild(const Facts& facts, const std::vector<std::string>& command, const std::string& via);

// A key's name as the vault stores it, and the reverse.
std::string VaultNameOf(const std::string& clearName);
std::string ClearNameOf(const std::string& vaultName);

// Keeps the answer's time for the check of the clock.
void NoteTime(const WebAnswer& answer, Facts* facts);
// A request to the vault, with the token. body: of a POST; empty for a GET.
WebAnswer AskVault(const Facts& facts, const std::string& path, const std::string& body = "");
// The outcome if something else than the service answers. whose: "service" or "vault".
Outcome NotTheService(const WebAnswer& answer, const std::string& whose, const std::string& host);
// The code of the vault's error, the inner one if there is one.
std::string VaultCode(const WebAnswer& answer);

// What the child process does for checks 1, 2, 15, 16 and 18. Only the child process uses the provider.
Answer RunStep(const Tool& tool);

// The checks, by number.
Outcome CheckModule(Facts& facts);
Outcome CheckRegistration(Facts& facts);
Outcome CheckSettings(Facts& facts);
Outcome CheckSecret(Facts& facts);
Outcome CheckLog(Facts& facts);
Outcome CheckProxy(Facts& facts);
Outcome CheckSignInName(Facts& facts);
Outcome CheckVaultName(Facts& facts);
Outcome CheckPort(const Facts& facts, const std::vector<Endpoint>& endpoints);
Outcome CheckTls(const WebRequest& request, Facts* facts);  // request: without a token
Outcome CheckClock(Facts& facts);
Outcome CheckClientSignIn(Facts& facts);
Outcome CheckIdentitySignIn(Facts& facts);
Outcome CheckVault(Facts& facts);
Outcome CheckListKeys(Facts& facts);
Outcome CheckGetKey(Facts& facts);
Outcome CheckSignRight(Facts& facts);
Outcome CheckCertificateRight(Facts& facts, const char* right);  // "list" or "get"
Outcome CheckKey(Facts& facts);
Outcome CheckSignature(Facts& facts);
Outcome CheckSpeed(Facts& facts);
Outcome CheckCertificates(Facts& facts);
Outcome CheckWriting(Facts& facts);

constexpr char kSignInHost[] = "login.microsoftonline.com";
constexpr char kVaultResource[] = "https://vault.azure.net";
constexpr DWORD kSignsInAsIdentity = 1;  // bits of Facts::signInMethods
constexpr DWORD kSignsInAsClient = 2;

}  // namespace kelvaroctl
