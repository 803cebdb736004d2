// What docs/log.md says about the module's log lines. The document is the table: the build compiles it in.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace kelvaroctl {

// The rows of the document, in Markdown.
extern const char kLogDocument[];

struct LogExplanation {
    std::string cause;
    std::string remedy;
};

// Of a line without its stamp, "KVCCryptoOp Failed Error 0x193". nullopt if the document doesn't have it with this
// level.
std::optional<LogExplanation> ExplainLogText(std::string_view text, DWORD level);

// Of the number behind "Error".
std::optional<LogExplanation> ExplainLogNumber(DWORD number);
// The hexadecimal number that a line ends with.
std::optional<DWORD> NumberOfLogText(std::string_view text);

}  // namespace kelvaroctl
