#include "tests/kelvaroctl/terminal_linux.h"

#include <fcntl.h>
#include <pty.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <stdexcept>

namespace {
// A file without a name.
class Scratch {
  public:
    explicit Scratch(const std::string& content = "") : file_(tmpfile())
    {
        if (!file_ || fwrite(content.data(), 1, content.size(), file_) != content.size() || fflush(file_) != 0)
            throw std::runtime_error("no scratch file");
        rewind(file_);
    }
    ~Scratch() { fclose(file_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    int descriptor() const { return fileno(file_); }
    std::string Content()
    {
        rewind(file_);
        std::string content;
        char piece[4096];
        for (size_t size; (size = fread(piece, 1, sizeof(piece), file_)) > 0;)
            content.append(piece, size);
        return content;
    }

  private:
    FILE* file_;
};

// argv of a program: pointers into the texts.
std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

pid_t Start(const std::string& program, const std::vector<std::string>& arguments, int in, int out, int err)
{
    std::vector<std::string> texts = {program};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    const std::vector<char*> argv = Pointers(texts);
    const pid_t pid = fork();
    if (pid == 0) {
        // On a terminal of its own, whose interrupt key reaches it.
        if (isatty(in)) {
            setsid();
            ioctl(in, TIOCSCTTY, 0);
        }
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    return pid;
}

int ExitCode(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

bool Echoes(int terminal)
{
    termios mode;
    if (tcgetattr(terminal, &mode) != 0)
        throw std::runtime_error("no terminal");
    return (mode.c_lflag & ECHO) != 0;
}
}  // namespace

Ran RunProgram(const std::string& program, const std::vector<std::string>& arguments, const std::string& input)
{
    const Scratch in(input);
    Scratch out;
    Scratch err;
    Ran ran;
    ran.exit = ExitCode(Start(program, arguments, in.descriptor(), out.descriptor(), err.descriptor()));
    ran.out = out.Content();
    ran.err = err.Content();
    return ran;
}

Ran RunOnTerminal(const std::string& program, const std::vector<std::string>& arguments, const std::string& prompt,
                  const std::string& answer, bool* echoed, bool* echoAfter)
{
    int master = -1;
    int slave = -1;
    if (openpty(&master, &slave, nullptr, nullptr, nullptr) != 0)
        throw std::runtime_error("no terminal available");
    Scratch out;
    Ran ran;
    const pid_t pid = Start(program, arguments, slave, out.descriptor(), slave);
    char ch = 0;
    while (ran.err.find(prompt) == std::string::npos && read(master, &ch, 1) == 1)
        ran.err += ch;
    *echoed = Echoes(slave);
    if (write(master, answer.data(), answer.size()) != static_cast<ssize_t>(answer.size()))
        throw std::runtime_error("the terminal takes no input");
    ran.exit = ExitCode(pid);
    *echoAfter = Echoes(slave);
    close(slave);
    // After the last program has gone the terminal answers with an error.
    while (read(master, &ch, 1) == 1)
        ran.err += ch;
    close(master);
    ran.out = out.Content();
    return ran;
}
