// The log's daily text file, one a UTC day. Nothing stays open between lines.
#pragma once

#include "platform/platform.h"

// "Kelvaro: stamp text level" in the day's file, with one write, so that lines of several threads and processes stay
// whole. A file that cannot be opened loses the line without a word.
void LogFileWriteLine(const WCHAR* text, LONG level);

// The date line of an attach: the local date and time on its own.
void LogFileWriteDate();
