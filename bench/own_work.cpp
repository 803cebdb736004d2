// The module's own work for one signature: the same code with a transport that answers from memory. Under callgrind,
// the instructions of N signatures minus those of none are N times those of one.
#include <cstdlib>
#include <iostream>

#include "bench/allocation_count.h"
#include "bench/memory_transport.h"
#include "bench/module.h"
#include "provider/entry_points.h"
#include "tests/common/test_root.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

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

void WriteSettings(TestRoot& root, DWORD level)
{
    root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", "memory");
    root.SetText(HKEY_LOCAL_MACHINE, "TenantId", "tenant");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientId", "client");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", "secret");
    root.SetNumber(HKEY_LOCAL_MACHINE, "AuthenticationType", 2);
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", level);
}

}  // namespace

ExchangeStep FailingStep()
{
    return ExchangeStep::None;
}

MemoryAnswer AnswerTo(LPCWSTR path)
{
    ++answered;
    const std::basic_string_view<WCHAR> target(path);
    const auto has = [&](const WCHAR* part) { return target.find(part) != target.npos; };
    return {200, kHead, has(TEXT("/sign?")) ? kSignature : has(TEXT("/keys/")) ? kKey : kSignIn};
}

// own_work SIGNATURES LEVEL: prints the heap allocations per signature.
int main(int count, char** arguments)
{
    const int signatures = count > 1 ? atoi(arguments[1]) : 100;
    TestRoot root;
    WriteSettings(root, count > 2 ? static_cast<DWORD>(atoi(arguments[2])) : 0);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    {
        bench::Module module(&GetKeyStorageInterface);
        bench::Module::Key key(module, TEXT("rsa"), true);
        key.Sign();
        // The first open has encrypted the secret. Settings written just now are read again for each log line, since
        // they may change again without a newer time stamp.
        Sleep(200);
        const int requestsBefore = answered;
        const long before = AllocationCount();
        for (int i = 0; i < signatures; ++i)
            key.Sign();
        const long taken = AllocationCount() - before;
        if (answered - requestsBefore != signatures)
            return 1;
        std::cout << "{\"allocations\":" << (signatures ? taken / signatures : 0) << "}\n";
    }
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}
