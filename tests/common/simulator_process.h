// How a test program comes by its simulator.
#pragma once

#include <string>

struct SimulatorProcess {
    int controlPort = 0;
    int pid = 0;            // 0 when the program did not start it
    std::string directory;  // where its files stand, with "ca.pem" among them
    std::string drive;      // where this process finds paths that the simulator names: "" or "Z:"
};

// Starts a simulator on Linux, or attaches to the one that VAULTSIM_CONTROL names; throws when neither can be had.
// The environment of this process leads to it afterwards (connections, trusted root).
SimulatorProcess StartSimulator();
void StopSimulator(const SimulatorProcess& process);
