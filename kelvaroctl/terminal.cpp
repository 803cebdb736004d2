#include "kelvaroctl/terminal.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/text.h"

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

static bool IsTerminal(DWORD stream)
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(stream), &mode) != 0;
}

bool ErrorOutputIsTerminal()
{
    return IsTerminal(STD_ERROR_HANDLE);
}

namespace {
// Turns echo off while it lives; does nothing if standard input is not a terminal. One at a time.
class EchoOff : NonCopyable {
  public:
    EchoOff() : input_(GetStdHandle(STD_INPUT_HANDLE)), terminal_(GetConsoleMode(input_, &mode_) != 0)
    {
        if (!terminal_)
            return;
        RestoreWhenInterrupted(input_, mode_);
        SetConsoleMode(input_, mode_ & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    ~EchoOff()
    {
        if (!terminal_)
            return;
        SetConsoleMode(input_, mode_);
        RestoreWhenInterrupted(nullptr, 0);
    }

    bool terminal() const { return terminal_; }

  private:
    DWORD mode_ = 0;
    HANDLE input_;
    bool terminal_;
};
}  // namespace

// Bypasses the library's buffer, which would keep a copy. Returns false at end of file.
static bool ReadLine(SecretString* line)
{
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    int byte = std::getchar();
    const bool any = byte != EOF;
    for (; byte != EOF && byte != '\n'; byte = std::getchar())
        line->push_back(static_cast<char>(byte));
    return any;
}

SecretString ReadSecretLine(const std::string& prompt)
{
    static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    const EchoOff echo;
    if (echo.terminal())
        std::cerr << prompt << std::flush;
    SecretString line;
    const bool read = ReadLine(&line);
    if (echo.terminal())
        std::cerr << std::endl;
    if (!read)
        throw UsageFailure("standard input is empty");
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    // PowerShell prefixes what it pipes with one, depending on its encoding.
    if (line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0)
        line.erase(0, kByteOrderMark.size());
    return line;
}

bool Confirmed(const std::string& question)
{
    if (!IsTerminal(STD_INPUT_HANDLE) || !ErrorOutputIsTerminal())
        throw UsageFailure("this asks for confirmation, and there is no terminal: add --yes");
    std::cerr << question << " Type yes: " << std::flush;
    std::string line;
    std::getline(std::cin, line);
    return EqualIgnoringCase(std::string_view(line).substr(0, line.find('\r')), "yes");
}

ProgressLine::ProgressLine() : terminal_(ErrorOutputIsTerminal()) {}

ProgressLine::~ProgressLine()
{
    if (shown_)
        std::cerr << '\r' << std::string(shown_, ' ') << '\r' << std::flush;
}

void ProgressLine::Show(const std::string& text)
{
    if (!terminal_)
        return;
    // Spaces overwrite the rest of a longer text.
    std::cerr << '\r' << text << std::string(shown_ > text.size() ? shown_ - text.size() : 0, ' ') << std::flush;
    shown_ = std::max(shown_, text.size());
}

}  // namespace kelvaroctl
