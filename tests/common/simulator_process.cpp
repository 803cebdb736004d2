#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/common/simulator.h"

// Takes `export NAME=value` lines of the simulator's file into this process, but for the root: each test has its own.
static void ReadEnvironment(const std::string& path)
{
    const std::string exported = "export ";
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const size_t equals = line.find('=');
        if (line.rfind(exported, 0) != 0 || equals == std::string::npos)
            continue;
        const std::string name = line.substr(exported.size(), equals - exported.size());
        std::string value = line.substr(equals + 1);
        if (value.size() >= 2 && (value.front() == '\'' || value.front() == '"') && value.back() == value.front())
            value = value.substr(1, value.size() - 2);
        if (name != "KELVARO_ROOT")
            setenv(name.c_str(), value.c_str(), 1);
    }
}

static int ControlPort(const std::string& readyLine)
{
    const std::string marker = " control=";
    const size_t at = readyLine.find(marker);
    if (readyLine.rfind("ready", 0) != 0 || at == std::string::npos)
        throw std::runtime_error("the simulator did not start: " + readyLine);
    return std::stoi(readyLine.substr(at + marker.size()));
}

// The child's end of the start: its standard output is the pipe, and it ends with this program whatever happens.
[[noreturn]] static void RunSimulator(int output, const std::string& directory)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(output, STDOUT_FILENO);
    const std::string vault = std::string(Simulator::kVault) + ":premium";
    const std::string standard = std::string(Simulator::kStandardVault) + ":standard";
    execl(KELVARO_VAULTSIM_PATH, "vaultsim", "--dir", directory.c_str(), "--vault", vault.c_str(), "--vault",
          standard.c_str(), "--tenant", Simulator::kTenant, "--client-id", Simulator::kClientId, "--client-secret",
          Simulator::kClientSecret, "--oid", Simulator::kObjectId, "--quiet", static_cast<char*>(nullptr));
    _exit(127);
}

static std::string ReadLine(int fd)
{
    std::string line;
    for (char ch = 0; read(fd, &ch, 1) == 1 && ch != '\n';)
        line += ch;
    return line;
}

void Simulator::Start()
{
    // The simulator is on loopback, whatever proxy this machine has.
    for (const char* proxy : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        unsetenv(proxy);
    char directory[] = "/tmp/kelvaro-sim-XXXXXX";
    int ends[2];
    if (!mkdtemp(directory) || pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no folder or no pipe for the simulator");
    directory_ = directory;
    pid_ = fork();
    if (pid_ == 0)
        RunSimulator(ends[1], directory_);
    close(ends[1]);
    controlPort_ = ControlPort(ReadLine(ends[0]));
    // The read end stays open: the simulator may print further lines.
    ReadEnvironment(directory_ + "/env");
}

void Simulator::Stop()
{
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}
