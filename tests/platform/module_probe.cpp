// A module that uses the platform as the provider does: at attach and at detach too.
#include "platform/platform.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID)
{
    HKEY key = nullptr;
    if (RegOpenKeyW(HKEY_LOCAL_MACHINE, TEXT("Software"), &key) == ERROR_SUCCESS)
        RegCloseKey(key);
    HANDLE file = CreateFileW(TEXT("C:\\calls"), FILE_APPEND_DATA, 0, nullptr, OPEN_ALWAYS, 0, nullptr);
    const char digit = static_cast<char>('0' + reason);
    DWORD written = 0;
    WriteFile(file, &digit, 1, &written, nullptr);
    CloseHandle(file);
    return TRUE;
}
