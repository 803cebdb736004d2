#include "support/log.h"

#include <atomic>

#include "support/clock.h"
#include "support/guards.h"
#include "support/log_file.h"
#include "support/settings.h"
#include "support/text.h"

LONG LoggingLevel = 0;
LONG EVLoggingLevel = 0;
LONG LogLevel = 0;
WCHAR EventSourceName[256] = {};

// Set by the first event record and never released: it ends with the process.
static std::atomic<HANDLE> EventSourceHandle{nullptr};

// Room for a composed line of 10000 characters and its terminator; what is longer is cut.
static constexpr size_t kTextChars = 10000 + 1;

void LogAttach()
{
    SettingsReadText(HKEY_LOCAL_MACHINE, TEXT("EventLog"), EventSourceName, 256);
    if (!EventSourceName[0])
        TextCopyCut(EventSourceName, 256, TEXT("Application"));
    LoggingLevel = static_cast<LONG>(SettingsReadNumber(HKEY_LOCAL_MACHINE, TEXT("LoggingLevel")));
    LogLevel = LoggingLevel;
    EVLoggingLevel = static_cast<LONG>(SettingsReadNumber(HKEY_LOCAL_MACHINE, TEXT("EVLoggingLevel")));
    if (EVLoggingLevel > LogLevel)
        LogLevel = EVLoggingLevel;
    if (LoggingLevel > 0)
        LogFileWriteDate();
}

static WORD EventType(LONG level)
{
    switch (level) {
        case LOG_ERROR_LEVEL:
            return EVENTLOG_ERROR_TYPE;
        case LOG_WARNING_LEVEL:
            return EVENTLOG_WARNING_TYPE;
        default:
            return EVENTLOG_SUCCESS;
    }
}

static void ReportLine(const WCHAR* text, LONG level)
{
    HANDLE source = EventSourceHandle.load(std::memory_order_acquire);
    if (!source) {
        // Two threads may both get here, which costs a spare handle. A refusal is tried again with the next line.
        HANDLE registered = RegisterEventSourceW(nullptr, EventSourceName);
        if (!registered)
            return;
        source = EventSourceHandle.compare_exchange_strong(source, registered) ? registered : source;
    }
    const WCHAR* strings[1] = {text};
    ReportEventW(source, EventType(level), 0, 0, nullptr, 1, 0, strings, nullptr);
}

void LogWriteLine(const WCHAR* text, LONG level)
{
    const LastErrorKeeper keeper;
    if (!text)
        text = TEXT("(NULL)");
    if (level <= LogLevel)
        LogFileWriteLine(text, level);
    if (level <= EVLoggingLevel)
        ReportLine(text, level);
}

void LogWriteError(const WCHAR* message, DWORD code, LONG level)
{
    WCHAR text[kTextChars];
    TextWriter(text, kTextChars).Text(message).Text(TEXT(" Error 0x")).Hex(static_cast<uint32_t>(code));
    LogWriteLine(text, level);
}

void LogWriteString(const WCHAR* message, const WCHAR* value, LONG level)
{
    WCHAR text[kTextChars];
    TextWriter(text, kTextChars).Text(message).Text(TEXT(" ")).Text(value);
    LogWriteLine(text, level);
}

void LogWriteStrings(const WCHAR* message, const WCHAR* first, const WCHAR* second, LONG level)
{
    WCHAR text[kTextChars];
    TextWriter(text, kTextChars).Text(message).Text(TEXT(" ")).Text(first).Text(TEXT(" ")).Text(second);
    LogWriteLine(text, level);
}

void LogWriteNumber(const WCHAR* message, const WCHAR* value, LONG number, LONG level)
{
    WCHAR text[kTextChars];
    TextWriter(text, kTextChars).Text(message).Text(TEXT(" ")).Text(value).Text(TEXT(" ")).Number(number);
    LogWriteLine(text, level);
}

void LogWriteData(const WCHAR* message, const WCHAR* value)
{
    WCHAR text[kTextChars];
    TextWriter(text, kTextChars).Text(message).Text(TEXT(" ")).Text(value).Text(TEXT(" (NULL)"));
    LogWriteLine(text, LOG_DETAIL_LEVEL);
}

void LogWriteAscii(const WCHAR* message, const char* value)
{
    WCHAR text[kTextChars];
    TextWriter(text, kTextChars).Text(message).Text(TEXT(" ")).Bytes(value);
    LogWriteLine(text, LOG_ERROR_LEVEL);
}
