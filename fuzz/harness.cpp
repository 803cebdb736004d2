#include "fuzz/harness.h"

#include <charconv>
#include <filesystem>
#include <map>

#include "provider/entry_points.h"
#include "support/clock.h"
#include "support/log.h"

namespace fs = std::filesystem;

namespace fuzz {

namespace {

TargetFunction chosen;

std::map<std::string_view, TargetFunction>& Targets()
{
    static std::map<std::string_view, TargetFunction> targets;
    return targets;
}

// Each reading is a second later than the last, so that no wait takes long.
int64_t now = 1700000000;
const Clock kClock = {[] { return ++now; }, [] { return static_cast<uint64_t>(++now) * 1000; },
                      [](DWORD waitMs) { now += waitMs / 1000; }};

bool Prepare()
{
    ClockReplace(&kClock);
    Root().SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    Root().SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", 1);
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        Root().SetNumber(hive, "AuthenticationType", 2);
        Root().SetText(hive, "KeyVault", "vault");
    }
    const std::string containers = Root().directory() + "/root/user/keycontainers";
    fs::create_directories(containers);
    fs::copy(KELVARO_FUZZ_FOLDER "/box.pem", containers);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    return OpenKeyOnce();
}

// Otherwise the log would fill the disk.
void EmptyLogFiles()
{
    for (const char* folder : {"/log", "/root/eventlog"}) {
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(Root().directory() + folder, ignored))
            fs::resize_file(entry.path(), 0, ignored);
    }
}

}  // namespace

std::string_view TakeLine(std::string_view& input)
{
    const std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(line.size() + 1, input.size()));
    return line;
}

Target::Target(const char* name, TargetFunction function)
{
    Targets()[name] = function;
}

void Choose(std::string_view name)
{
    chosen = Targets()[name];
    if (!chosen) {
        fprintf(stderr, "no target '%.*s': see fuzz/corpus\n", static_cast<int>(name.size()), name.data());
        exit(2);
    }
}

void Run(std::string_view input)
{
    static unsigned runs = 0;
    static const bool prepared = Prepare();
    Require(prepared);
    if (++runs % 1024 == 0)
        EmptyLogFiles();
    ForgetAnswers();
    // Each log line opens a file, so only some inputs are logged.
    LogLevel = input.size() % 8 == 0 ? LOG_DETAIL_LEVEL : 0;
    chosen(input);
}

AllocFault FaultFrom(std::string_view line)
{
    const char* const end = line.data() + line.size();
    size_t failAt = SIZE_MAX;
    const bool more = std::from_chars(line.data(), end, failAt).ptr != end;
    return AllocFault(failAt, more);
}

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& Table()
{
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    Require(GetKeyStorageInterface(TEXT("Zandrel Key Storage Provider for Key Vault"), &table, 0) == 0);
    return *table;
}

NCRYPT_PROV_HANDLE OpenProvider()
{
    NCRYPT_PROV_HANDLE provider = 0;
    return Table().OpenProvider(&provider, TEXT("provider"), 0) == 0 ? provider : 0;
}

bool OpenKeyOnce()
{
    NCRYPT_KEY_HANDLE key = 0;
    const NCRYPT_PROV_HANDLE provider = OpenProvider();
    if (!provider)
        return false;
    const bool opened = Table().OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG) == 0;
    const bool released = !opened || Table().FreeKey(provider, key) == 0;
    return Table().FreeProvider(provider) == 0 && opened && released;
}

TestRoot& Root()
{
    static TestRoot root;
    return root;
}

}  // namespace fuzz

// Nothing has to survive a power failure, and waiting for the disk would take most of the time.
extern "C" int fsync(int);
extern "C" int fsync(int)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

// libFuzzer ignores arguments with two dashes: kelvaro_fuzz --NAME ...
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    fuzz::Choose(*argc > 1 ? std::string_view((*argv)[1]).substr(2) : "");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::Run({reinterpret_cast<const char*>(data), size});
    return 0;
}
