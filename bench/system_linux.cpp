#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "bench/system.h"

extern char** environ;

namespace bench {

void RunSelf(const std::vector<std::string>& arguments)
{
    std::vector<char*> all = {const_cast<char*>("bench")};
    for (const std::string& argument : arguments)
        all.push_back(const_cast<char*>(argument.c_str()));
    all.push_back(nullptr);
    pid_t child = 0;
    int status = -1;
    if (posix_spawn(&child, "/proc/self/exe", nullptr, nullptr, all.data(), environ) != 0)
        throw std::runtime_error("cannot start a process");
    waitpid(child, &status, 0);
    if (status != 0)
        throw std::runtime_error(arguments.at(0) + " failed");
}

static double CpuSeconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

std::optional<ProcessorTime> SpentByBothEnds()
{
    // The simulator is this program's only child.
    pid_t child = 0;
    std::ifstream("/proc/self/task/" + std::to_string(getpid()) + "/children") >> child;
    clockid_t clock = 0;
    if (clock_getcpuclockid(child, &clock) != 0)
        throw std::runtime_error("the simulator has no clock");
    return ProcessorTime{CpuSeconds(CLOCK_PROCESS_CPUTIME_ID), CpuSeconds(clock)};
}

}  // namespace bench
