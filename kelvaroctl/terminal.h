// The terminal, if there is one.
#pragma once

#include <optional>
#include <string>

namespace kelvaroctl {

bool ErrorOutputIsTerminal();

// One line of standard input, without its end. On a terminal `prompt` is written to standard error and nothing is
// echoed. Throws a usage failure at the end of the input.
std::string ReadSecretLine(const std::string& prompt);

// Asks on standard error and reads one line of standard input. nullopt when either is no terminal, or at its end.
std::optional<std::string> AskOnTerminal(const std::string& question);

// A line on standard error that is written over and over; silent when that is no terminal. Cleared at its end.
class ProgressLine {
  public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void Show(const std::string& text);

  private:
    bool terminal_;
    size_t shown_ = 0;
};

}  // namespace kelvaroctl
