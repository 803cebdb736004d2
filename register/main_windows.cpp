#include <cstdio>
#include <filesystem>

#include "register/command.h"

namespace kelvaro_register {

static WideText SystemFolder(UINT(WINAPI* folder)(LPWSTR, UINT))
{
    WCHAR path[MAX_PATH];
    const UINT length = folder(path, MAX_PATH);
    return length && length < MAX_PATH ? WideText(path, length) : WideText();
}

static WORD NativeMachine()
{
    SYSTEM_INFO info;
    GetNativeSystemInfo(&info);
    switch (info.wProcessorArchitecture) {
        case PROCESSOR_ARCHITECTURE_AMD64:
            return kMachineX64;
        case PROCESSOR_ARCHITECTURE_ARM64:
            return kMachineArm64;
        default:
            return kMachineX86;
    }
}

static ModulePlaces Places()
{
    const WideText system = SystemFolder(GetSystemDirectoryW);
    const WORD native = NativeMachine();
    if (native == kMachineX86)
        return {{"32-bit programs", system, system, kMachineX86}};
    // A 32-bit program sees the 64-bit folder under another name: its own System32 leads to SysWOW64.
    WideText seen = system;
    BOOL redirected = FALSE;
    if (IsWow64Process(GetCurrentProcess(), &redirected) && redirected)
        seen = SystemFolder(GetSystemWindowsDirectoryW) + L"\\Sysnative";
    const WideText system32 = SystemFolder(GetSystemWow64DirectoryW);
    return {{"64-bit programs", seen, system, native}, {"32-bit programs", system32, system32, kMachineX86}};
}

static int Run(const std::vector<std::string>& arguments)
{
    std::string output;
    int exitCode = kRefused;
    CngCalls calls = {};
    const HMODULE bcrypt = LoadLibraryExW(L"bcrypt.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const char* const missing = bcrypt ? FindCngCalls(bcrypt, &calls) : "bcrypt.dll";
    if (missing)
        output = std::string("this Windows lacks ") + missing + "\n";
    else
        exitCode = RunRegister(arguments, calls, Places(), &output);
    std::fputs(output.c_str(), exitCode == kDone || exitCode == kNotInstalled ? stdout : stderr);
    return exitCode;
}

}  // namespace kelvaro_register

int wmain(int argc, wchar_t** argv)
{
    // Such DLLs as the system loads by their bare names are looked for in System32 alone.
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    SetConsoleOutputCP(CP_UTF8);
    std::vector<std::string> arguments;
    for (int index = 1; index < argc; ++index)
        arguments.push_back(std::filesystem::path(argv[index]).u8string());
    return kelvaro_register::Run(arguments);
}
