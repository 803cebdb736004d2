// Every call of the platform that an operation makes fails in turn, alone and with all that follow. Prints a JSON array
// with an object a case.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <map>
#include <regex>

#include "stress/failing_calls.h"
#include "stress/operations.h"
#include "stress/shares.h"

using namespace stress;
using nlohmann::json;

namespace {

struct Subject {
    std::string name;
    std::function<void(Stage&)> prepare;
    std::function<SECURITY_STATUS(Stage&)> run;
    std::function<bool(Stage&)> right;  // whether an operation that succeeded has done its work
};

bool Signs(Stage& stage)
{
    return stage.host.Sign(stage.provider, stage.opened, false) == 0;
}

bool IsInVault(Stage& stage, const char* kind, const char* name)
{
    for (const json& each : stage.host.sim.Control("GET", std::string("/vaults/") + Simulator::kVault).at(kind)) {
        if (each.at("name") == name)
            return true;
    }
    return false;
}

bool MadeKey(Stage& stage)
{
    return IsInVault(stage, "keys", "made");
}

bool Verifies(Stage& stage)
{
    return stage.host.table->VerifySignature(stage.provider, stage.key, nullptr, stage.input.data(), 32,
                                             stage.other.data(), stage.size, 0) == 0;
}

bool Decrypts(Stage& stage)
{
    std::vector<BYTE> plain(256);
    DWORD size = 0;
    return stage.host.table->Decrypt(stage.provider, stage.key, stage.other.data(), stage.size, nullptr, plain.data(),
                                     256, &size, NCRYPT_PAD_PKCS1_FLAG) == 0 &&
           size == 32 && std::equal(stage.input.begin(), stage.input.end(), plain.begin());
}

// An open of a provider that finds a new secret in clear.
void WithClearSecret(Stage& stage)
{
    stage.SignIn(1);
    stage.host.root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", Simulator::kClientSecret);
}

SECURITY_STATUS OpenAnother(Stage& stage)
{
    return stage.host.table->OpenProvider(&stage.another, TEXT("provider"), 0);
}

// Whatever the other provider could read, the secret is there for the next one.
bool KeepsSecret(Stage& stage)
{
    stage.host.table->FreeProvider(stage.another);
    return OpenAnother(stage) == 0 &&
           stage.host.table->OpenKey(stage.another, &stage.opened, TEXT("p256"), 0, NCRYPT_MACHINE_KEY_FLAG) == 0 &&
           stage.host.root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret").empty();
}

std::function<void(Stage&)> ToImport(const char* file)
{
    return [file](Stage& stage) {
        stage.SignIn(1);
        std::ifstream stream(std::string(KELVARO_PKCS8_FOLDER "/") + file, std::ios::binary);
        stage.input.assign(std::istreambuf_iterator<char>(stream), {});
    };
}

SECURITY_STATUS Import(Stage& stage)
{
    WCHAR name[] = TEXT("made");
    WCHAR password[] = TEXT("secret");
    NCryptBuffer buffers[] = {{sizeof(name), NCRYPTBUFFER_PKCS_KEY_NAME, name},
                              {sizeof(password), NCRYPTBUFFER_PKCS_SECRET, password}};
    NCryptBufferDesc list = {0, 2, buffers};
    return stage.host.table->ImportKey(stage.provider, 0, TEXT("PKCS8_PRIVATEKEY"), &list, &stage.opened,
                                       stage.input.data(), static_cast<DWORD>(stage.input.size()),
                                       NCRYPT_DO_NOT_FINALIZE_FLAG);
}

bool GivesKey(Stage& stage)
{
    return stage.opened != Stage::kUntouched;
}

SECURITY_STATUS Export(Stage& stage)
{
    return stage.host.table->ExportKey(stage.provider, stage.key, 0, TEXT("ECCPUBLICBLOB"), nullptr, stage.other.data(),
                                       static_cast<DWORD>(stage.other.size()), &stage.size, 0);
}

void ToExport(Stage& stage)
{
    stage.SignIn(1);
    stage.other.resize(200, 8);
}

std::vector<Subject> Subjects()
{
    const std::map<std::string, std::function<bool(Stage&)>> rights = {
        {"sign-in", Signs},
        {"managed identity", Signs},
        {"Arc", Signs},
        {"key read", Signs},
        {"certificate list", Signs},
        {"key list", [](Stage& stage) { return stage.listed == "p256"; }},
        {"sign", Verifies},
        {"verify", [](Stage&) { return true; }},
        {"encrypt", Decrypts},
        {"decrypt", [](Stage& stage) { return stage.size == 32 && stage.input[0] == 7 && stage.input[31] == 7; }},
        {"key creation", MadeKey},
        {"certificate creation", [](Stage& stage) { return IsInVault(stage, "certificates", "made"); }},
        {"key deletion", [](Stage& stage) { return !IsInVault(stage, "keys", "p256"); }},
        {"certificate deletion", [](Stage& stage) { return !IsInVault(stage, "certificates", "web"); }},
        {"publication: fetch", [](Stage&) { return true; }},
    };
    std::vector<Subject> subjects = {
        {"open with a new secret", WithClearSecret, OpenAnother, KeepsSecret},
        {"import", ToImport("pbes2-sha1-3des.der"), Import, GivesKey},
        {"export", ToExport, Export, [](Stage& stage) { return stage.size == 72; }},
    };
    for (const Operation& operation : Operations()) {
        if (const auto found = rights.find(operation.name); found != rights.end())
            subjects.push_back({operation.name, operation.prepare, operation.run, found->second});
    }
    return subjects;
}

// Requests without what differs from one run to the next: identifiers, tokens, signatures.
std::vector<std::string> Requests(Simulator& sim)
{
    static const std::regex kRandom("[A-Za-z0-9+/=_.-]{20,}");
    std::vector<std::string> requests;
    for (const json& entry : sim.Journal()) {
        std::string text = entry.at("method").get<std::string>() + " " + entry.at("target").get<std::string>() + " " +
                           std::to_string(entry.at("status").get<int>());
        for (const std::string line : entry.at("headers")) {
            if (line.rfind("Content-Length:", 0) != 0)
                text += " | " + line;
        }
        requests.push_back(std::regex_replace(text + " " + entry.at("body").get<std::string>(), kRandom, "*"));
    }
    return requests;
}

size_t Descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

// Whether `after` begins with `before`, and has zeros behind it: room was made, and nothing written.
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
    std::vector<std::string> requests;
    std::vector<std::string> wrong;
};

// Another thread opens a key and signs. The key of the stage may be gone.
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

Result RunOnce(const Subject& subject, const Case& which)
{
    Result result = {};
    Stage stage;
    subject.prepare(stage);
    stage.host.sim.ClearJournal();
    const std::vector<BYTE> input = stage.input, other = stage.other;
    const std::string heldBefore = HeldByModule();
    {
        const FailingCalls failing(which.failAt, which.allAfter);
        result.status = subject.run(stage);
        result.seen = FailingCalls::Seen();
        result.call = FailingCalls::Name();
    }
    result.requests = Requests(stage.host.sim);
    if (result.status == 0 && !subject.right(stage))
        result.wrong.push_back("success without the work");
    const bool untouched = Untouched(input, stage.input) && Untouched(other, stage.other) &&
                           stage.size == Stage::kUntouched && stage.opened == Stage::kUntouched &&
                           stage.another == Stage::kUntouched && stage.listed.empty();
    if (result.status != 0 && !untouched)
        result.wrong.push_back("an output is touched");
    if (!NextCallWorks(stage))
        result.wrong.push_back("the next call fails");
    return result;
}

// A run, and what is left when all is closed.
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

json RunCase(const Subject& subject, const std::vector<std::string>& usual, const Case& which)
{
    Result result = RunAndLook(subject, which);
    for (const std::string& request : result.requests) {
        if (std::find(usual.begin(), usual.end(), request) == usual.end())
            result.wrong.push_back("unusual request: " + request);
    }
    return {{"operation", subject.name},
            {"number", which.failAt},
            {"call", result.call},
            {"allAfter", which.allAfter},
            {"status", StatusName(result.status)},
            {"wrong", result.wrong}};
}

void RunShare(int share, int shares, int step, FILE* out)
{
    int number = 0;
    for (const Subject& subject : Subjects()) {
        RunOnce(subject, {INT_MAX, false});  // fills what is filled once
        const Result usual = RunOnce(subject, {INT_MAX, false});
        if (usual.status != 0 || !usual.wrong.empty())
            throw std::runtime_error(subject.name + ": " + StatusName(usual.status) +
                                     " without a fault: " + json(usual.wrong).dump());
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

// Arguments: the number of processes; N, for each Nth call alone.
int main(int argc, char** argv)
{
    return PrintInShares(argc > 1 ? std::atoi(argv[1]) : 4, [&](int share, int shares, FILE* out) {
        RunShare(share, shares, argc > 2 ? std::atoi(argv[2]) : 1, out);
    });
}
