// The terminal, if there is one.
#pragma once

#include <optional>
#include <string>

#include "platform/platform.h"

namespace kelvaroctl {

bool ErrorOutputIsTerminal();

// Wiped by the destructor.
class SecretText {
  public:
    explicit SecretText(std::string text) : text_(std::move(text)) {}
    SecretText(SecretText&& other) : text_(std::move(other.text_)) {}
    ~SecretText()
    {
        // A short text that was moved away is still in the bytes behind the end.
        text_.resize(text_.capacity());
        SecureZeroMemory(text_.data(), text_.size());
    }
    SecretText& operator=(SecretText&&) = delete;

    const std::string& text() const { return text_; }
    std::string* edit() { return &text_; }

  private:
    std::string text_;
};

// Reads one line of standard input, without its line end and a byte order mark in front. Leaves no copy of it in freed
// memory. On a terminal, writes `prompt` to standard error and turns off echo. Throws a usage failure at end of file
// and for a line of more than 4,096 bytes.
SecretText ReadSecretLine(const std::string& prompt);

// Asks on standard error and reads one line of standard input. nullopt if either is not a terminal, or at end of file.
std::optional<std::string> AskOnTerminal(const std::string& question);

// A progress line on standard error, if that is a terminal. The destructor clears it.
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
