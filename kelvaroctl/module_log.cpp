#include "kelvaroctl/module_log.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/file_access.h"
#include "kelvaroctl/log_table.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

namespace fs = std::filesystem;

LogPlace FindLog()
{
    const SettingsHive machine(HKEY_LOCAL_MACHINE);
    LogPlace log;
    for (const char* name : {"LoggingLevel", "EVLoggingLevel"})
        log.level = static_cast<DWORD>(
            std::max(static_cast<LONG>(log.level), static_cast<LONG>(ReadSetting(machine, name).number)));
    WideText file(WideView(ReadSetting(machine, "LogfilePath").text));
    // One file for each day in UTC.
    log.file = FilePlace(file += ToWide(UtcText(time(nullptr), "\\%Y-%m-%d_Kelvaro.log")));
    std::error_code ignored;
    const fs::path place = fs::u8path(log.file).parent_path();
    log.folderExists = fs::is_directory(place, ignored);
    log.othersCanWrite = log.folderExists && OthersCanWrite(place.u8string());
    return log;
}

std::string LogAdvice(const LogPlace& log)
{
    if (!log.level)
        return "logging is off: kelvaroctl config set LoggingLevel 10";
    if (!log.folderExists)
        return "log: " + log.file + " (its folder does not exist, so nothing is written)";
    if (log.othersCanWrite)
        return "log: " + log.file + " (ordinary users can write to its folder: choose another for LogfilePath)";
    return "log: " + log.file;
}

namespace {

constexpr DWORD kWarning = 2;
// A long listing at level 10 writes more; the cause is in the first lines.
constexpr size_t kLargestPart = 4 * 1024 * 1024;
// As in "Kelvaro: 2026-01-31 09:05:07 TEXT LEVEL".
constexpr char kLineHead[] = "Kelvaro: ";
constexpr size_t kHeadLength = sizeof("Kelvaro: 2026-01-31 09:05:07 ") - 1;

std::string PartOf(const std::string& file, uintmax_t begin)
{
    std::ifstream stream(fs::u8path(file), std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(begin));
    std::string part(kLargestPart, 0);
    stream.read(part.data(), static_cast<std::streamsize>(part.size()));
    part.resize(static_cast<size_t>(std::max<std::streamsize>(stream.gcount(), 0)));
    return part;
}

// False: not a line of the module.
bool ParseLine(std::string_view line, LogLine* parsed)
{
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    const size_t blank = line.rfind(' ');
    if (line.substr(0, sizeof(kLineHead) - 1) != kLineHead || line.size() < kHeadLength || blank < kHeadLength)
        return false;
    const std::optional<DWORD> level = ParseNumber(std::string(line.substr(blank + 1)));
    parsed->text = line.substr(kHeadLength, blank - kHeadLength);
    parsed->text.erase(parsed->text.find_last_not_of(' ') + 1);
    parsed->level = level.value_or(0);
    return level.has_value();
}

void Add(const LogLine& line, std::vector<LogLine>* lines)
{
    if (!lines->empty() && lines->back().text == line.text)
        ++lines->back().times;
    else if (line.level <= kWarning || (NumberOfLogText(line.text) && ExplainLogText(line.text, line.level)))
        lines->push_back(line);
}

void AddPart(const std::string& part, std::vector<LogLine>* lines)
{
    std::vector<std::string_view> whole = Split(part, "\n");
    whole.pop_back();  // not ended yet
    for (const std::string_view text : whole) {
        LogLine line;
        if (ParseLine(text, &line))
            Add(line, lines);
    }
}

// A line that only repeats the failure's status.
bool Repeats(const LogLine& line, std::optional<SECURITY_STATUS> status)
{
    return status && NumberOfLogText(line.text) == static_cast<DWORD>(*status);
}

// "0x193: the identity may not do that"; empty if the line has no number that is known.
std::string NumberWords(const std::string& text, std::string* remedy)
{
    const std::optional<DWORD> number = NumberOfLogText(text);
    const auto known = number ? ExplainLogNumber(*number) : std::nullopt;
    if (!known)
        return "";
    // The document says "the number's row above".
    if (remedy->find("the number's row") == 0)
        *remedy = known->remedy;
    return text.substr(text.rfind(' ') + 1) + ": " + known->cause;
}

}  // namespace

LogMark::LogMark()
{
    const std::optional<LogPlace> log = IfPossible(FindLog);
    if (!log || !log->level)
        return;
    file_ = log->file;
    std::error_code missing;
    const uintmax_t size = fs::file_size(fs::u8path(file_), missing);
    size_ = missing ? 0 : size;
}

std::vector<LogLine> LogMark::Lines() const
{
    std::vector<LogLine> lines;
    if (file_.empty())
        return lines;
    AddPart(PartOf(file_, size_), &lines);
    // After midnight the module writes to the next day's file.
    const std::optional<LogPlace> log = IfPossible(FindLog);
    if (log && log->file != file_)
        AddPart(PartOf(log->file, 0), &lines);
    return lines;
}

std::string LogLinesText(const std::vector<LogLine>& lines, std::optional<SECURITY_STATUS> status)
{
    std::string text;
    std::string explained;  // a row once
    for (const LogLine& line : lines) {
        text +=
            "  " + Printable(line.text) + (line.times > 1 ? " (" + std::to_string(line.times) + " times)" : "") + "\n";
        std::optional<LogExplanation> known = ExplainLogText(line.text, line.level);
        if (!known || Repeats(line, status))
            continue;
        const std::string number = NumberWords(line.text, &known->remedy);
        const std::string words = "    means: " + known->cause + "\n" + (number.empty() ? "" : "    " + number + "\n") +
                                  "    do: " + known->remedy + "\n";
        if (explained.find(words) != std::string::npos)
            continue;
        explained += words;
        text += words;
    }
    return text;
}

Json LogLinesObject(const std::vector<LogLine>& lines)
{
    Json array = Json::array();
    for (const LogLine& line : lines) {
        Json object = {{"text", line.text}, {"level", line.level}, {"times", line.times}};
        if (auto known = ExplainLogText(line.text, line.level)) {
            const std::string number = NumberWords(line.text, &known->remedy);
            object["cause"] = known->cause;
            object["remedy"] = known->remedy;
            if (!number.empty())
                object["number"] = number;
        }
        array.push_back(std::move(object));
    }
    return array;
}

bool SayWhy(const std::vector<LogLine>& lines, std::optional<SECURITY_STATUS> status)
{
    return std::any_of(lines.begin(), lines.end(), [&](const LogLine& line) { return !Repeats(line, status); });
}

}  // namespace kelvaroctl
