#include "bench/memory_transport.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/platform.h"

namespace {

constexpr WCHAR kHead[] = TEXT("HTTP/1.1 200 OK\r\nCache-Control: no-cache\r\nPragma: no-cache\r\n") TEXT(
    "Content-Type: application/json; charset=utf-8\r\nExpires: -1\r\nx-ms-keyvault-region: westeurope\r\n")
    TEXT("x-ms-request-id: 6ab2dfd5-1f2c-4d4c-9f6e-0f3f6c1a2b3c\r\nx-ms-keyvault-service-version: 1.9.1.0\r\n") TEXT(
        "Strict-Transport-Security: max-age=31536000;includeSubDomains\r\nX-Content-Type-Options: nosniff\r\n\r\n");

// 256 bytes in Base64url.
const std::string kValue = std::string(341, 'Q') + "A";

const std::string kSignIn = R"({"token_type":"Bearer","expires_in":3599,"ext_expires_in":3599,"access_token":"e30.)" +
                            std::string(1200, 'a') + R"(.sig"})";
const std::string kKey =
    R"({"key":{"kid":"https://memory.vault.azure.net/keys/rsa/0123456789abcdef0123456789abcdef","kty":"RSA",)"
    R"("key_ops":["encrypt","decrypt","sign","verify"],"n":")" +
    kValue + R"(","e":"AQAB"},"attributes":{"enabled":true,"created":1700000000,"updated":1700000000}})";
const std::string kSignature =
    R"({"kid":"https://memory.vault.azure.net/keys/rsa/0123456789abcdef0123456789abcdef","value":")" + kValue + R"("})";

int answered = 0;

// The one exchange behind all handles.
struct {
    const std::string* answer;
    size_t read;
} exchange;

HINTERNET Handle()
{
    return &exchange;
}

}  // namespace

int AnsweredRequests()
{
    return answered;
}

HINTERNET WINAPI WinHttpOpen(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD)
{
    return Handle();
}

HINTERNET WINAPI WinHttpConnect(HINTERNET, LPCWSTR, INTERNET_PORT, DWORD)
{
    return Handle();
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET, LPCWSTR, LPCWSTR path, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD)
{
    const std::basic_string_view<WCHAR> target(path);
    if (target.find(TEXT("/sign?")) != target.npos)
        exchange.answer = &kSignature;
    else
        exchange.answer = target.find(TEXT("/keys/")) != target.npos ? &kKey : &kSignIn;
    exchange.read = 0;
    return Handle();
}

BOOL WINAPI WinHttpSendRequest(HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD, DWORD, DWORD_PTR)
{
    ++answered;
    return TRUE;
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET, LPVOID)
{
    return TRUE;
}

BOOL WINAPI WinHttpQueryDataAvailable(HINTERNET, LPDWORD available)
{
    *available = static_cast<DWORD>(exchange.answer->size() - exchange.read);
    return TRUE;
}

BOOL WINAPI WinHttpReadData(HINTERNET, LPVOID buffer, DWORD size, LPDWORD read)
{
    *read = static_cast<DWORD>(exchange.answer->copy(static_cast<char*>(buffer), size, exchange.read));
    exchange.read += *read;
    return TRUE;
}

BOOL WINAPI WinHttpQueryHeaders(HINTERNET, DWORD infoLevel, LPCWSTR, LPVOID buffer, LPDWORD length, LPDWORD)
{
    const DWORD status = 200;
    const bool number = (infoLevel & WINHTTP_QUERY_FLAG_NUMBER) != 0;
    const void* bytes = number ? static_cast<const void*>(&status) : kHead;
    const DWORD size = number ? sizeof(status) : sizeof(kHead);
    if (buffer == nullptr || *length < size) {
        *length = size;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    memcpy(buffer, bytes, size);
    *length = number ? size : size - static_cast<DWORD>(sizeof(WCHAR));
    return TRUE;
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET)
{
    return TRUE;
}
