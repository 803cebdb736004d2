#include "register/command.h"

#include <gtest/gtest.h>

#include "tests/register/fake_router.h"
#include "tests/register/image_file.h"

namespace kelvaro_register {
namespace {

using Names = std::vector<std::string>;

class RegisterCommand : public testing::Test {
  protected:
    void SetUp() override
    {
        const WideText system32 = images_.With("System32", ImageHeader(kMachineX64, kModuleBits)).u16string();
        const WideText sysWow64 = images_.With("SysWOW64", ImageHeader(kMachineX86, kModuleBits)).u16string();
        places_ = {{"64-bit programs", system32, TEXT("C:\\Windows\\System32"), kMachineX64},
                   {"32-bit programs", sysWow64, TEXT("C:\\Windows\\SysWOW64"), kMachineX86}};
    }

    void TearDown() override { EXPECT_EQ(router_.blocksOut, 0); }

    int Run(const Names& arguments)
    {
        output_.clear();
        router_.changes.clear();
        return RunRegister(arguments, FakeRouter::Calls(), places_, &output_);
    }

    bool Says(const std::string& text) const { return output_.find(text) != std::string::npos; }
    bool IsListed() const { return router_.listing.size() == 2 && router_.listing[1] == kProviderName; }

    FakeRouter router_;
    ImageFolder images_;
    ModulePlaces places_;
    std::string output_;
};

TEST_F(RegisterCommand, InstallsReportsAndUndoesEverything)
{
    const auto records = router_.records.size();
    const auto listing = router_.listing;
    EXPECT_EQ(Run({"status"}), kNotInstalled);
    EXPECT_TRUE(Says("registered: no\n"));
    EXPECT_TRUE(Says("not ready for use"));

    EXPECT_EQ(Run({"install"}), kDone) << output_;
    EXPECT_EQ(router_.changes, (Names{"register", "add"}));
    ASSERT_EQ(router_.records.count(TEXT("Zandrel Key Storage Provider for Key Vault")), 1U);
    const FakeRouter::Record& record = router_.records.begin()->second;
    EXPECT_EQ(record.image, TEXT("kelvaro.dll"));
    EXPECT_EQ(record.interfaceId, 0x00010001U);
    EXPECT_EQ(record.function, TEXT("KEY_STORAGE"));
    EXPECT_TRUE(IsListed());

    EXPECT_EQ(Run({"status"}), kDone);
    EXPECT_TRUE(Says("module for 64-bit programs: C:\\Windows\\System32\\kelvaro.dll fits (x64)\n")) << output_;
    EXPECT_TRUE(Says("module for 32-bit programs: C:\\Windows\\SysWOW64\\kelvaro.dll fits (x86)\n"));
    EXPECT_TRUE(Says("registered: yes, with kelvaro.dll\n"));
    EXPECT_TRUE(Says("\nready for use\n"));
    EXPECT_TRUE(router_.changes.empty());

    EXPECT_EQ(Run({"uninstall"}), kDone);
    EXPECT_EQ(router_.changes, (Names{"remove", "unregister"}));
    EXPECT_EQ(router_.records.size(), records);
    EXPECT_EQ(router_.listing, listing);
}

TEST_F(RegisterCommand, ChangesNothingASecondTime)
{
    ASSERT_EQ(Run({"install"}), kDone);
    EXPECT_EQ(Run({"install"}), kDone);
    EXPECT_TRUE(router_.changes.empty());
    EXPECT_TRUE(Says("already registered"));
    EXPECT_TRUE(IsListed());
    ASSERT_EQ(Run({"uninstall"}), kDone);
    EXPECT_EQ(Run({"uninstall"}), kDone);
    EXPECT_TRUE(Says("was not registered"));
}

TEST_F(RegisterCommand, CompletesHalfARegistration)
{
    ASSERT_EQ(Run({"install"}), kDone);
    router_.listing.pop_back();
    EXPECT_EQ(Run({"status"}), kNotInstalled);
    EXPECT_TRUE(Says("registered: yes"));
    EXPECT_EQ(Run({"install"}), kDone);
    EXPECT_EQ(router_.changes, Names{"add"});
    router_.records.clear();
    EXPECT_EQ(Run({"status"}), kNotInstalled);
    EXPECT_EQ(Run({"uninstall"}), kDone);
    EXPECT_FALSE(IsListed());
}

TEST_F(RegisterCommand, ReplacesARecordThatIsNotItsOwn)
{
    router_.records[kProviderName] = {TEXT("other.dll"), 0x00010001, TEXT("KEY_STORAGE")};
    EXPECT_EQ(Run({"status"}), kNotInstalled);
    EXPECT_TRUE(Says("with other.dll, which is not what this program registers"));
    EXPECT_EQ(Run({"install"}), kDone);
    EXPECT_TRUE(Says("replaced"));
    EXPECT_EQ(router_.records[kProviderName].image, TEXT("kelvaro.dll"));
}

TEST_F(RegisterCommand, SaysWhichCallWasRefusedAndUndoesWhatItDid)
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
        SCOPED_TRACE(row.text);
        router_.answers = {{row.call, row.answer}};
        EXPECT_EQ(Run({"install"}), kRefused);
        EXPECT_TRUE(Says(row.text)) << output_;
        EXPECT_TRUE(router_.records.empty());
        EXPECT_FALSE(IsListed());
    }
}

TEST_F(RegisterCommand, UninstallTriesBothEntries)
{
    ASSERT_EQ(Run({"install"}), kDone);
    router_.answers = {{"remove", kStatusAccessDenied}};
    EXPECT_EQ(Run({"uninstall"}), kRefused);
    EXPECT_TRUE(Says("BCryptRemoveContextFunctionProvider answered 0xc0000022"));
    EXPECT_TRUE(router_.records.empty());
}

TEST_F(RegisterCommand, RegistersNoModuleThatProgramsCannotLoad)
{
    places_[0].machine = kMachineArm64;
    EXPECT_EQ(Run({"install"}), kNotInstalled);
    EXPECT_TRUE(Says("is for x64 and must be for ARM64")) << output_;
    EXPECT_TRUE(router_.records.empty());
    std::filesystem::remove(images_.path() / "System32" / "kelvaro.dll");
    EXPECT_EQ(Run({"install"}), kNotInstalled);
    EXPECT_TRUE(Says("System32\\kelvaro.dll is missing"));
}

TEST_F(RegisterCommand, InstallsWithoutTheModuleForOtherPrograms)
{
    std::filesystem::remove(images_.path() / "SysWOW64" / "kelvaro.dll");
    EXPECT_EQ(Run({"install"}), kDone);
    EXPECT_TRUE(Says("SysWOW64\\kelvaro.dll is missing"));
}

TEST_F(RegisterCommand, ExplainsItself)
{
    for (const Names& arguments : {Names{}, Names{"instal"}, Names{"install", "now"}}) {
        EXPECT_EQ(Run(arguments), kUsage);
        EXPECT_TRUE(Says("kelvaro-register install"));
    }
    EXPECT_EQ(Run({"--help"}), kDone);
    EXPECT_TRUE(router_.changes.empty());
}

}  // namespace
}  // namespace kelvaro_register
