#include <cstdlib>
#include <stdexcept>

#include "tests/common/simulator.h"

Simulator::Simulator()
{
    const char* port = std::getenv("VAULTSIM_CONTROL");
    if (!port)
        throw std::runtime_error("VAULTSIM_CONTROL must name the control port of a running simulator");
    controlPort_ = std::atoi(port);
    drive_ = "Z:";
}

Simulator::~Simulator() = default;
