#include <cstdlib>
#include <stdexcept>

#include "tests/common/simulator_process.h"

SimulatorProcess StartSimulator()
{
    const char* port = std::getenv("VAULTSIM_CONTROL");
    if (!port)
        throw std::runtime_error("VAULTSIM_CONTROL must name the control port of a running simulator");
    SimulatorProcess process;
    process.controlPort = std::atoi(port);
    process.drive = "Z:";
    return process;
}

void StopSimulator(const SimulatorProcess&) {}
