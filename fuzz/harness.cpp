#include "fuzz/harness.h"

#include <unistd.h>

#include <charconv>
#include <filesystem>

#include "provider/entry_points.h"
#include "support/clock.h"
#include "support/log.h"
#include "tests/common/test_root.h"

namespace fuzz {

namespace {

Target* firstTarget;
const Target* chosen;
std::string rootFolder;

// Every reading is a second later, so that nothing waits for long.
int64_t now = 1700000000;
const Clock kClock = {[] { return ++now; }, [] { return static_cast<uint64_t>(++now) * 1000; },
                      [](DWORD waitMs) { now += waitMs / 1000; }};

void PrepareOnce()
{
    static const bool prepared = [] {
        ClockReplace(&kClock);
        static TestRoot root;
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
        root.SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", 1);
        for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
            root.SetNumber(hive, "AuthenticationType", 2);
            root.SetText(hive, "KeyVault", "vault");
        }
        std::filesystem::create_directories(root.directory() + "/root/user/keycontainers");
        std::filesystem::copy_file(KELVARO_FUZZ_FOLDER "/box.pem",
                                   root.directory() + "/root/user/keycontainers/box.pem");
        rootFolder = root.directory();
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        // The first open of a key puts the vault's certificate into the store.
        NCRYPT_PROV_HANDLE provider = 0;
        NCRYPT_KEY_HANDLE key = 0;
        return Table().OpenProvider(&provider, TEXT("provider"), 0) == 0 &&
               Table().OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG) == 0 &&
               Table().FreeKey(provider, key) == 0 && Table().FreeProvider(provider) == 0;
    }();
    Require(prepared);
}

// The log would fill the disk.
void EmptyLogNowAndThen()
{
    static unsigned runs = 0;
    if (++runs % 1024 != 0)
        return;
    for (const char* folder : {"/log", "/root/eventlog"}) {
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(RootFolder() + folder, ignored))
            std::filesystem::resize_file(entry.path(), 0, ignored);
    }
}

}  // namespace

std::string_view Input::Line()
{
    const size_t end = rest_.find('\n');
    const std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    return line;
}

Target::Target(const char* targetName, void (*function)(Input&)) : name(targetName), run(function), next(firstTarget)
{
    firstTarget = this;
}

FailingAllocation::FailingAllocation(Input& input)
{
    const std::string_view line = input.Line();
    size_t failAt = SIZE_MAX;
    const auto end = std::from_chars(line.data(), line.data() + line.size(), failAt).ptr;
    if (failAt != SIZE_MAX)
        fault_.emplace(failAt, end != line.data() + line.size());
}

VaultCall::VaultCall()
    : client_(KVCNew(TEXT("vault"), KVC_AUTHN_CLIENT_CREDENTIALS, TEXT("tenant"), TEXT("client"), TEXT("secret"),
                     nullptr, 1, 1, 0)),
      call_(KVCBeginCall(client_))
{
    Require(KVCLogOn(call_) == KVCLogOnResult::Ready);
}

VaultCall::~VaultCall()
{
    KVCEndCall(call_);
    KVCDelete(client_);
}

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& Table()
{
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    Require(GetKeyStorageInterface(TEXT("Zandrel Key Storage Provider for Key Vault"), &table, 0) == 0);
    return *table;
}

const std::string& RootFolder()
{
    return rootFolder;
}

// Chooses the target by name; the driver does so before the first input.
void Choose(std::string_view name)
{
    for (chosen = firstTarget; chosen && name != chosen->name; chosen = chosen->next) {
    }
    if (!chosen) {
        fprintf(stderr, "no target %.*s; there are:\n", static_cast<int>(name.size()), name.data());
        for (const Target* each = firstTarget; each; each = each->next)
            fprintf(stderr, "%s\n", each->name);
        exit(2);
    }
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

// No input outlives the machine, and waiting for the disk would be most of the time.
extern "C" int fsync(int)
{
    return 0;
}

// libFuzzer leaves arguments with two dashes alone: kelvaro_fuzz --NAME ...
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzz::Choose(*argc > 1 ? std::string_view((*argv)[1]).substr(2) : "");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::PrepareOnce();
    fuzz::EmptyLogNowAndThen();
    fuzz::ForgetAnswers();
    // Each line of the log opens a file: only some inputs have one.
    LogLevel = size % 8 == 0 ? LOG_DETAIL_LEVEL : 0;
    fuzz::Input input(data, size);
    fuzz::chosen->run(input);
    return 0;
}
