#include "kelvaroctl/interruption.h"

#include <csignal>

#include "kelvaroctl/places.h"

namespace kelvaroctl {

// Read by the signal handler, which may not allocate.
static std::filesystem::path unfinished;
static bool terminal = false;
static HANDLE console = nullptr;
static DWORD consoleMode = 0;

extern "C" void CleanUpAndEnd(int signal)
{
    if (!unfinished.empty())
        RemoveFileNow(unfinished.c_str());
    if (console)
        SetConsoleMode(console, consoleMode);
    if (terminal)
        EndErrorLine();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void CleanUpWhenInterrupted(bool errorIsTerminal)
{
    terminal = errorIsTerminal;
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, CleanUpAndEnd);
}

void RemoveWhenInterrupted(const std::filesystem::path& file)
{
    unfinished = file;
}

void RestoreWhenInterrupted(HANDLE changed, DWORD mode)
{
    consoleMode = mode;
    console = changed;
}

}  // namespace kelvaroctl
