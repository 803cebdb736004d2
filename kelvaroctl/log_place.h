// Where the module's log is.
#pragma once

#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct LogPlace {
    DWORD level = 0;   // of the log file; 0: nothing is logged
    std::string file;  // today's file, as a native path; set even if nothing is logged
    bool folderExists = false;
    bool othersCanWrite = false;  // ordinary users can write to the folder, and so redirect the log
};

// From the machine's settings. Throws a configuration failure if they cannot be read.
LogPlace FindLog();

// "log: FILE" and what is wrong with its folder, or how to turn on logging.
std::string LogAdvice(const LogPlace& log);

}  // namespace kelvaroctl
