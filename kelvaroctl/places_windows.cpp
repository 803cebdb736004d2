#include <fcntl.h>
#include <io.h>
#include <stdio.h>

#include "kelvaroctl/places.h"

#include "kelvaroctl/failure.h"
#include "platform/product.h"

namespace kelvaroctl {

const char kModuleFile[] = "kelvaro.dll";

std::string InstalledModule()
{
    WCHAR folder[MAX_PATH];
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    if (!length || length >= MAX_PATH)
        throw ConfigurationFailure("cannot get the path of Windows' system folder: " + LoaderMessage(GetLastError()));
    return ToNarrow(WideText(folder, length)) + "\\" + kModuleFile;
}

std::string SettingsPlace(HKEY hive)
{
    return std::string(hive == HKEY_LOCAL_MACHINE ? "HKEY_LOCAL_MACHINE" : "HKEY_CURRENT_USER") + "\\" +
           ToNarrow(kSettingsKey);
}

std::string FilePlace(const WideText& name)
{
    return ToNarrow(name);
}

void RemoveFileNow(const wchar_t* file)
{
    DeleteFileW(file);
}

void EndErrorLine()
{
    _write(_fileno(stderr), "\n", 1);
}

void ReadInputAsBytes()
{
    _setmode(_fileno(stdin), _O_BINARY);
}

std::string LoaderMessage(DWORD error)
{
    WCHAR text[512];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                                        text, sizeof(text) / sizeof(text[0]), nullptr);
    const WideText message(text, length);
    const size_t end = message.find_last_not_of(TEXT("\r\n ."));
    return (length ? ToNarrow(message.substr(0, end + 1)) + ", " : std::string()) + "error " + std::to_string(error);
}

}  // namespace kelvaroctl
