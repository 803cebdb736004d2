#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "tests/common/simulator.h"

// The value of a field of the line "ready control=PORT tls=PORT http=PORT arc=PORT dir=DIRECTORY".
static std::string Field(const std::string& readyLine, const std::string& name)
{
    const size_t at = readyLine.find(" " + name + "=");
    if (readyLine.rfind("ready", 0) != 0 || at == std::string::npos)
        throw std::runtime_error("the simulator did not start: " + readyLine);
    const size_t start = at + name.size() + 2;
    return readyLine.substr(start, readyLine.find(' ', start) - start);
}

// In the child: its standard output is the pipe, and it ends with this program.
[[noreturn]] static void RunSimulator(int output, const std::string& directory)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    dup2(output, STDOUT_FILENO);
    const std::string vault = std::string(Simulator::kVault) + ":premium";
    const std::string standard = std::string(Simulator::kStandardVault) + ":standard";
    execl(KELVARO_VAULTSIM_PATH, "vaultsim", "--dir", directory.c_str(), "--vault", vault.c_str(), "--vault",
          standard.c_str(), "--tenant", Simulator::kTenant, "--client-id", Simulator::kClientId, "--client-secret",
          Simulator::kClientSecret, "--oid", Simulator::kObjectId, "--arc", "--quiet", static_cast<char*>(nullptr));
    _exit(127);
}

static std::string ReadLine(int fd)
{
    std::string line;
    for (char ch = 0; read(fd, &ch, 1) == 1 && ch != '\n';)
        line += ch;
    return line;
}

Simulator::Simulator()
{
    // The simulator is on loopback, which no proxy reaches.
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
    // The read end stays open: the simulator may print further lines.
    const std::string line = ReadLine(ends[0]);
    const auto entry = [&line](const char* port, const char* name) {
        return std::string(":") + port + ":127.0.0.1:" + Field(line, name) + " ";
    };
    controlPort_ = std::stoi(Field(line, "control"));
    setenv("KELVARO_CONNECT_TO", (entry("443", "tls") + entry("80", "http") + entry("40342", "arc")).c_str(), 1);
    setenv("SSL_CERT_FILE", (directory_ + "/ca.pem").c_str(), 1);
}

Simulator::~Simulator()
{
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
    if (status != 0) {
        fprintf(stderr, "the simulator ended with the status %d\n", status);
        _exit(1);
    }
}
