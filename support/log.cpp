#include "support/log.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>

#include "support/clock.h"
#include "support/guards.h"
#include "support/log_file.h"
#include "support/settings.h"
#include "support/text.h"

namespace {

// Set by the first event; closed by the end of the process.
std::atomic<HANDLE> EventSourceHandle{nullptr};

WORD EventType(LONG level)
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

void ReportLine(const WCHAR* text, LONG level)
{
    HANDLE source = EventSourceHandle.load(std::memory_order_acquire);
    if (!source) {
        // Two threads may both get here, which leaks one handle. After a failure the next line tries again.
        HANDLE registered = RegisterEventSourceW(nullptr, EventSourceName);
        if (!registered)
            return;
        source = EventSourceHandle.compare_exchange_strong(source, registered) ? registered : source;
    }
    const WCHAR* strings[1] = {text};
    ReportEventW(source, EventType(level), 0, 0, nullptr, 1, 0, strings, nullptr);
}

// text: cchText characters and a terminator.
void WriteText(const WCHAR* text, size_t cchText, LONG level)
{
    if (level <= LogLevel)
        LogFileWriteLine(TextView(text, cchText), level);
    if (level <= EVLoggingLevel)
        ReportLine(text, level);
}

// A piece of a line: 16-bit units at any alignment, or bytes that become one character each.
struct Piece {
    const void* data;
    size_t length;
    bool isWide;
};

Piece WidePiece(TextView text)
{
    return {text.data(), text.size(), true};
}

Piece WidePiece(const WCHAR* text)
{
    return WidePiece(text ? TextView(text) : TextView(TEXT("(NULL)")));
}

constexpr Piece kBlank = {TEXT(" "), 1, true};

size_t ComposedLength(const Piece* pieces, size_t count)
{
    size_t length = 0;
    for (size_t i = 0; i < count; i++)
        length += std::min(pieces[i].length, kLogTextLimit - length);
    return length;
}

// Writes the pieces as one text, cut at kLogTextLimit. A host's stack may be small, so only a short text is composed on
// it. A longer one is composed on the heap, and cut to a short one if there is no memory.
void WritePieces(const Piece* pieces, size_t count, LONG level)
{
    const LastErrorKeeper keeper;
    WCHAR brief[kLogBriefLimit + 1];
    size_t capacity = ComposedLength(pieces, count) + 1;
    MallocPtr<WCHAR> block;
    if (capacity > kLogBriefLimit + 1) {
        block.reset(static_cast<WCHAR*>(malloc(capacity * sizeof(WCHAR))));
        if (!block)
            capacity = kLogBriefLimit + 1;
    }
    WCHAR* const text = block ? block.get() : brief;
    TextWriter writer(text, capacity);
    for (size_t i = 0; i < count; i++) {
        if (pieces[i].isWide)
            writer.Units(pieces[i].data, pieces[i].length);
        else
            writer.Bytes(static_cast<const char*>(pieces[i].data), pieces[i].length);
    }
    WriteText(text, writer.length(), level);
}

template <size_t count>
void WritePieces(const Piece (&pieces)[count], LONG level)
{
    WritePieces(pieces, count, level);
}

// The number of 16-bit units before the terminator, or in cbText bytes if there is none.
size_t UnitsAt(const BYTE* text, size_t cbText)
{
    size_t count = 0;
    for (; count < cbText / sizeof(WCHAR) && count < kLogTextLimit; count++) {
        if (!text[count * sizeof(WCHAR)] && !text[count * sizeof(WCHAR) + 1])
            break;
    }
    return count;
}

}  // namespace

LONG LoggingLevel = 0;
LONG EVLoggingLevel = 0;
LONG LogLevel = 0;
WCHAR EventSourceName[256] = {};

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

void LogProcessEnds()
{
    EVLoggingLevel = 0;
}

void LogWriteLine(const WCHAR* text, LONG level)
{
    const LastErrorKeeper keeper;
    if (!text)
        text = TEXT("(NULL)");
    WriteText(text, View(text).size(), level);
}

void LogWriteError(const WCHAR* message, DWORD code, LONG level)
{
    WCHAR digits[16];
    TextWriter(digits, 16).Hex(static_cast<uint32_t>(code));
    WritePieces({WidePiece(message), WidePiece(TEXT(" Error 0x")), WidePiece(digits)}, level);
}

void LogWriteString(const WCHAR* message, const WCHAR* value, LONG level)
{
    WritePieces({WidePiece(message), kBlank, WidePiece(value)}, level);
}

void LogWriteStrings(const WCHAR* message, const WCHAR* first, const WCHAR* second, LONG level)
{
    WritePieces({WidePiece(message), kBlank, WidePiece(first), kBlank, WidePiece(second)}, level);
}

void LogWriteNumber(const WCHAR* message, const WCHAR* value, LONG number, LONG level)
{
    WCHAR digits[16];
    TextWriter(digits, 16).Number(number);
    WritePieces({WidePiece(message), kBlank, WidePiece(value), kBlank, WidePiece(digits)}, level);
}

void LogWriteData(const WCHAR* message, const WCHAR* value)
{
    WritePieces({WidePiece(message), kBlank, WidePiece(value), WidePiece(TEXT(" (NULL)"))}, LOG_DETAIL_LEVEL);
}

void LogWriteHostText(const WCHAR* message, const WCHAR* name, const BYTE* text, DWORD cbText, LONG level)
{
    const Piece value = text ? Piece{text, UnitsAt(text, cbText), true} : WidePiece(nullptr);
    WritePieces({WidePiece(message), kBlank, WidePiece(name), kBlank, value}, level);
}

void LogWriteAscii(const WCHAR* message, const char* value)
{
    const Piece bytes = value ? Piece{value, strlen(value), false} : WidePiece(nullptr);
    WritePieces({WidePiece(message), kBlank, bytes}, LOG_ERROR_LEVEL);
}
