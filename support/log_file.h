// The log's daily text file, one a UTC day. Nothing stays open between lines.
#pragma once

#include "platform/platform.h"
#include "support/text.h"

// The longest text of a line, in characters; what is longer is cut.
constexpr size_t kLogTextLimit = 10000;
// The longest text that is handled on the stack.
constexpr size_t kLogBriefLimit = 500;

// The day's log file, opened for appending: an operating system handle that the caller closes, or INVALID_HANDLE_VALUE.
HANDLE LogOpenFile();

// "Kelvaro: stamp text level" in the day's file, with one write, so that lines of several threads and processes stay
// whole. Line breaks inside the text become blanks: one event is one line. The line is lost when the file can't be
// opened, and cut to kLogBriefLimit characters when there is no memory for more.
void LogFileWriteLine(TextView text, LONG level);

// The date line of an attach: the local date and time on its own.
void LogFileWriteDate();
