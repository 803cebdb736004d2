#include <gtest/gtest.h>

#include "tests/platform/platform_root.h"

namespace {

TEST(WinHttpCrackUrl, SplitsUrls)
{
    const struct {
        const char16_t* url;
        LONG error;
        const char16_t* host;
        int port;
    } rows[] = {
        {u"http://localhost:40342/metadata/identity/oauth2/token", 0, u"localhost", 40342},
        {u"HTTPS://Kv.Test", 0, u"Kv.Test", 443},
        {u"http://127.0.0.1?x=1:2@3", 0, u"127.0.0.1", 80},
        {u"http://u:p@h:/", 0, u"h", 80},
        {u"http://[::1]:8080/", 0, u"[::1]", 8080},
        {u"http://%6C%6fcal/", 0, u"local", 80},
        {u"http://h%zz%4", 0, u"h%zz%4", 80},
        {u"", ERROR_INVALID_PARAMETER, u"", 0},
        {u"localhost", ERROR_WINHTTP_UNRECOGNIZED_SCHEME, u"", 0},
        {u"localhost:40342", ERROR_WINHTTP_UNRECOGNIZED_SCHEME, u"", 0},
        {u"ftp://h/", ERROR_WINHTTP_UNRECOGNIZED_SCHEME, u"", 0},
        {u"http:/h", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://:80/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://h:65536/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://h:8o/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://[::1/", ERROR_WINHTTP_INVALID_URL, u"", 0},
        {u"http://host.of.ten.characters/", ERROR_INSUFFICIENT_BUFFER, u"", 80},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(ToUtf8(row.url));
        WCHAR host[11] = {};
        URL_COMPONENTS parts = {};
        parts.dwStructSize = sizeof(parts);
        parts.lpszHostName = host;
        parts.dwHostNameLength = 11;
        SetLastError(0);
        EXPECT_EQ(WinHttpCrackUrl(row.url, 0, ICU_DECODE, &parts) != FALSE, row.error == 0);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(row.error));
        EXPECT_EQ(std::u16string(host), row.host);
        EXPECT_EQ(parts.nPort, row.port);
    }
}

TEST(WinHttpCrackUrl, FindsTheHostAlone)
{
    const std::u16string url = u"https://user:pass@h:1/p/q?x#f";
    WCHAR host[11] = {};
    WCHAR path[11] = {};
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    parts.dwHostNameLength = 11;
    ASSERT_TRUE(WinHttpCrackUrl(url.c_str(), static_cast<DWORD>(url.find(u":1/")), ICU_DECODE, &parts));
    EXPECT_EQ(std::u16string(host), u"h");
    EXPECT_EQ(parts.dwHostNameLength, 1u);
    EXPECT_EQ(parts.nPort, 443) << "a counted URL ends where its count says";

    parts.dwHostNameLength = 11;
    EXPECT_EQ(ErrorOf(WinHttpCrackUrl(url.c_str(), 0, 0, &parts)), DWORD{ERROR_INVALID_PARAMETER});
    parts.lpszUrlPath = path;
    EXPECT_EQ(ErrorOf(WinHttpCrackUrl(url.c_str(), 0, ICU_DECODE, &parts)), DWORD{ERROR_INVALID_PARAMETER});
    parts.lpszUrlPath = nullptr;
    parts.dwUrlPathLength = 1;
    EXPECT_EQ(ErrorOf(WinHttpCrackUrl(url.c_str(), 0, ICU_DECODE, &parts)), DWORD{ERROR_INVALID_PARAMETER});
    parts.dwUrlPathLength = 0;
    parts.lpszHostName = nullptr;
    EXPECT_EQ(ErrorOf(WinHttpCrackUrl(url.c_str(), 0, ICU_DECODE, &parts)), DWORD{ERROR_INVALID_PARAMETER});
}

}  // namespace
