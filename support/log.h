// The diagnostic log: a daily text file and the event log. Each line has a level.
//
// The level is tested before anything is formatted: a line that isn't logged costs one comparison. The calls return
// nothing and preserve the thread's last error. They may run on any thread, and use at most 16 KB of its stack.
#pragma once

#include "platform/platform.h"

// A line is logged if its level is not above the gate.
enum LogLevels : LONG {
    LOG_ERROR_LEVEL = 1,
    LOG_WARNING_LEVEL = 2,
    LOG_ENTRY_LEVEL = 4,
    LOG_RELEASE_LEVEL = 6,
    LOG_STEP_LEVEL = 8,
    LOG_DETAIL_LEVEL = 10,
};

extern LONG LoggingLevel;           // the setting for the file; not read after attach
extern LONG EVLoggingLevel;         // gate of the event log
extern LONG LogLevel;               // gate of the file: the greater of the two settings
extern WCHAR EventSourceName[256];  // the event source, never empty after attach

// Reads the log's settings from the machine hive, sets the gates, and writes the date line. Called once, at attach.
void LogAttach();

// Stops logging to the event log, which can't be called while the process ends.
void LogProcessEnds();

// Internal: these don't test the gates. Call the inline functions below.
void LogWriteLine(const WCHAR* text, LONG level);
void LogWriteError(const WCHAR* message, DWORD code, LONG level);
void LogWriteString(const WCHAR* message, const WCHAR* text, LONG level);
void LogWriteStrings(const WCHAR* message, const WCHAR* first, const WCHAR* second, LONG level);
void LogWriteNumber(const WCHAR* message, const WCHAR* text, LONG number, LONG level);
void LogWriteData(const WCHAR* message, const WCHAR* text);
void LogWriteHostText(const WCHAR* message, const WCHAR* name, const BYTE* text, DWORD cbText, LONG level);
void LogWriteAscii(const WCHAR* message, const char* text);

inline bool LogGateOpen(LONG level)
{
    return level <= LogLevel;
}

// `text` unchanged.
inline void LogLine(const WCHAR* text, LONG level)
{
    if (LogGateOpen(level))
        LogWriteLine(text, level);
}

// "message Error 0xcode". code: a SECURITY_STATUS, a platform error or an HTTP status.
inline void LogError(const WCHAR* message, DWORD code, LONG level)
{
    if (LogGateOpen(level))
        LogWriteError(message, code, level);
}
inline void LogError(const WCHAR* message, SECURITY_STATUS code, LONG level)
{
    LogError(message, static_cast<DWORD>(code), level);
}

// "message text"; a NULL text prints as "(NULL)", as in all calls below.
inline void LogString(const WCHAR* message, const WCHAR* text, LONG level)
{
    if (LogGateOpen(level))
        LogWriteString(message, text, level);
}

// "message first second"
inline void LogStrings(const WCHAR* message, const WCHAR* first, const WCHAR* second, LONG level)
{
    if (LogGateOpen(level))
        LogWriteStrings(message, first, second, level);
}

// "message text number"
inline void LogNumber(const WCHAR* message, const WCHAR* text, LONG number, LONG level)
{
    if (LogGateOpen(level))
        LogWriteNumber(message, text, number, level);
}

// "message text (NULL)", always, at level 10.
inline void LogData(const WCHAR* message, const WCHAR* text)
{
    if (LogGateOpen(LOG_DETAIL_LEVEL))
        LogWriteData(message, text);
}

// "message name text", where `text` comes from a host: cbText bytes at any alignment, cut at their terminator if they
// have one. NULL prints as "(NULL)".
inline void LogHostText(const WCHAR* message, const WCHAR* name, const BYTE* text, DWORD cbText, LONG level)
{
    if (LogGateOpen(level))
        LogWriteHostText(message, name, text, cbText, level);
}

// "message text" for the bytes of a response, at level 1.
inline void LogAscii(const WCHAR* message, const char* text)
{
    if (LogGateOpen(LOG_ERROR_LEVEL))
        LogWriteAscii(message, text);
}
