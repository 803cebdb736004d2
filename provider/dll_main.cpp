#include "keyvault/json.h"
#include "provider/buffer_list.h"
#include "provider/entry_points.h"
#include "provider/property_list.h"
#include "provider/user_name.h"
#include "support/log.h"

HANDLE KelvaroPropertySemaphore = nullptr;

namespace {

constexpr DWORD kImageNameChars = 1024;

// The process's image and user for a log line. Only called if the line is written: looking up the user calls another
// process, under the loader lock.
struct HostNames {
    HostNames()
    {
        if (!K32GetProcessImageFileNameW(GetCurrentProcess(), image, kImageNameChars))
            image[0] = 0;
        FetchUserName(user);
    }

    WCHAR image[kImageNameChars];
    WCHAR user[kUserNameChars];
};

void Attach()
{
    LogAttach();
    if (LogGateOpen(LOG_ENTRY_LEVEL)) {
        const HostNames names;
        LogStrings(TEXT("DllMain DLL_PROCESS_ATTACH"), names.image, names.user, LOG_ENTRY_LEVEL);
    }
    KelvaroBufferListInit();
    // The module also works without its semaphore: the waits fail, and their callers continue.
    KelvaroPropertySemaphore = CreateSemaphoreW(nullptr, 1, 1, nullptr);
}

void Detach(bool processEnds)
{
    if (processEnds)
        LogProcessEnds();
    if (LogGateOpen(LOG_ENTRY_LEVEL)) {
        const HostNames names;
        LogStrings(TEXT("DllMain DLL_PROCESS_DETACH"), names.image, names.user, LOG_ENTRY_LEVEL);
    }
    if (KelvaroPropertySemaphore)
        CloseHandle(KelvaroPropertySemaphore);
    KelvaroPropertySemaphore = nullptr;
    if (!processEnds)
        JsonDetach();
}

}  // namespace

// reserved: at a detach, set when the process ends and NULL when the module is unloaded.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
        Attach();
    else if (reason == DLL_PROCESS_DETACH)
        Detach(reserved != nullptr);
    return TRUE;
}
