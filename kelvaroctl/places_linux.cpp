// Uses the Linux layer's own headers: only the layer knows which files hold the registry and the log.
#include <dlfcn.h>
#include <unistd.h>

#include "kelvaroctl/places.h"
#include "platform/linux/paths.h"

namespace kelvaroctl {

const char kModuleFile[] = "libkelvaro.so";

std::string InstalledModule()
{
    return kModuleFile;
}

std::string SettingsPlace(HKEY hive)
{
    return hive == HKEY_LOCAL_MACHINE ? RootDirectory() + "/registry/HKEY_LOCAL_MACHINE.reg"
                                      : UserDirectory() + "/registry/HKEY_CURRENT_USER.reg";
}

std::string FilePlace(const WideText& name)
{
    const std::string native = NativePath(name.c_str());
    return native.empty() ? ToNarrow(name) : native;
}

void RemoveFileNow(const char* file)
{
    unlink(file);
}

void EndErrorLine()
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, "\n", 1);
}

void ReadInputAsBytes() {}

std::string LoaderMessage(DWORD error)
{
    const char* const message = dlerror();
    return message ? message : "error " + std::to_string(error);
}

}  // namespace kelvaroctl
