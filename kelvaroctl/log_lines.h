// The module's log lines during this command, which say why it failed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kelvaroctl/json.h"
#include "kelvaroctl/log_place.h"
#include "platform/platform.h"

namespace kelvaroctl {

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
