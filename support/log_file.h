// The log's text file, a new one each UTC day. It isn't kept open between lines.
#pragma once

#include "platform/platform.h"
#include "support/text.h"

// The longest text of a line in characters; the rest is cut.
constexpr size_t kLogTextLimit = 10000;
// The longest text that is composed on the stack.
constexpr size_t kLogBriefLimit = 500;

// Opens the day's log file for appending. The caller closes the handle. INVALID_HANDLE_VALUE on failure.
HANDLE LogOpenFile();

// Appends "Kelvaro: stamp text level" to the day's file in a single write, so that threads and processes don't mix
// their lines. Line breaks in the text become spaces: one event is one line. Silently drops the line if the file can't
// be opened, and cuts it to kLogBriefLimit characters if there is no memory.
void LogFileWriteLine(TextView text, LONG level);

// Appends the line of an attach: the local date and time.
void LogFileWriteDate();
