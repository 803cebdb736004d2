#include "kelvaroctl/log_place.h"

#include <algorithm>
#include <filesystem>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/file_access.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

LogPlace FindLog()
{
    const SettingsHive machine(HKEY_LOCAL_MACHINE);
    LogPlace log;
    for (const char* name : {"LoggingLevel", "EVLoggingLevel"})
        log.level = static_cast<DWORD>(
            std::max(static_cast<LONG>(log.level), static_cast<LONG>(ReadSetting(machine, name).number)));
    const WideText folder = ReadSetting(machine, "LogfilePath").text;
    // One file for each day in UTC.
    log.file = FilePlace(folder + ToWide(UtcText(time(nullptr), "\\%Y-%m-%d_Kelvaro.log")));
    std::error_code ignored;
    const std::filesystem::path place = std::filesystem::u8path(log.file).parent_path();
    log.folderExists = std::filesystem::is_directory(place, ignored);
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

}  // namespace kelvaroctl
