// The program's commands over a router in memory, and how it classifies the modules that it finds.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>

#include "register/command.h"
#include "register/module_files.h"
#include "tests/common/row.h"

namespace kelvaro_register {
namespace {

constexpr NTSTATUS kCollision = static_cast<NTSTATUS>(0xC0000035);
constexpr NTSTATUS kInvalid = static_cast<NTSTATUS>(0xC000000D);
constexpr NTSTATUS kBroken = static_cast<NTSTATUS>(0xC0000001);
constexpr NTSTATUS kDoIt = 1;

const WideText kName = TEXT("Zandrel Key Storage Provider for Key Vault");
const std::vector<WideText> kOthers = {TEXT("Microsoft Software Key Storage Provider")};

// CNG's configuration in memory.
struct Router {
    WideText image;  // of the provider's record; empty: no record
    std::vector<WideText> listing = kOthers;
    std::map<std::string, NTSTATUS> answers;             // of calls that then do nothing, by their names
    std::string changes;                                 // the calls that change something, each with a blank
    std::map<void*, std::shared_ptr<void>> blocks = {};  // that the program has to free
};
Router router;

NTSTATUS Answer(const std::string& call, bool changes = true)
{
    if (changes)
        router.changes += call + " ";
    const auto found = router.answers.find(call);
    return found == router.answers.end() ? kDoIt : found->second;
}

bool IsKeyStorage(ULONG interfaceId, LPCWSTR function)
{
    return interfaceId == 0x00010001 && WideText(function) == TEXT("KEY_STORAGE");
}

bool IsKeyStorageList(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function)
{
    return table == 1 && WideText(context) == TEXT("Default") && IsKeyStorage(interfaceId, function);
}

struct RecordBlock {
    WideText image = router.image;
    WideText function = TEXT("KEY_STORAGE");
    PWSTR functions[1] = {function.data()};
    CRYPT_INTERFACE_REG row = {0x00010001, 1, 1, functions};
    PCRYPT_INTERFACE_REG rows[1] = {&row};
    CRYPT_IMAGE_REG user = {image.data(), 1, rows};
    CRYPT_PROVIDER_REG provider = {0, nullptr, &user, nullptr};
};

struct ListBlock {
    std::vector<WideText> names = router.listing;
    std::vector<PWSTR> pointers;
    CRYPT_CONTEXT_FUNCTION_PROVIDERS list = {};

    ListBlock()
    {
        for (WideText& name : names)
            pointers.push_back(name.data());
        list = {static_cast<ULONG>(pointers.size()), pointers.data()};
    }
};

NTSTATUS RegisterProvider(LPCWSTR name, ULONG flags, PCRYPT_PROVIDER_REG record)
{
    const NTSTATUS answer = Answer("register");
    if (answer != kDoIt)
        return answer;
    if (kName != name || record->cAliases || record->pKM || !record->pUM || record->pUM->cInterfaces != 1)
        return kInvalid;
    const CRYPT_INTERFACE_REG& row = *record->pUM->rgpInterfaces[0];
    if (row.dwFlags != 1 || row.cFunctions != 1 || !IsKeyStorage(row.dwInterface, row.rgpszFunctions[0]))
        return kInvalid;
    if (!router.image.empty() && flags != 1)
        return kCollision;
    router.image = record->pUM->pszImage;
    return 0;
}

NTSTATUS UnregisterProvider(LPCWSTR name)
{
    const NTSTATUS answer = Answer("unregister");
    if (answer != kDoIt)
        return answer;
    const bool found = kName == name && !router.image.empty();
    router.image.clear();
    return found ? 0 : kStatusNotFound;
}

NTSTATUS QueryRegistration(LPCWSTR name, ULONG mode, ULONG interfaceId, ULONG*, PCRYPT_PROVIDER_REG* out)
{
    const NTSTATUS answer = Answer("query", false);
    if (answer != kDoIt)
        return answer;
    if (kName != name || mode != 1 || interfaceId != 0x00010001 || router.image.empty())
        return kStatusNotFound;
    const auto block = std::make_shared<RecordBlock>();
    *out = &block->provider;
    router.blocks[*out] = block;
    return 0;
}

NTSTATUS AddContextProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR name,
                            ULONG position)
{
    const NTSTATUS answer = Answer("add");
    if (answer != kDoIt)
        return answer;
    if (!IsKeyStorageList(table, context, interfaceId, function) || position != 0xFFFFFFFF)
        return kInvalid;
    router.listing.push_back(name);
    return 0;
}

NTSTATUS RemoveContextProvider(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, LPCWSTR name)
{
    const NTSTATUS answer = Answer("remove");
    if (answer != kDoIt)
        return answer;
    const auto found = std::find(router.listing.begin(), router.listing.end(), name);
    if (!IsKeyStorageList(table, context, interfaceId, function) || found == router.listing.end())
        return kStatusNotFound;
    router.listing.erase(found);
    return 0;
}

NTSTATUS EnumContextProviders(ULONG table, LPCWSTR context, ULONG interfaceId, LPCWSTR function, ULONG*,
                              PCRYPT_CONTEXT_FUNCTION_PROVIDERS* out)
{
    const NTSTATUS answer = Answer("enum", false);
    if (answer != kDoIt)
        return answer;
    if (!IsKeyStorageList(table, context, interfaceId, function))
        return kStatusNotFound;
    const auto block = std::make_shared<ListBlock>();
    *out = &block->list;
    router.blocks[*out] = block;
    return 0;
}

const CngCalls kCalls = {RegisterProvider,
                         UnregisterProvider,
                         QueryRegistration,
                         AddContextProvider,
                         RemoveContextProvider,
                         EnumContextProviders,
                         [](PVOID block) { EXPECT_EQ(router.blocks.erase(block), 1U); }};

// The header of a Windows image, as much as a reader looks at.
std::string ImageHeader(uint16_t machine, uint16_t characteristics = 0x2022, uint32_t at = 128)
{
    std::string bytes(at + 24, '\0');
    const auto put = [&](size_t where, uint32_t value) {
        for (size_t index = 0; value >> (8 * index) != 0; ++index)
            bytes[where + index] = static_cast<char>(value >> (8 * index));
    };
    bytes.replace(0, 2, "MZ");
    put(60, at);
    bytes.replace(at, 2, "PE");
    put(at + 4, machine);
    put(at + 22, characteristics);
    return bytes;
}

class Register : public testing::Test {
  protected:
    void SetUp() override { router = Router(); }
    void TearDown() override
    {
        EXPECT_TRUE(router.blocks.empty());
        std::filesystem::remove_all(path_);
    }

    // The folder of that name, with a module of those bytes in it.
    WideText With(const std::string& name, const std::string& bytes) const
    {
        std::filesystem::create_directories(path_ / name);
        std::ofstream(path_ / name / "kelvaro.dll", std::ios::binary) << bytes;
        return (path_ / name).u16string();
    }
    void Remove(const char* name) const { std::filesystem::remove(path_ / name / "kelvaro.dll"); }
    static bool IsListed() { return router.listing.size() == 2 && router.listing[1] == kName; }

    void Expect(const std::vector<std::string>& arguments, int result, const std::string& text,
                const char* changes = "") const
    {
        std::string output;
        router.changes.clear();
        EXPECT_EQ(RunRegister(arguments, kCalls, places_, &output), result) << output;
        EXPECT_NE(output.find(text), std::string::npos) << output;
        EXPECT_EQ(router.changes, changes);
    }

    char name_[32] = "/tmp/kelvaro-register-XXXXXX";
    std::filesystem::path path_ = mkdtemp(name_);
    ModulePlaces places_ = {
        {"64-bit programs", With("System32", ImageHeader(kMachineX64)), TEXT("C:\\Windows\\System32"), kMachineX64},
        {"32-bit programs", With("SysWOW64", ImageHeader(kMachineX86)), TEXT("C:\\Windows\\SysWOW64"), kMachineX86}};
};

TEST_F(Register, InstallsReportsAndUndoesEverything)
{
    Expect({"status"}, kNotInstalled, "registered: no\nlisted as a key storage provider: no\nnot ready for use\n");
    Expect({"install"}, kDone, "", "register add ");
    EXPECT_EQ(router.image, TEXT("kelvaro.dll"));
    EXPECT_TRUE(IsListed());
    Expect({"install"}, kDone, "already registered");
    Expect({"status"}, kDone,
           "module for 64-bit programs: C:\\Windows\\System32\\kelvaro.dll fits (x64)\n"
           "module for 32-bit programs: C:\\Windows\\SysWOW64\\kelvaro.dll fits (x86)\n");
    Expect({"status"}, kDone,
           "registered: yes, with kelvaro.dll\nlisted as a key storage provider: yes\nready for use\n");

    // An incomplete registration is completed.
    router.listing.pop_back();
    Expect({"status"}, kNotInstalled, "registered: yes");
    Expect({"install"}, kDone, "", "add ");
    // Another program's record is replaced.
    router.image = TEXT("other.dll");
    Expect({"status"}, kNotInstalled, "with other.dll, which is not what this program registers");
    Expect({"install"}, kDone, "replaced", "register ");
    EXPECT_EQ(router.image, TEXT("kelvaro.dll"));

    Expect({"uninstall"}, kDone, "", "remove unregister ");
    EXPECT_TRUE(router.image.empty());
    EXPECT_EQ(router.listing, kOthers);
    Expect({"uninstall"}, kDone, "was not registered", "remove unregister ");
    router.listing.push_back(kName);
    Expect({"status"}, kNotInstalled, "registered: no\n");
    Expect({"uninstall"}, kDone, "", "remove unregister ");
    EXPECT_FALSE(IsListed());
}

TEST_F(Register, NamesTheRefusedCallAndUndoesTheOthers)
{
    const Row<const char*, NTSTATUS, const char*, const char*> rows[] = {
        {"query", kBroken, "BCryptQueryProviderRegistration answered 0xc0000001", ""},
        {"register", kStatusAccessDenied, "BCryptRegisterProvider answered 0xc0000022: run this as an administrator",
         "register "},
        {"add", kStatusAccessDenied, "BCryptAddContextFunctionProvider answered 0xc0000022",
         "register add unregister "},
        {"enum", kBroken, "BCryptEnumContextFunctionProviders answered 0xc0000001", ""},
        // Reports success and changes nothing.
        {"register", 0, "BCryptQueryProviderRegistration answered 0xc0000225", "register add remove unregister "},
        {"add", 0, "BCryptEnumContextFunctionProviders answered 0xc0000225", "register add remove unregister "},
    };
    for (const auto& [call, answer, text, changes] : rows) {
        router.answers = {{call, answer}};
        Expect({"install"}, kRefused, text, changes);
        EXPECT_TRUE(router.image.empty()) << text;
        EXPECT_FALSE(IsListed()) << text;
    }
    // An uninstallation tries both.
    router.answers.clear();
    Expect({"install"}, kDone, "", "register add ");
    router.answers = {{"remove", kStatusAccessDenied}};
    Expect({"uninstall"}, kRefused, "BCryptRemoveContextFunctionProvider answered 0xc0000022", "remove unregister ");
    EXPECT_TRUE(router.image.empty());
}

TEST_F(Register, NeedsOnlyTheModuleForTheSystemsOwnPrograms)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{}, {"instal"}, {"install", "now"}})
        Expect(arguments, kUsage, "kelvaro-register install");
    Expect({"--help"}, kDone, "");
    places_[0].machine = kMachineArm64;
    Expect({"install"}, kNotInstalled, "is for x64 and must be for ARM64");
    Remove("System32");
    Expect({"install"}, kNotInstalled, "System32\\kelvaro.dll is missing");
    places_[0].folder = With("System32", ImageHeader(kMachineArm64));
    Remove("SysWOW64");
    Expect({"install"}, kDone, "SysWOW64\\kelvaro.dll is missing", "register add ");
}

TEST_F(Register, KnowsWhichModulesProgramsCanLoad)
{
    const std::string x64 = ImageHeader(kMachineX64);
    const Row<const char*, std::string, WORD, ModuleFit, WORD> rows[] = {
        {"x64 for x64", x64, kMachineX64, ModuleFit::Fits, kMachineX64},
        {"x64 for x86", x64, kMachineX86, ModuleFit::WrongMachine, kMachineX64},
        {"far header", ImageHeader(kMachineX64, 0x2022, 0x12344), kMachineX64, ModuleFit::Fits, kMachineX64},
        {"a program, not a DLL", ImageHeader(kMachineX64, 0x0022), kMachineX64, ModuleFit::NoModule},
        {"cut in the first header", x64.substr(0, 63), kMachineX64, ModuleFit::NoModule},
        {"cut in the second header", x64.substr(0, x64.size() - 1), kMachineX64, ModuleFit::NoModule},
        {"header beyond the end", x64.substr(0, 60) + "\xF0\xFF\xFF\xFF" + x64.substr(64), kMachineX64,
         ModuleFit::NoModule},
        {"not PE", x64.substr(0, 128) + "NE" + x64.substr(130), kMachineX64, ModuleFit::NoModule},
        {"Linux module", "\x7f" + std::string("ELF") + std::string(100, '\0'), kMachineX64, ModuleFit::NoModule},
    };
    for (const auto& [name, bytes, wanted, fit, machine] : rows) {
        const WideText folder = With(name, bytes);
        const ModuleFile file = InspectModule({"programs", folder, folder, wanted});
        EXPECT_EQ(file.fit, fit) << name;
        EXPECT_EQ(file.machine, machine) << name;
    }
    const WideText folder = path_.u16string();
    EXPECT_EQ(InspectModule({"programs", folder, folder, kMachineX64}).fit, ModuleFit::Missing);
    std::filesystem::create_directory(path_ / "kelvaro.dll");
    EXPECT_EQ(InspectModule({"programs", folder, folder, kMachineX64}).fit, ModuleFit::NoModule);
}

}  // namespace
}  // namespace kelvaro_register
