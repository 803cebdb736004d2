#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "tests/platform/platform_root.h"

TEST(Names, TheUserNameFollowsTheTwoCallContract)
{
    DWORD needed = 0;
    EXPECT_EQ(ErrorOf(GetUserNameW(nullptr, &needed)), DWORD{ERROR_INSUFFICIENT_BUFFER});
    std::u16string name(needed, u'?');
    DWORD size = needed - 1;
    EXPECT_FALSE(GetUserNameW(name.data(), &size));
    ASSERT_TRUE(GetUserNameW(name.data(), &size));
    EXPECT_EQ(size, needed) << "the terminator is counted";
    EXPECT_EQ(name.find(u'\0') + 1, needed);
}

TEST(Names, TheComputerNameFollowsItsOwn)
{
    DWORD needed = 0;
    EXPECT_EQ(ErrorOf(GetComputerNameExW(ComputerNameDnsFullyQualified, nullptr, &needed)), DWORD{ERROR_MORE_DATA});
    std::u16string name(needed, u'?');
    DWORD size = needed;
    ASSERT_TRUE(GetComputerNameExW(ComputerNameDnsFullyQualified, name.data(), &size));
    EXPECT_EQ(size + 1, needed) << "the terminator is not counted";
    name.resize(size);
    char host[256] = {};
    ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
    EXPECT_EQ(ToUtf8(name).find(host), 0u) << "the qualified name begins with the host's";
}

TEST(Names, TheImageNameIsTheProgram)
{
    WCHAR name[4096];
    const DWORD length = K32GetProcessImageFileNameW(GetCurrentProcess(), name, 4096);
    ASSERT_GT(length, 0u);
    EXPECT_EQ(std::filesystem::path(ToUtf8(name)), std::filesystem::read_symlink("/proc/self/exe"));
    EXPECT_EQ(ErrorOf(K32GetProcessImageFileNameW(GetCurrentProcess(), name, length) != 0),
              DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(Names, EnvironmentVariables)
{
    WCHAR buffer[8];
    setenv("KELVARO_TEST_VALUE", "five\xC3\xA4", 1);
    EXPECT_EQ(GetEnvironmentVariableW(u"KELVARO_TEST_VALUE", buffer, 8), 5u);
    EXPECT_EQ(std::u16string(buffer), u"five\u00E4");
    EXPECT_EQ(GetEnvironmentVariableW(u"KELVARO_TEST_VALUE", buffer, 5), 6u) << "too small: with terminator";
    EXPECT_EQ(GetEnvironmentVariableW(u"KELVARO_TEST_VALUE", nullptr, 0), 6u);
    setenv("KELVARO_TEST_VALUE", "", 1);
    EXPECT_EQ(GetEnvironmentVariableW(u"KELVARO_TEST_VALUE", buffer, 8), 0u);
    EXPECT_EQ(GetLastError(), 0u);
    unsetenv("KELVARO_TEST_VALUE");
    EXPECT_EQ(ErrorOf(GetEnvironmentVariableW(u"KELVARO_TEST_VALUE", buffer, 8) != 0), DWORD{ERROR_ENVVAR_NOT_FOUND});
}
