#include "provider/buffer_list.h"
#include "provider/entry_points.h"
#include "provider/property_list.h"
#include "provider/user_name.h"
#include "support/log.h"

HANDLE KelvaroPropertySemaphore = nullptr;

static constexpr DWORD kImageNameChars = 1024;

static void FetchImageName(WCHAR (&name)[kImageNameChars])
{
    if (!K32GetProcessImageFileNameW(GetCurrentProcess(), name, kImageNameChars))
        name[0] = 0;
}

// The names are looked up for a line that will be written alone: the look-up of the user's is a call to another
// process, made under the loader's lock.
static void LogLifeLine(const WCHAR* message)
{
    if (!LogGateOpen(LOG_ENTRY_LEVEL))
        return;
    WCHAR imageName[kImageNameChars];
    WCHAR userName[kUserNameChars];
    FetchImageName(imageName);
    FetchUserName(userName);
    LogStrings(message, imageName, userName, LOG_ENTRY_LEVEL);
}

static void Attach()
{
    LogAttach();
    LogLifeLine(TEXT("DllMain DLL_PROCESS_ATTACH"));
    KelvaroBufferListInit();
    // A module without its semaphore still works: the waits fail and their users go on.
    KelvaroPropertySemaphore = CreateSemaphoreW(nullptr, 1, 1, nullptr);
}

static void Detach(bool processEnds)
{
    if (processEnds)
        LogProcessEnds();
    LogLifeLine(TEXT("DllMain DLL_PROCESS_DETACH"));
    if (KelvaroPropertySemaphore)
        CloseHandle(KelvaroPropertySemaphore);
    KelvaroPropertySemaphore = nullptr;
}

// reserved: at a detach, set when the process ends and NULL when the module is unloaded.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
        Attach();
    else if (reason == DLL_PROCESS_DETACH)
        Detach(reserved != nullptr);
    return TRUE;
}
