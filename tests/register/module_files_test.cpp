#include "register/module_files.h"

#include <gtest/gtest.h>

#include "tests/register/image_file.h"

namespace kelvaro_register {
namespace {

TEST(ModuleFiles, SayWhetherProgramsOfAPlaceCanLoadThem)
{
    const std::string x64 = ImageHeader(kMachineX64, kModuleBits);
    const struct {
        const char* name;
        std::string bytes;
        WORD wanted;
        ModuleFit fit;
        WORD machine;
    } rows[] = {
        {"x64 for x64", x64, kMachineX64, ModuleFit::Fits, kMachineX64},
        {"x86 for x86", ImageHeader(kMachineX86, kModuleBits), kMachineX86, ModuleFit::Fits, kMachineX86},
        {"x64 for x86", x64, kMachineX86, ModuleFit::WrongMachine, kMachineX64},
        {"x86 for x64", ImageHeader(kMachineX86, kModuleBits), kMachineX64, ModuleFit::WrongMachine, kMachineX86},
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
    const ImageFolder images;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const WideText folder = images.With(row.name, row.bytes).u16string();
        const ModuleFile file = InspectModule({"programs", folder, folder, row.wanted});
        EXPECT_EQ(file.fit, row.fit);
        EXPECT_EQ(file.machine, row.machine);
    }
}

TEST(ModuleFiles, ToldApartFromAMissingOne)
{
    const ImageFolder images;
    const WideText folder = images.path().u16string();
    EXPECT_EQ(InspectModule({"programs", folder, folder, kMachineX64}).fit, ModuleFit::Missing);
    std::filesystem::create_directory(images.path() / "kelvaro.dll");
    EXPECT_EQ(InspectModule({"programs", folder, folder, kMachineX64}).fit, ModuleFit::NoModule);
}

}  // namespace
}  // namespace kelvaro_register
