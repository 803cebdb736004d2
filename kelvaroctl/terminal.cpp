#include "kelvaroctl/terminal.h"

#include <iostream>

#include "kelvaroctl/failure.h"
#include "platform/platform.h"

namespace kelvaroctl {

bool ErrorOutputIsTerminal()
{
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

namespace {
// No echo while one of these lives; does nothing when standard input is no terminal.
class EchoOff {
  public:
    EchoOff() : input_(GetStdHandle(STD_INPUT_HANDLE)), terminal_(GetConsoleMode(input_, &mode_) != 0)
    {
        if (terminal_)
            SetConsoleMode(input_, mode_ & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    ~EchoOff()
    {
        if (terminal_)
            SetConsoleMode(input_, mode_);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

    bool terminal() const { return terminal_; }

  private:
    DWORD mode_ = 0;
    HANDLE input_;
    bool terminal_;
};
}  // namespace

std::string ReadSecretLine(const std::string& prompt)
{
    const EchoOff echo;
    if (echo.terminal())
        std::cerr << prompt << std::flush;
    std::string line;
    const bool read = static_cast<bool>(std::getline(std::cin, line));
    if (echo.terminal())
        std::cerr << std::endl;
    if (!read)
        throw UsageFailure("nothing to read on standard input");
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
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
    std::cerr << '\r' << text << std::flush;
    shown_ = text.size();
}

}  // namespace kelvaroctl
