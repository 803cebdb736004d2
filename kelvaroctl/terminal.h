// The terminal, if there is one.
#pragma once

#include <filesystem>
#include <string>

#include "platform/owner.h"
#include "platform/secret_memory.h"

namespace kelvaroctl {

bool ErrorOutputIsTerminal();

// Reads one line of standard input, without its line end and a byte order mark in front. Leaves no copy of it in freed
// memory. On a terminal, writes `prompt` to standard error and turns off echo. Throws a usage failure at end of file.
SecretString ReadSecretLine(const std::string& prompt);

// Asks on standard error, reads one line of standard input, and returns whether it is "yes". Throws a usage failure if
// either isn't a terminal.
bool Confirmed(const std::string& question);

// A progress line on standard error, if that is a terminal. The destructor clears it.
class ProgressLine : NonCopyable {
  public:
    ProgressLine();
    ~ProgressLine();

    void Show(const std::string& text);

  private:
    bool terminal_;
    size_t shown_ = 0;
};

// Cleans up after Ctrl-C. The signal still ends the program.
//
// From now on, an interruption undoes what the functions below name, and ends the line on standard error if that is a
// terminal.
void CleanUpWhenInterrupted(bool errorIsTerminal);

// An unfinished output file, to be removed; an empty path for none.
void RemoveWhenInterrupted(const std::filesystem::path& file);

// A console and its mode; NULL for none.
void RestoreWhenInterrupted(HANDLE console, DWORD mode);

}  // namespace kelvaroctl
