#include <csignal>

#include "kelvaroctl/app.h"
#include "kelvaroctl/text.h"

// The console's code pages, which outlive the program.
static const UINT outputBefore = GetConsoleOutputCP();
static const UINT inputBefore = GetConsoleCP();

static void RestoreConsole()
{
    SetConsoleOutputCP(outputBefore);
    SetConsoleCP(inputBefore);
}

static BOOL WINAPI RestoreWhenInterrupted(DWORD)
{
    RestoreConsole();
    return FALSE;  // continue as if there were no handler
}

// Arguments are UTF-16, so that key names in any script survive; output is UTF-8.
int wmain(int argc, wchar_t** argv)
{
    // DLLs loaded by bare name come from System32 only.
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    // The C library installs its handler at the first call of signal. The handler installed last runs first.
    std::signal(SIGINT, SIG_DFL);
    SetConsoleCtrlHandler(RestoreWhenInterrupted, TRUE);
    SetConsoleOutputCP(CP_UTF8);
    SetConsoleCP(CP_UTF8);
    std::vector<std::string> arguments;
    for (int index = 1; index < argc; ++index)
        arguments.push_back(kelvaroctl::ToNarrow(argv[index]));
    const int exitCode = kelvaroctl::RunTool(arguments);
    RestoreConsole();
    return exitCode;
}
