// What the module itself does for one signature: the same code with a transport that answers from memory. Under
// callgrind, the instructions of N signatures less those of none are N times those of one.
#include <cstdlib>
#include <iostream>

#include "bench/allocation_count.h"
#include "bench/memory_transport.h"
#include "bench/module.h"
#include "provider/entry_points.h"
#include "tests/common/test_root.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

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
        // The first open has moved the secret. Settings that have just been written are read anew for each line, since
        // they may change again within one time stamp.
        Sleep(200);
        const int requestsBefore = AnsweredRequests();
        const long before = AllocationCount();
        for (int i = 0; i < signatures; ++i)
            key.Sign();
        const long taken = AllocationCount() - before;
        if (AnsweredRequests() - requestsBefore != signatures)
            return 1;
        std::cout << "{\"allocations\":" << (signatures ? taken / signatures : 0) << "}\n";
    }
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}
