// Runs a program, or the tool inside this process, to its end.
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

// The same for the tool as a function of this process, which is much quicker. One at a time, since it redirects the
// streams of the process.
Ran RunToolHere(const std::vector<std::string>& arguments, const std::string& input);

// Used by both: runs a program with these descriptors as its standard streams and returns its exit code. Each system
// has its own source, chosen by the build.
int RunOn(const int (&streams)[3], const std::string& program, const std::vector<std::string>& arguments);
