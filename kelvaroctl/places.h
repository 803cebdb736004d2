// Where things are on this operating system. One body a system, chosen by the build.
#pragma once

#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

// The module's file, without a folder.
extern const char kModuleFile[];

// What the loader is given for the installed module. Windows: its path in the system's folder, so that no other folder
// is searched.
std::string InstalledModule();

// What an administrator looks at to mend the settings of a hive: the hive's file or the key's path.
std::string SettingsPlace(HKEY hive);

// The file that a name of the platform stands for, as other programs know it.
std::string FilePlace(const WideText& name);

// Why the last LoadLibraryW of this thread failed.
std::string LoaderMessage(DWORD error);

}  // namespace kelvaroctl
