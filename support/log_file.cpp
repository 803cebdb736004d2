#include "support/log_file.h"

#include <stdlib.h>
#include <time.h>

#include "support/clock.h"
#include "support/guards.h"
#include "support/settings.h"
#include "support/text.h"

namespace {

// UTF-8 takes up to three bytes for a 16-bit unit.
constexpr size_t kUnitBytes = 3;
// Room for the rest of the line, in bytes: prefix, stamp, level and line end.
constexpr size_t kFrameBytes = 64;

// "directory\year-month-day_Kelvaro.log" of the current UTC date.
bool ComposePath(WCHAR (&path)[1024])
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

// "Kelvaro: 2026-01-31 09:05:07 ", in local time.
void WriteHead(TextWriter* head)
{
    head->Text(TEXT("Kelvaro: "));
    const __time64_t now = ClockUnixTime();
    struct tm date = {};
    if (_localtime64_s(&date, &now) == 0) {
        head->Padded(static_cast<uint32_t>(date.tm_year + 1900), 4)
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
    head->Text(TEXT(" "));
}

// A line in UTF-8, in a buffer that is large enough for it.
class LineBytes {
  public:
    LineBytes(char* bytes, size_t capacity) : bytes_(bytes), capacity_(capacity) {}

    void Append(TextView text)
    {
        if (text.empty())
            return;
        const int converted =
            WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes_ + length_,
                                static_cast<int>(capacity_ - length_), nullptr, nullptr);
        length_ += converted > 0 ? static_cast<size_t>(converted) : 0;
    }

    // A single write, so that lines of other threads don't get mixed in.
    void WriteTo(HANDLE file)
    {
        Append(TEXT(PLATFORM_LINE_END));
        DWORD written = 0;
        WriteFile(file, bytes_, static_cast<DWORD>(length_), &written, nullptr);
    }

  private:
    char* bytes_;
    size_t capacity_;
    size_t length_ = 0;
};

bool IsLineBreak(WCHAR unit)
{
    return (unit >= '\n' && unit <= '\r') || unit == 0x85 || unit == 0x2028 || unit == 0x2029;
}

// Appends the text with each line break replaced by a space.
void AppendFlat(LineBytes* line, TextView text)
{
    while (!text.empty()) {
        size_t flat = 0;
        while (flat < text.size() && !IsLineBreak(text[flat]))
            flat++;
        line->Append(TextView(text.data(), flat));
        if (flat < text.size()) {
            line->Append(TEXT(" "));
            flat++;
        }
        text.remove_prefix(flat);
    }
}

}  // namespace

HANDLE LogOpenFile()
{
    WCHAR path[1024];
    if (!ComposePath(path))
        return INVALID_HANDLE_VALUE;
    return CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void LogFileWriteLine(TextView text, LONG level)
{
    const HANDLE file = LogOpenFile();
    if (file == INVALID_HANDLE_VALUE)
        return;
    char brief[kLogBriefLimit * kUnitBytes + kFrameBytes];
    text = text.substr(0, kLogTextLimit);
    MallocPtr<char> block;
    if (text.size() > kLogBriefLimit) {
        block.reset(static_cast<char*>(malloc(text.size() * kUnitBytes + kFrameBytes)));
        if (!block)
            text = text.substr(0, kLogBriefLimit);
    }
    LineBytes line(block ? block.get() : brief, text.size() * kUnitBytes + kFrameBytes);
    WCHAR room[kFrameBytes];
    TextWriter head(room, kFrameBytes);
    WriteHead(&head);
    line.Append(TextView(room, head.length()));
    AppendFlat(&line, text);
    TextWriter tail(room, kFrameBytes);
    tail.Text(TEXT(" ")).Number(level);
    line.Append(TextView(room, tail.length()));
    line.WriteTo(file);
    CloseHandle(file);
}

void LogFileWriteDate()
{
    const HANDLE file = LogOpenFile();
    if (file == INVALID_HANDLE_VALUE)
        return;
    const __time64_t now = ClockUnixTime();
    const WCHAR* date = _wctime64(&now);
    TextView text = View(date);
    if (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    char room[kFrameBytes];
    LineBytes line(room, kFrameBytes);
    line.Append(text);
    line.WriteTo(file);
    CloseHandle(file);
}
