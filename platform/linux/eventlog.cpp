#include "platform/linux/win_eventlog.h"

#include <stdio.h>
#include <time.h>

#include <mutex>
#include <string>

#include "platform/linux/file_store.h"
#include "platform/linux/fork_safe_lock.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/text.h"

namespace {

constexpr size_t kSourceCount = 32;
constexpr size_t kMaxSourceLength = 255;

// A registered source: its handle is the record's address. Sources are never removed: callers
// need not release handles and may share them. Nothing here has a destructor.
struct Source {
    size_t length;
    char16_t name[kMaxSourceLength];
};
ForkSafeLock sourcesLock;
Source sources[kSourceCount];
size_t sourceCount = 0;

HANDLE RegisterSource(std::u16string_view name)
{
    const std::lock_guard<ForkSafeLock> hold(sourcesLock);
    for (size_t i = 0; i < sourceCount; i++) {
        if (name == std::u16string_view(sources[i].name, sources[i].length))
            return &sources[i];
    }
    if (sourceCount == kSourceCount)
        return nullptr;
    Source& source = sources[sourceCount];
    name.copy(source.name, name.size());
    source.length = name.size();
    sourceCount++;
    return &source;
}

// Empty for an invalid handle.
std::u16string SourceName(HANDLE handle)
{
    const std::lock_guard<ForkSafeLock> hold(sourcesLock);
    for (size_t i = 0; i < sourceCount; i++) {
        if (handle == &sources[i])
            return std::u16string(sources[i].name, sources[i].length);
    }
    return {};
}

// A source's name may contain characters that aren't allowed in a file name.
std::string FileOf(std::u16string_view source)
{
    std::string file = ToUtf8(source);
    for (char& c : file) {
        if (c == '/' || c == '\\' || static_cast<unsigned char>(c) < 0x20)
            c = '_';
    }
    if (file[0] == '.')
        file[0] = '_';
    return RootDirectory() + "/eventlog/" + file + ".jsonl";
}

std::string JsonText(std::u16string_view text)
{
    std::string result = "\"";
    for (const char c : ToUtf8(text)) {
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            result += escape;
        } else {
            result += c;
        }
    }
    return result + '"';
}

std::string UtcStamp()
{
    const time_t now = time(nullptr);
    struct tm parts;
    char stamp[32];
    if (!gmtime_r(&now, &parts) || strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return "";
    return stamp;
}

}  // namespace

HANDLE WINAPI RegisterEventSourceW(LPCWSTR server, LPCWSTR source)
{
    const std::u16string_view name = ViewOf(source);
    if (server || name.empty() || name.size() > kMaxSourceLength) {
        Fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HANDLE handle = RegisterSource(name);
    if (!handle)
        Fail(ERROR_NO_SYSTEM_RESOURCES);
    return handle;
}

BOOL WINAPI ReportEventW(HANDLE eventLog, WORD type, WORD, DWORD, PSID, WORD stringCount, DWORD, LPCWSTR* strings,
                         LPVOID)
{
    return Succeeds([&]() -> LONG {
        const std::u16string source = SourceName(eventLog);
        if (source.empty())
            return ERROR_INVALID_HANDLE;
        if (stringCount > 0 && (!strings || !strings[0]))
            return ERROR_INVALID_PARAMETER;
        const std::u16string_view text = stringCount > 0 ? ViewOf(strings[0]) : std::u16string_view();
        return AppendToFile(FileOf(source), "{\"time\":\"" + UtcStamp() + "\",\"type\":" + std::to_string(type) +
                                                ",\"text\":" + JsonText(text) + "}\n");
    });
}
