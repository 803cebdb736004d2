// Where things are on this operating system. Each system has its own source, chosen by the build.
#pragma once

#include <filesystem>
#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

// The module's file, without a folder.
extern const char kModuleFile[];

// The installed module, in the form that the loader expects. Windows: its path in the system folder, so that no other
// folder is searched.
std::string InstalledModule();

// Where an administrator can repair the settings of a hive: the hive's file or the key's path.
std::string SettingsPlace(HKEY hive);

// The native path of a file that the provider names in Windows' form.
std::string FilePlace(const WideText& name);

// For signal handlers.
void RemoveFileNow(const std::filesystem::path::value_type* file);
void EndErrorLine();  // of standard error

// Switches standard input to binary mode.
void ReadInputAsBytes();

// Why the last LoadLibraryW of this thread failed.
std::string LoaderMessage(DWORD error);

}  // namespace kelvaroctl
