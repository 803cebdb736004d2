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

static void Attach(const WCHAR* imageName, const WCHAR* userName)
{
    LogAttach();
    LogStrings(TEXT("DllMain DLL_PROCESS_ATTACH"), imageName, userName, LOG_ENTRY_LEVEL);
    KelvaroBufferListInit();
    // A module without its semaphore still works: the waits fail and their users go on.
    KelvaroPropertySemaphore = CreateSemaphoreW(nullptr, 1, 1, nullptr);
}

static void Detach(const WCHAR* imageName, const WCHAR* userName)
{
    LogStrings(TEXT("DllMain DLL_PROCESS_DETACH"), imageName, userName, LOG_ENTRY_LEVEL);
    if (KelvaroPropertySemaphore)
        CloseHandle(KelvaroPropertySemaphore);
    KelvaroPropertySemaphore = nullptr;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID /*reserved*/)
{
    WCHAR imageName[kImageNameChars];
    WCHAR userName[kUserNameChars];
    FetchImageName(imageName);
    FetchUserName(userName);
    if (reason == DLL_PROCESS_ATTACH)
        Attach(imageName, userName);
    else if (reason == DLL_PROCESS_DETACH)
        Detach(imageName, userName);
    return TRUE;
}
