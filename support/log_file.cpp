#include "support/log_file.h"

#include <string.h>
#include <time.h>

#include "support/clock.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/settings.h"
#include "support/text.h"

// A composed line: the text's 10000 characters with prefix, stamp and level around it, of up to three bytes a
// character.
static constexpr size_t kLineChars = 10000 + 64;
static constexpr size_t kLineBytes = kLineChars * 3;

// "directory\year-month-day_Kelvaro.log" of the current UTC date.
static bool ComposePath(WCHAR (&path)[1024])
{
    WCHAR directory[256];
    SettingsReadText(HKEY_LOCAL_MACHINE, TEXT("LogfilePath"), directory, sizeof(directory));
    const __time64_t now = ClockUnixTime();
    struct tm date = {};
    if (_gmtime64_s(&date, &now) != 0)
        return false;
    TextWriter(path, 1024)
        .Text(directory[0] ? directory : TEXT("C:"))
        .Text(TEXT("\\"))
        .Padded(static_cast<uint32_t>(date.tm_year + 1900), 4)
        .Text(TEXT("-"))
        .Padded(static_cast<uint32_t>(date.tm_mon + 1), 2)
        .Text(TEXT("-"))
        .Padded(static_cast<uint32_t>(date.tm_mday), 2)
        .Text(TEXT("_Kelvaro.log"));
    return true;
}

HANDLE LogOpenFile()
{
    WCHAR path[1024];
    if (!ComposePath(path))
        return INVALID_HANDLE_VALUE;
    return CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Local time as "2026-01-31 09:05:07".
static void WriteStamp(TextWriter* line, int64_t unixTime)
{
    const __time64_t now = unixTime;
    struct tm date = {};
    if (_localtime64_s(&date, &now) != 0)
        return;
    line->Padded(static_cast<uint32_t>(date.tm_year + 1900), 4)
        .Text(TEXT("-"))
        .Padded(static_cast<uint32_t>(date.tm_mon + 1), 2)
        .Text(TEXT("-"))
        .Padded(static_cast<uint32_t>(date.tm_mday), 2)
        .Text(TEXT(" "))
        .Padded(static_cast<uint32_t>(date.tm_hour), 2)
        .Text(TEXT(":"))
        .Padded(static_cast<uint32_t>(date.tm_min), 2)
        .Text(TEXT(":"))
        .Padded(static_cast<uint32_t>(date.tm_sec), 2);
}

// Appends `line` and the platform's line end in UTF-8. `room` is the work buffer of the conversion.
static void AppendLine(HANDLE file, TextView line, char (&room)[kLineBytes + 2])
{
    const int converted = WideCharToMultiByte(CP_UTF8, 0, line.data(), static_cast<int>(line.size()), room,
                                              static_cast<int>(kLineBytes), nullptr, nullptr);
    const size_t length = converted > 0 ? static_cast<size_t>(converted) : 0;
    memcpy(room + length, PLATFORM_LINE_END, strlen(PLATFORM_LINE_END));
    DWORD written = 0;
    WriteFile(file, room, static_cast<DWORD>(length + strlen(PLATFORM_LINE_END)), &written, nullptr);
}

void LogFileWriteLine(const WCHAR* text, LONG level)
{
    const HANDLE file = LogOpenFile();
    if (file == INVALID_HANDLE_VALUE)
        return;
    WCHAR line[kLineChars];
    char room[kLineBytes + 2];
    TextWriter writer(line, kLineChars);
    writer.Text(TEXT("Kelvaro: "));
    WriteStamp(&writer, ClockUnixTime());
    // Composed texts have up to 10000 characters; a longer one is cut here, so that the level always fits behind it.
    writer.Text(TEXT(" ")).Text(View(text).substr(0, 10000)).Text(TEXT(" ")).Number(level);
    AppendLine(file, TextView(line, writer.length()), room);
    CloseHandle(file);
}

void LogFileWriteDate()
{
    const HANDLE file = LogOpenFile();
    if (file == INVALID_HANDLE_VALUE)
        return;
    const __time64_t now = ClockUnixTime();
    const WCHAR* date = _wctime64(&now);
    TextView line = View(date);
    if (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    char room[kLineBytes + 2];
    AppendLine(file, line, room);
    CloseHandle(file);
}
