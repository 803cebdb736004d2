#include <gtest/gtest.h>

#include "tests/platform/platform_root.h"

// The probe notes each call of its DllMain in the registry, with what it finds there.
TEST(ModuleLife, LoadingAttachesAndUnloadingDetaches)
{
    const PlatformRoot root;
    const std::u16string probe = ToUtf16(KELVARO_MODULE_PROBE);
    std::string expected;
    for (int round = 0; round < 2; round++) {
        HMODULE module = LoadLibraryW(probe.c_str());
        ASSERT_NE(module, nullptr);
        expected += "1";
        EXPECT_EQ(ReadFileText(root.File("drive_c/calls")), expected);
        EXPECT_TRUE(FreeLibrary(module));
        expected += "0";
        EXPECT_EQ(ReadFileText(root.File("drive_c/calls")), expected);
    }
}
