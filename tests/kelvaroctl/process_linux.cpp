#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/kelvaroctl/terminal_linux.h"

// argv of a program: pointers into the texts.
static std::vector<char*> Pointers(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<char*> pointers = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

static int ExitCode(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

static bool Echoes(int terminal)
{
    termios mode;
    if (tcgetattr(terminal, &mode) != 0)
        throw std::runtime_error("no terminal");
    return (mode.c_lflag & ECHO) != 0;
}

int RunOn(const int (&streams)[3], const std::string& program, const std::vector<std::string>& arguments)
{
    const std::vector<char*> argv = Pointers(program, arguments);
    const pid_t pid = fork();
    if (pid == 0) {
        for (int stream = 0; stream < 3; ++stream)
            dup2(streams[stream], stream);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    return ExitCode(pid);
}

// Reads until `end` arrives or, without one, until the last writer has closed its side.
static void Read(int descriptor, const std::string& end, std::string* text)
{
    char ch = 0;
    while ((end.empty() || text->find(end) == std::string::npos) && read(descriptor, &ch, 1) == 1)
        *text += ch;
}

Ran RunOnTerminal(const std::string& program, const std::vector<std::string>& arguments, const std::string& prompt,
                  const std::string& answer, bool* echoed, bool* echoAfter)
{
    const std::vector<char*> argv = Pointers(program, arguments);
    Ran ran;
    int out[2];
    int terminal = -1;
    const pid_t pid = pipe2(out, O_CLOEXEC) == 0 ? forkpty(&terminal, nullptr, nullptr, nullptr) : -1;
    if (pid == 0) {
        dup2(out[1], STDOUT_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    if (pid < 0)
        throw std::runtime_error("no terminal available");
    Read(terminal, prompt, &ran.err);
    *echoed = Echoes(terminal);
    if (write(terminal, answer.data(), answer.size()) != static_cast<ssize_t>(answer.size()))
        throw std::runtime_error("the terminal takes no input");
    ran.exit = ExitCode(pid);
    *echoAfter = Echoes(terminal);
    Read(terminal, "", &ran.err);
    Read(out[0], "", &ran.out);
    close(terminal);
    close(out[0]);
    return ran;
}
