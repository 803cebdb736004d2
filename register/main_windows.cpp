#include <cstdio>
#include <filesystem>

#include "register/command.h"
#include "register/security_windows.h"
#include "register/settings_windows.h"

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
    // A 32-bit program sees the 64-bit folder as Sysnative: its System32 is redirected to SysWOW64.
    WideText seen = system;
    BOOL redirected = FALSE;
    if (IsWow64Process(GetCurrentProcess(), &redirected) && redirected)
        seen = SystemFolder(GetSystemWindowsDirectoryW) + L"\\Sysnative";
    const WideText system32 = SystemFolder(GetSystemWow64DirectoryW);
    return {{"64-bit programs", seen, system, native}, {"32-bit programs", system32, system32, kMachineX86}};
}

// programs: those with the problem; empty for none. The problem's text surrounds them.
static int Complain(const std::string& before, const std::string& programs, const char* after, std::string* output)
{
    if (programs.empty())
        return kDone;
    *output += before + programs + after;
    return kNotInstalled;
}

static std::string StatusOfSettings()
{
    try {
        return DescribeSettings();
    } catch (const RefusedStep& refusal) {
        return std::string(refusal.what()) + "\n";
    }
}

// The commands for settings and the log folder; returns kUsage for others.
static int RunSettings(const std::string& command, std::string* output)
{
    static constexpr struct {
        const char* name;
        void (*step)();
    } kSteps[] = {{"prepare", PrepareSettings},
                  {"save-settings", SaveSettings},
                  {"restore-settings", RestoreSettings},
                  {"forget-settings", ForgetSettings}};
    try {
        if (command == "check-secret")
            return Complain("the client secret of ", ClearSecrets(), " is stored in clear text\n", output);
        if (command == "check-access")
            return Complain("no client secret is stored, because ordinary users can read the settings of ",
                            OpenSettings(),
                            ": run 'kelvaroctl config protect' first, or install without CLIENTSECRET\n", output);
        for (const auto& row : kSteps) {
            if (command != row.name)
                continue;
            row.step();
            if (command == "prepare")
                *output += DescribeSettings();
            return kDone;
        }
    } catch (const RefusedStep& refusal) {
        *output += std::string(refusal.what()) + "\n";
        return kRefused;
    }
    return kUsage;
}

static int RunRouter(const std::vector<std::string>& arguments, std::string* output)
{
    CngCalls calls = {};
    const HMODULE bcrypt = LoadLibraryExW(L"bcrypt.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const char* const missing = bcrypt ? FindCngCalls(bcrypt, &calls) : "bcrypt.dll";
    if (missing) {
        *output = std::string("this version of Windows lacks ") + missing + "\n";
        return kRefused;
    }
    return RunRegister(arguments, calls, Places(), output);
}

// The installer hides what a program prints and removes the program if it fails, so the reason also goes to the event
// log.
static void ReportFailure(const std::string& command, const std::string& output)
{
    const HANDLE source = RegisterEventSourceW(nullptr, L"Kelvaro");
    if (!source)
        return;
    const std::wstring text = std::filesystem::u8path("kelvaro-register " + command + ": " + output).wstring();
    const WCHAR* strings[1] = {text.c_str()};
    ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 0, nullptr, 1, 0, strings, nullptr);
    DeregisterEventSource(source);
}

static int Run(const std::vector<std::string>& arguments)
{
    std::string output;
    const std::string command = arguments.size() == 1 ? arguments[0] : "";
    if (command == "status") {
        std::fputs(StatusOfSettings().c_str(), stdout);
        std::fflush(stdout);
    }
    int exitCode = RunSettings(command, &output);
    if (exitCode == kUsage)
        exitCode = RunRouter(arguments, &output);
    if (command != "status" && (exitCode == kNotInstalled || exitCode == kRefused))
        ReportFailure(command, output);
    std::fputs(output.c_str(), exitCode == kDone || exitCode == kNotInstalled ? stdout : stderr);
    return exitCode;
}

}  // namespace kelvaro_register

int wmain(int argc, wchar_t** argv)
{
    // Load DLLs that are named without a path from System32 only.
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    const UINT consoleBefore = GetConsoleOutputCP();
    SetConsoleOutputCP(CP_UTF8);
    std::vector<std::string> arguments;
    for (int index = 1; index < argc; ++index)
        arguments.push_back(kelvaro_register::Utf8(argv[index]));
    const int exitCode = kelvaro_register::Run(arguments);
    std::fflush(nullptr);
    SetConsoleOutputCP(consoleBefore);
    return exitCode;
}
