// A DLL that must not be loaded: it leaves a file if it is.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    (void)instance;
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH)
        CloseHandle(CreateFileW(L"C:\\hostile.txt", GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, 0, NULL));
    return TRUE;
}
