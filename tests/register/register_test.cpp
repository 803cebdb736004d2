// The program's commands over a router in memory, and what it thinks of the modules that it finds.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "register/command.h"
#include "register/module_files.h"
#include "tests/register/fake_router.h"

namespace kelvaro_register {
namespace {

constexpr uint16_t kModuleBits = 0x2022;  // executable, large addresses, DLL
constexpr uint16_t kProgramBits = 0x0022;

// The header of a Windows image, as much as a reader looks at.
std::string ImageHeader(uint16_t machine, uint16_t characteristics = kModuleBits, uint32_t at = 128)
{
    std::string bytes(at + 24, '\0');
    const auto put = [&](size_t where, uint32_t value, size_t size) {
        for (size_t index = 0; index < size; ++index)
            bytes[where + index] = static_cast<char>(value >> (8 * index));
    };
    bytes.replace(0, 2, "MZ");
    put(60, at, 4);
    bytes.replace(at, 2, "PE");
    put(at + 4, machine, 2);
    put(at + 22, characteristics, 2);
    return bytes;
}

class Register : public testing::Test {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(router_.blocksOut, 0);
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
    bool IsListed() const { return router_.listing.size() == 2 && router_.listing[1] == kProviderName; }

    int Run(const std::vector<std::string>& arguments)
    {
        output_.clear();
        router_.changes.clear();
        return RunRegister(arguments, FakeRouter::Calls(), places_, &output_);
    }
    void Expect(const std::vector<std::string>& arguments, int result, const char* text, const char* changes = "")
    {
        EXPECT_EQ(Run(arguments), result) << output_;
        EXPECT_NE(output_.find(text), std::string::npos) << output_;
        EXPECT_EQ(router_.changes, changes);
    }

    char name_[32] = "/tmp/kelvaro-register-XXXXXX";
    std::filesystem::path path_ = mkdtemp(name_);
    FakeRouter router_;
    ModulePlaces places_ = {
        {"64-bit programs", With("System32", ImageHeader(kMachineX64)), TEXT("C:\\Windows\\System32"), kMachineX64},
        {"32-bit programs", With("SysWOW64", ImageHeader(kMachineX86)), TEXT("C:\\Windows\\SysWOW64"), kMachineX86}};
    std::string output_;
};

TEST_F(Register, InstallsReportsAndUndoesEverything)
{
    const auto listing = router_.listing;
    Expect({"status"}, kNotInstalled, "registered: no\n");
    EXPECT_NE(output_.find("not ready for use"), std::string::npos);
    Expect({"install"}, kDone, "", "register add ");
    ASSERT_EQ(router_.records.count(TEXT("Zandrel Key Storage Provider for Key Vault")), 1U);
    const FakeRouter::Record& record = router_.records.begin()->second;
    EXPECT_EQ(record.image, TEXT("kelvaro.dll"));
    EXPECT_EQ(record.interfaceId, 0x00010001U);
    EXPECT_EQ(record.function, TEXT("KEY_STORAGE"));
    EXPECT_TRUE(IsListed());
    Expect({"install"}, kDone, "already registered");
    for (const char* text : {"module for 64-bit programs: C:\\Windows\\System32\\kelvaro.dll fits (x64)\n",
                             "module for 32-bit programs: C:\\Windows\\SysWOW64\\kelvaro.dll fits (x86)\n",
                             "registered: yes, with kelvaro.dll\n", "\nready for use\n"})
        Expect({"status"}, kDone, text);

    // Half a registration is completed.
    router_.listing.pop_back();
    Expect({"status"}, kNotInstalled, "registered: yes");
    Expect({"install"}, kDone, "", "add ");
    // Another's record is replaced.
    router_.records[kProviderName].image = TEXT("other.dll");
    Expect({"status"}, kNotInstalled, "with other.dll, which is not what this program registers");
    EXPECT_EQ(Run({"install"}), kDone);
    EXPECT_NE(output_.find("replaced"), std::string::npos);
    EXPECT_EQ(router_.records[kProviderName].image, TEXT("kelvaro.dll"));

    Expect({"uninstall"}, kDone, "", "remove unregister ");
    EXPECT_TRUE(router_.records.empty());
    EXPECT_EQ(router_.listing, listing);
    EXPECT_EQ(Run({"uninstall"}), kDone);
    EXPECT_NE(output_.find("was not registered"), std::string::npos);
    router_.listing.push_back(kProviderName);
    Expect({"status"}, kNotInstalled, "registered: no\n");
    EXPECT_EQ(Run({"uninstall"}), kDone);
    EXPECT_FALSE(IsListed());
}

TEST_F(Register, SaysWhichCallWasRefusedAndUndoesWhatItDid)
{
    constexpr NTSTATUS kBroken = static_cast<NTSTATUS>(0xC0000001);
    const struct {
        const char* call;
        NTSTATUS answer;
        const char* text;
    } rows[] = {
        {"query", kBroken, "BCryptQueryProviderRegistration answered 0xc0000001"},
        {"register", kStatusAccessDenied, "BCryptRegisterProvider answered 0xc0000022: run this as an administrator"},
        {"add", kStatusAccessDenied, "BCryptAddContextFunctionProvider answered 0xc0000022"},
        {"enum", kBroken, "BCryptEnumContextFunctionProviders answered 0xc0000001"},
        // Reports success and changes nothing.
        {"register", 0, "BCryptQueryProviderRegistration answered 0xc0000225"},
        {"add", 0, "BCryptEnumContextFunctionProviders answered 0xc0000225"},
    };
    for (const auto& row : rows) {
        router_.answers = {{row.call, row.answer}};
        EXPECT_EQ(Run({"install"}), kRefused);
        EXPECT_NE(output_.find(row.text), std::string::npos) << output_;
        EXPECT_TRUE(router_.records.empty()) << row.text;
        EXPECT_FALSE(IsListed()) << row.text;
    }
    // An uninstallation tries both.
    router_.answers.clear();
    ASSERT_EQ(Run({"install"}), kDone);
    router_.answers = {{"remove", kStatusAccessDenied}};
    Expect({"uninstall"}, kRefused, "BCryptRemoveContextFunctionProvider answered 0xc0000022", "remove unregister ");
    EXPECT_TRUE(router_.records.empty());
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
    const struct {
        const char* name;
        std::string bytes;
        WORD wanted;
        ModuleFit fit;
        WORD machine;
    } rows[] = {
        {"x64 for x64", x64, kMachineX64, ModuleFit::Fits, kMachineX64},
        {"x86 for x86", ImageHeader(kMachineX86), kMachineX86, ModuleFit::Fits, kMachineX86},
        {"x64 for x86", x64, kMachineX86, ModuleFit::WrongMachine, kMachineX64},
        {"x86 for x64", ImageHeader(kMachineX86), kMachineX64, ModuleFit::WrongMachine, kMachineX86},
        {"far header", ImageHeader(kMachineX64, kModuleBits, 0x12344), kMachineX64, ModuleFit::Fits, kMachineX64},
        {"program", ImageHeader(kMachineX64, kProgramBits), kMachineX64, ModuleFit::NoModule, 0},
        {"empty", "", kMachineX64, ModuleFit::NoModule, 0},
        {"cut in the first header", x64.substr(0, 63), kMachineX64, ModuleFit::NoModule, 0},
        {"cut in the second header", x64.substr(0, x64.size() - 1), kMachineX64, ModuleFit::NoModule, 0},
        {"another signature", "ZM" + x64.substr(2), kMachineX64, ModuleFit::NoModule, 0},
        {"header beyond the end", x64.substr(0, 60) + "\xF0\xFF\xFF\xFF" + x64.substr(64), kMachineX64,
         ModuleFit::NoModule, 0},
        {"not PE", x64.substr(0, 128) + "NE" + x64.substr(130), kMachineX64, ModuleFit::NoModule, 0},
        {"Linux module", "\x7f" + std::string("ELF") + std::string(100, '\0'), kMachineX64, ModuleFit::NoModule, 0},
    };
    for (const auto& row : rows) {
        const WideText folder = With(row.name, row.bytes);
        const ModuleFile file = InspectModule({"programs", folder, folder, row.wanted});
        EXPECT_EQ(file.fit, row.fit) << row.name;
        EXPECT_EQ(file.machine, row.machine) << row.name;
    }
    const WideText folder = path_.u16string();
    EXPECT_EQ(InspectModule({"programs", folder, folder, kMachineX64}).fit, ModuleFit::Missing);
    std::filesystem::create_directory(path_ / "kelvaro.dll");
    EXPECT_EQ(InspectModule({"programs", folder, folder, kMachineX64}).fit, ModuleFit::NoModule);
}

}  // namespace
}  // namespace kelvaro_register
