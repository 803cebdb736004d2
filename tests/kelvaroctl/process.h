// Runs a program to its end.
#pragma once

#include <string>
#include <vector>

struct Ran {
    int exit = -1;  // on Linux -1 when it ended by a signal
    std::string out;
    std::string err;
};

// The program gets this process's environment, and `input` as its standard input. Arguments are UTF-8. Lines of its
// output end in a line feed alone.
Ran RunProgram(const std::string& program, const std::vector<std::string>& arguments, const std::string& input);
