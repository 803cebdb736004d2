// Where the module's log is.
#pragma once

#include <optional>
#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct LogPlace {
    DWORD level = 0;   // the gate of the file; 0 when nothing is logged
    std::string file;  // today's file, as other programs know it; set whether or not anything is logged
    bool folderExists = false;
};

// From the machine's settings. Throws a configuration failure when they cannot be read.
LogPlace FindLog();
// nullopt when they cannot be read.
std::optional<LogPlace> FindLogIfReadable();

// "log: FILE", or how to switch logging on.
std::string LogAdvice(const LogPlace& log);

}  // namespace kelvaroctl
