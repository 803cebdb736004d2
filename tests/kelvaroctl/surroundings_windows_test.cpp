// What `doctor` asks Windows: the proxy, the registration, and the settings of programs of the other kind.
#include "kelvaroctl/doctor/surroundings.h"

#include <gtest/gtest.h>

#include "platform/product.h"
#include "tests/common/row.h"
#include "tests/common/test_root.h"

namespace {

void SetProxy(const WCHAR* list, const WCHAR* bypass)
{
    WINHTTP_PROXY_INFO info = {};
    info.dwAccessType = list ? WINHTTP_ACCESS_TYPE_NAMED_PROXY : WINHTTP_ACCESS_TYPE_NO_PROXY;
    info.lpszProxy = const_cast<WCHAR*>(list);
    info.lpszProxyBypass = const_cast<WCHAR*>(bypass);
    ASSERT_TRUE(WinHttpSetDefaultProxyConfiguration(&info));
}

TEST(SurroundingsTest, TheProxyOfAHost)
{
    SetProxy(TEXT("http=plain:80;https=secure:81"), TEXT("*.vault.azure.net;LOGIN;<local>"));
    const Row<const char*, bool, const char*> rows[] = {
        {"contoso.com", true, "secure:81"}, {"contoso.com", false, "plain:80"},     {"a.Vault.azure.net", true, ""},
        {"localhost", false, ""},           {"169.254.169.254", false, "plain:80"}, {"login.com", true, "secure:81"},
    };
    for (const auto& [host, secure, proxy] : rows)
        EXPECT_EQ(proxy, kelvaroctl::ProxyFor(host, secure)) << host;
    SetProxy(TEXT("both:8080"), nullptr);
    EXPECT_EQ("both:8080", kelvaroctl::ProxyFor("contoso.com", true));
    SetProxy(nullptr, nullptr);
    EXPECT_EQ("", kelvaroctl::ProxyFor("contoso.com", true));
}

TEST(SurroundingsTest, TheRegisteredImage)
{
    const std::wstring key =
        std::wstring(L"SYSTEM\\CurrentControlSet\\Control\\Cryptography\\Providers\\") + kProviderName;
    const WCHAR image[] = TEXT("kelvaro.dll");
    EXPECT_EQ("", kelvaroctl::RegisteredImage());
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, (key + L"\\UM").c_str(), TEXT("Image"), REG_SZ, image, sizeof(image));
    EXPECT_EQ("kelvaro.dll", kelvaroctl::RegisteredImage());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
}

TEST(SurroundingsTest, SettingsThatProgramsOfTheOtherKindRead)
{
    TestRoot root;
    root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", "contoso");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", "s");
    root.SetNumber(HKEY_LOCAL_MACHINE, "AuthenticationType", 2);
    // Nothing is set there.
    EXPECT_EQ("", kelvaroctl::OtherViewDifference(true));
    HKEY other = nullptr;
    ASSERT_EQ(0, RegCreateKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, nullptr, 0, KEY_ALL_ACCESS | KEY_WOW64_32KEY,
                                 nullptr, &other, nullptr));
    const DWORD two = 2;
    RegSetValueExW(other, TEXT("AuthenticationType"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&two), sizeof(two));
    RegSetValueExW(other, TEXT("KeyVault"), 0, REG_SZ, reinterpret_cast<const BYTE*>(TEXT("other")), 12);
    EXPECT_EQ("32-bit programs have KeyVault=other, no ClientSecret, no LogfilePath",
              kelvaroctl::OtherViewDifference(true));
    RegCloseKey(other);
    RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, KEY_WOW64_32KEY, 0);
}

}  // namespace
