#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "kelvaroctl/commands.h"
#include "kelvaroctl/doctor/doctor.h"

namespace kelvaroctl {

// In the order in which they run: a vault's name may be known only after the sign-in.
const std::vector<Check> kChecks = {
    {"module", "module loads", 1, 2000, ExitCode::Configuration, nullptr, CheckModule},
    {"registration", "registration", 2, 2000, ExitCode::Configuration, "module", CheckRegistration},
    {"settings", "settings", 3, 2000, ExitCode::Configuration, nullptr, CheckSettings},
    {"secret", "secret opens", 4, 1000, ExitCode::Configuration, "settings", CheckSecret, kSignsInAsClient},
    {"log", "log", 5, 1000, ExitCode::Configuration, nullptr, CheckLog},
    {"proxy", "proxy", 6, 5000, ExitCode::Refused, "settings", CheckProxy},
    {"dns.signin", "sign-in host's name", 7, 5000, ExitCode::Refused, "proxy", CheckSignInName, kSignsInAsClient},
    {"tcp.signin", "sign-in host's port", 8, 5000, ExitCode::Refused, "dns.signin",
     [](Facts& facts) { return CheckPort(facts, facts.signInEndpoints); }, kSignsInAsClient},
    {"tls.signin", "sign-in host's certificate", 9, 5000, ExitCode::Refused, "tcp.signin",
     [](Facts& facts) {
         return CheckTls({kSignInHost, "/common/oauth2/token"}, &facts);
     },
     kSignsInAsClient},
    {"signin.client", "sign-in, client credentials", 11, 10000, ExitCode::SignIn, "tls.signin", CheckClientSignIn,
     kSignsInAsClient},
    {"signin.identity", "sign-in, managed identity", 11, 3000, ExitCode::SignIn, "settings", CheckIdentitySignIn,
     kSignsInAsIdentity},
    {"dns.vault", "vault's name", 7, 5000, ExitCode::Refused, "proxy", CheckVaultName},
    {"tcp.vault", "vault's port", 8, 5000, ExitCode::Refused, "dns.vault",
     [](Facts& facts) { return CheckPort(facts, facts.vaultEndpoints); }},
    {"tls.vault", "vault's certificate", 9, 5000, ExitCode::Refused, "tcp.vault",
     [](Facts& facts) {
         return CheckTls({facts.VaultHost(), "/keys?api-version=7.0"}, &facts);
     }},
    {"clock", "clock", 10, 1000, ExitCode::Refused, nullptr, CheckClock},
    {"vault", "vault answers", 12, 10000, ExitCode::Refused, "tls.vault", CheckVault},
    {"right.keys.list", "right to list keys", 13, 10000, ExitCode::Refused, "vault", CheckListKeys},
    {"right.keys.get", "right to get keys", 13, 10000, ExitCode::Refused, "vault", CheckGetKey},
    {"right.keys.sign", "right to sign", 13, 10000, ExitCode::Refused, "vault", CheckSignRight},
    {"right.certificates.list", "right to list certificates", 13, 10000, ExitCode::Refused, "vault",
     [](Facts& facts) { return CheckCertificateRight(facts, "list"); }},
    {"right.certificates.get", "right to get certificates", 13, 10000, ExitCode::Refused, "vault",
     [](Facts& facts) { return CheckCertificateRight(facts, "get"); }},
    {"key", "key", 14, 10000, ExitCode::Refused, "right.keys.get", CheckKey},
    {"sign", "signature through the module", 15, 30000, ExitCode::Refused, "key", CheckSignature},
    {"speed", "five more signatures", 16, 10000, ExitCode::Refused, "sign", CheckSpeed},
    {"certificates", "certificate store", 17, 5000, ExitCode::Configuration, nullptr, CheckCertificates},
    {"write", "a key is created, used and deleted", 18, 60000, ExitCode::Refused, nullptr, CheckWriting},
};

namespace {

constexpr DWORD kTotalMs = 60000;
constexpr DWORD kWritingMs = 60000;

volatile std::sig_atomic_t interruptedBySignal = 0;

extern "C" void RememberSignal(int)
{
    interruptedBySignal = 1;
}

// An abandoned check may still use what static destructors free.
void EndWithoutDestructors(ExitCode exit)
{
    static std::atomic<int> status;
    status = static_cast<int>(exit);
    std::atexit([] { std::_Exit(status); });
}

}  // namespace

Answer RunDoctor(Tool& tool)
{
    if (!tool.step.empty())
        return RunStep(tool);
    Facts facts;
    facts.tool = tool;
    facts.key = tool.key;
    facts.keyNamed = !tool.key.empty();
    facts.write = tool.write;
    RunOptions options;
    options.totalMs = kTotalMs + (tool.write ? kWritingMs : 0);
    options.limitMs = std::min(tool.seconds, options.totalMs / 1000) * 1000;
    options.ticks = GetTickCount64;
    options.interrupted = [] { return interruptedBySignal != 0; };
    options.onFinding = [&tool](const Finding& finding) {
        if (!tool.json)
            std::cout << TextOf(finding) << std::flush;
    };
    const auto before = std::signal(SIGINT, RememberSignal);
    const RunResult result = RunChecks(kChecks, facts, options);
    std::signal(SIGINT, before);
    Answer answer = {ObjectOf(result, tool.strict), SummaryOf(result), ExitOf(result, tool.strict)};
    if (result.abandoned)
        EndWithoutDestructors(answer.exit);
    return answer;
}

}  // namespace kelvaroctl
