// What differs between the systems, apart from the HTTP library.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace bench {

// Runs this program again with other arguments, waits for it, and throws if it fails.
void RunSelf(const std::vector<std::string>& arguments);

// The processor time of this process and of the simulator so far, in seconds. Nothing where the simulator isn't a child
// of this process.
struct ProcessorTime {
    double own;
    double simulator;
};
std::optional<ProcessorTime> SpentByBothEnds();

}  // namespace bench
