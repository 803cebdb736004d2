// The module's log: where it is, and its lines during this command, which say why it failed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kelvaroctl/json.h"
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

struct LogLine {
    std::string text;  // without stamp and level
    DWORD level = 0;
    size_t times = 1;  // in a row
};

// Remembers where the log ends, so that what follows is this command's. That includes lines that other programs write
// meanwhile: a line doesn't say who wrote it.
class LogMark {
  public:
    LogMark();
    // Errors, warnings, and lines of other levels that have a number and that docs/log.md explains. Empty if the log
    // can't be read.
    std::vector<LogLine> Lines() const;

  private:
    std::string file_;  // empty: none
    uintmax_t size_ = 0;
};

// The lines as text with what they mean, each line indented. status: the failure's own, which needs no explanation.
std::string LogLinesText(const std::vector<LogLine>& lines, std::optional<SECURITY_STATUS> status);
Json LogLinesObject(const std::vector<LogLine>& lines);

// Whether the lines say more than that the call failed with `status`.
bool SayWhy(const std::vector<LogLine>& lines, std::optional<SECURITY_STATUS> status);

}  // namespace kelvaroctl
