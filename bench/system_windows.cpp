#include <process.h>

#include <stdexcept>

#include "bench/system.h"
#include "platform/platform.h"

namespace bench {

void RunSelf(const std::vector<std::string>& arguments)
{
    char self[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    // No argument contains a space.
    std::vector<const char*> all = {self};
    for (const std::string& argument : arguments)
        all.push_back(argument.c_str());
    all.push_back(nullptr);
    if (_spawnv(_P_WAIT, self, all.data()) != 0)
        throw std::runtime_error(arguments.at(0) + " failed");
}

std::optional<ProcessorTime> SpentByBothEnds()
{
    return std::nullopt;
}

}  // namespace bench
