#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "vaultsim/control.h"
#include "vaultsim/options.h"
#include "vaultsim/simulator.h"

namespace {

int Run(const vaultsim::Options& options)
{
    // Blocked before the first thread starts: all threads inherit the mask, so only sigwait gets the signals.
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    vaultsim::Simulator simulator(options);
    const vaultsim::Control control(simulator, options.controlPort, [] { kill(getpid(), SIGTERM); });
    simulator.WriteEnvironment(control.port());
    std::printf("%s\n", simulator.ReadyLine(control.port()).c_str());
    std::fflush(stdout);
    if (!options.quiet)
        std::fprintf(stderr, "vaultsim: to use it, run  . %s/env\n", simulator.options.directory.c_str());
    int signal = 0;
    sigwait(&stops, &signal);
    simulator.pauser.Stop();  // calls of the control interface may be waiting
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        std::string help;
        const vaultsim::Options options = vaultsim::ParseOptions({argv + 1, argv + argc}, help);
        if (!help.empty()) {
            std::fputs(help.c_str(), stdout);
            return 0;
        }
        return Run(options);
    } catch (const std::invalid_argument& error) {
        std::fprintf(stderr, "vaultsim: %s\nvaultsim --help lists the options.\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vaultsim: %s\n", error.what());
        return 1;
    }
}
