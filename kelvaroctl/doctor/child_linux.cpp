#include "kelvaroctl/doctor/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

static char kSelf[] = "/proc/self/exe";

// Only async-signal-safe calls: other threads may hold locks.
[[noreturn]] static void Become(char* const* arguments, int output)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    execv(kSelf, arguments);
    _exit(127);
}

// False at the limit.
static bool ReadAll(int input, DWORD limitMs, std::string* out)
{
    const ULONGLONG end = GetTickCount64() + limitMs;
    char bytes[4096];
    for (;;) {
        const ULONGLONG now = GetTickCount64();
        pollfd entry = {input, POLLIN, 0};
        if (now >= end || poll(&entry, 1, static_cast<int>(end - now)) == 0)
            return false;
        const ssize_t count = read(input, bytes, sizeof(bytes));
        if (count <= 0)
            return true;
        out->append(bytes, static_cast<size_t>(count));
    }
}

ChildResult RunChild(const std::vector<std::string>& arguments, DWORD limitMs)
{
    std::vector<char*> pointers = {kSelf};
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw InternalFailure("cannot create a pipe");
    const pid_t child = fork();
    if (child == 0)
        Become(pointers.data(), ends[1]);
    close(ends[1]);
    ChildResult result;
    result.ended = child > 0 && ReadAll(ends[0], limitMs, &result.out);
    close(ends[0]);
    if (child < 0)
        throw InternalFailure("cannot start a process");
    if (!result.ended)
        kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

}  // namespace kelvaroctl
