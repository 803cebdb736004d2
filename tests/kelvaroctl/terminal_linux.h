#pragma once

#include "tests/kelvaroctl/process.h"

// RunProgram on a new terminal: standard input and standard error are the terminal, standard output a file. Types
// `answer` once `prompt` has been shown. `err` is all that the terminal showed; *echoed: whether the terminal echoed at
// the prompt; *echoAfter: whether it echoes afterwards.
Ran RunOnTerminal(const std::string& program, const std::vector<std::string>& arguments, const std::string& prompt,
                  const std::string& answer, bool* echoed, bool* echoAfter);
