// Unusual but legitimate behaviour of hosts. Prints a JSON array with one object per row: what was done, what must
// hold, and what was wrong. Each row runs in a separate process.
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include "stress/gate.h"
#include "stress/operations.h"

using namespace stress;
using nlohmann::json;

namespace {

// Longer than any row takes on a busy machine.
constexpr int kStuckSeconds = 120;
constexpr int kStuckChildSeconds = 20;

void RequireSignature(Stage& stage)
{
    const SECURITY_STATUS status = stage.host.Sign(stage.provider, stage.key, false);
    Require(status == 0, "a signature fails with " + StatusName(status));
}

// Opens another provider and key, and signs.
void OpenAndSign(Stage& stage)
{
    stage.SignIn(1);
    RequireSignature(stage);
}

// Waits for a child, which must exit with 0.
void RequireGoodEnd(pid_t child, int seconds)
{
    int status = 0;
    for (int waited = 0; waitpid(child, &status, WNOHANG) == 0; ++waited) {
        if (waited == seconds * 10) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            throw std::runtime_error("the child is stuck");
        }
        usleep(100000);
    }
    Require(status == 0, "the child's exit status is " + std::to_string(status));
}

[[noreturn]] void EndChild(const std::function<void()>& work)
{
    try {
        work();
    } catch (const std::exception& error) {
        std::cerr << "child: " << error.what() << "\n";
        _exit(1);
    }
    _exit(0);
}

// Every connection is reset, so the module writes to a broken one.
void BrokenConnections(Stage& stage)
{
    OpenAndSign(stage);
    const std::string connections = std::getenv("KELVARO_CONNECT_TO");
    std::signal(SIGPIPE, SIG_DFL);
    for (const GateFault fault : {GateFault::ResetAtConnect, GateFault::ResetInHandshake}) {
        const Gate gate(fault);
        setenv("KELVARO_CONNECT_TO",
               ("contoso-keys.vault.azure.net:443:127.0.0.1:" + std::to_string(gate.port())).c_str(), 1);
        const SECURITY_STATUS status = stage.host.Sign(stage.provider, stage.key, false);
        Require(status == NTE_FAIL, "the status is " + StatusName(status));
    }
    setenv("KELVARO_CONNECT_TO", connections.c_str(), 1);
    struct sigaction action = {};
    sigset_t blocked;
    Require(sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_DFL,
            "the signal handler has changed");
    Require(pthread_sigmask(SIG_SETMASK, nullptr, &blocked) == 0 && !sigismember(&blocked, SIGPIPE),
            "the signal mask has changed");
    RequireSignature(stage);
}

void ChildAndParentSign(Stage& stage)
{
    OpenAndSign(stage);
    const auto signatures = [&] {
        for (int i = 0; i < 20; ++i)
            RequireSignature(stage);
    };
    const pid_t child = fork();
    if (child == 0)
        EndChild(signatures);
    signatures();
    RequireGoodEnd(child, kStuckChildSeconds);
    signatures();
}

// Forks while another thread waits for the answer to its sign-in. The child signs with the same key.
void ForkInSignIn(Stage& stage)
{
    OpenAndSign(stage);
    stage.clock.Advance(7200);
    stage.host.sim.Fault({{"path", "/oauth2/token"}, {"action", "delay"}, {"delayMs", 2000}});
    std::thread signing([&] { stage.host.Sign(stage.provider, stage.key, false); });
    usleep(500000);
    const pid_t child = fork();
    if (child == 0)
        EndChild([&] { RequireSignature(stage); });
    signing.join();
    RequireSignature(stage);
    RequireGoodEnd(child, kStuckChildSeconds);
}

void WithoutStandardStreams(Stage& stage)
{
    for (const int fd : {0, 1, 2})
        close(fd);
    stage.host.root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    OpenAndSign(stage);
    // libcurl may be using these numbers now.
    for (const int fd : {1, 2}) {
        const ssize_t ignored = write(fd, "of the host", 11);
        (void)ignored;
    }
    RequireSignature(stage);
    Require(stage.host.root.WholeLog().find("of the host") == std::string::npos, "the host's output is in the log");
}

// Closes everything but the standard streams, and opens the host's files in their place. The module must not write to
// them.
void ClosedDescriptors(Stage& stage)
{
    stage.host.root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    OpenAndSign(stage);
    Require(close_range(3, 199, 0) == 0, "nothing is closed");
    const std::string file = stage.host.root.directory() + "/host";
    std::vector<int> files;
    for (int i = 0; i < 30; ++i)
        files.push_back(open(file.c_str(), O_RDWR | O_CREAT | O_APPEND, 0600));
    stage.host.Sign(stage.provider, stage.key, false);
    RequireSignature(stage);
    OpenAndSign(stage);
    Require(std::filesystem::file_size(file) == 0, "the module has written to the host's file");
    for (const int fd : files)
        Require(fcntl(fd, F_GETFD) != -1, "the module has closed a descriptor of the host");
}

void NoDescriptorFree(Stage& stage)
{
    OpenAndSign(stage);
    const rlimit old = {256, 256};
    setrlimit(RLIMIT_NOFILE, &old);
    std::vector<int> files;
    for (int fd = 0; (fd = open("/dev/null", O_RDONLY)) >= 0;)
        files.push_back(fd);
    const SECURITY_STATUS status = stage.host.Sign(stage.provider, stage.key, false);
    for (const int fd : files)
        close(fd);
    Require(status == NTE_FAIL, "the status without a descriptor is " + StatusName(status));
    RequireSignature(stage);
}

struct SmallRun {
    Stage& stage;
    const Operation& operation;
    SECURITY_STATUS status;
};

void SmallStacks(Stage&)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    Require(pthread_attr_setstacksize(&attributes, 128 * 1024) == 0, "no such stack");
    for (const Operation& operation : Operations()) {
        Stage stage;
        operation.prepare(stage);
        SmallRun run = {stage, operation, NTE_FAIL};
        pthread_t thread;
        Require(pthread_create(
                    &thread, &attributes,
                    [](void* context) -> void* {
                        auto* const small = static_cast<SmallRun*>(context);
                        small->status = small->operation.run(small->stage);
                        return nullptr;
                    },
                    &run) == 0,
                "no thread");
        pthread_join(thread, nullptr);
        Require(run.status == 0, std::string(operation.name) + ": " + StatusName(run.status));
    }
}

std::function<void(Stage&)> InLocale(const char* name)
{
    return [name](Stage& stage) {
        Require(std::setlocale(LC_ALL, name), "the locale is missing");
        OpenAndSign(stage);
        for (const Operation& operation : Operations()) {
            Stage other;
            operation.prepare(other);
            const SECURITY_STATUS status = operation.run(other);
            Require(status == 0, std::string(operation.name) + ": " + StatusName(status));
        }
    };
}

// The token stays valid, so there is no other sign-in.
void TimeZones(Stage& stage)
{
    OpenAndSign(stage);
    const int signIns = stage.host.sim.SignIns();
    for (const char* zone : {"XXX-14", "YYY+12", "Europe/Berlin", ":nonsense"}) {
        setenv("TZ", zone, 1);
        tzset();
        RequireSignature(stage);
    }
    Require(stage.host.sim.SignIns() == signIns, "the token expires when the time zone changes");
    OpenAndSign(stage);
}

void OpenMask(Stage& stage)
{
    umask(0);
    stage.host.root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    OpenAndSign(stage);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(stage.host.root.directory())) {
        struct stat file = {};
        stat(entry.path().c_str(), &file);
        Require(!S_ISREG(file.st_mode) || (file.st_mode & S_IWOTH) == 0,
                entry.path().string() + " is writable for everyone");
    }
}

void ShutMask(Stage& stage)
{
    umask(0777);
    OpenAndSign(stage);
    umask(022);
    OpenAndSign(stage);
}

void DeletedFolder(Stage& stage)
{
    char folder[] = "/tmp/kelvaro-gone-XXXXXX";
    Require(mkdtemp(folder) && chdir(folder) == 0 && rmdir(folder) == 0, "no folder");
    OpenAndSign(stage);
}

std::atomic<int> alarms;

std::function<void(Stage&)> Signals(int flags)
{
    return [flags](Stage& stage) {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++alarms; };
        action.sa_flags = flags;
        sigaction(SIGALRM, &action, nullptr);
        const itimerval storm = {{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &storm, nullptr);
        for (int i = 0; i < 10; ++i) {
            stage.host.root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", Simulator::kClientSecret);
            OpenAndSign(stage);
            Require(stage.host.table->FreeKey(stage.provider, stage.key) == 0, "not released");
            Require(stage.host.table->FreeProvider(stage.provider) == 0, "not released");
        }
        setitimer(ITIMER_REAL, nullptr, nullptr);
        stage.key = 0;
        stage.provider = 0;
        Require(alarms > 20, "too few signals");
    };
}

struct Row {
    const char* done;
    const char* must;
    std::function<void(Stage&)> run;
};

const std::vector<Row>& Rows()
{
    static constexpr char kAll[] = "every operation succeeds";
    static const std::vector<Row> kRows = {
        {"SIGPIPE at its default, connections reset",
         "NTE_FAIL, signal's handler and mask unchanged, the next call signs", BrokenConnections},
        {"fork; child and parent sign", "both sign", ChildAndParentSign},
        {"fork while another thread signs in; the child signs", "the child signs, and so does the parent",
         ForkInSignIn},
        {"0, 1 and 2 closed before the module is used",
         "it signs, also after the host has written to 1 and 2, and not into the log", WithoutStandardStreams},
        {"descriptors above 2 closed between two calls and reused by the host",
         "it signs, and doesn't touch the host's files", ClosedDescriptors},
        {"no free descriptor", "NTE_FAIL, and the next call signs", NoDescriptorFree},
        {"a stack of 128 KiB", kAll, SmallStacks},
        {"locale C", kAll, InLocale("C")},
        {"locale C.UTF-8", kAll, InLocale("C.UTF-8")},
        {"locale tr_TR.UTF-8", kAll, InLocale("tr_TR.UTF-8")},
        {"locale de_DE.ISO-8859-1", kAll, InLocale("de_DE.ISO-8859-1")},
        {"changed time zones", "it signs, and the token stays valid", TimeZones},
        {"umask 0", "it signs, and no file is writable for everyone", OpenMask},
        {"umask 0777", "it signs, and signs again with umask 022", ShutMask},
        {"deleted working directory", "it signs", DeletedFolder},
        {"SIGALRM every millisecond, with SA_RESTART", "it stores secrets, opens keys and signs", Signals(SA_RESTART)},
        {"SIGALRM every millisecond, without SA_RESTART", "the same", Signals(0)},
    };
    return kRows;
}

// Returns what is wrong, or an empty text.
std::string RunRow(const Row& row)
{
    int ends[2];
    Require(pipe2(ends, O_CLOEXEC) == 0, "no pipe");
    // A number that no row closes.
    const int report = fcntl(ends[1], F_DUPFD_CLOEXEC, 200);
    close(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        std::string wrong;
        try {
            row.run(*new Stage);
        } catch (const std::exception& error) {
            wrong = error.what();
        }
        const bool written = write(report, wrong.data(), wrong.size()) == static_cast<ssize_t>(wrong.size());
        _exit(wrong.empty() || !written ? 0 : 1);
    }
    close(report);
    std::string wrong;
    try {
        RequireGoodEnd(child, kStuckSeconds);
    } catch (const std::exception& error) {
        wrong = error.what();
    }
    char text[1000];
    const ssize_t size = read(ends[0], text, sizeof(text));
    close(ends[0]);
    return size > 0 ? std::string(text, static_cast<size_t>(size)) : wrong;
}

}  // namespace

// Argument: a part of the names of the rows to run.
int main(int argc, char** argv)
{
    Simulator::Get();
    json rows = json::array();
    for (const Row& row : Rows()) {
        if (std::string(row.done).find(argc > 1 ? argv[1] : "") == std::string::npos)
            continue;
        const std::string wrong = RunRow(row);
        rows.push_back({{"done", row.done}, {"must", row.must}, {"wrong", wrong}, {"ok", wrong.empty()}});
    }
    std::cout << rows.dump(1) << "\n";
    return 0;
}
