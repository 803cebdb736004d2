#include <filesystem>
#include <vector>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/module_host.h"
#include "kelvaroctl/places.h"

namespace kelvaroctl {

namespace fs = std::filesystem;

// The module beside this program, else the installed one.
static std::string DefaultModule()
{
    std::vector<WCHAR> path(4096);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length && length < path.size()) {
        const fs::path beside = fs::u8path(ToNarrow(path.data())).parent_path() / kModuleFile;
        std::error_code ignored;
        if (fs::exists(beside, ignored))
            return beside.u8string();
    }
    return InstalledModule();
}

ProviderBinding LoadModule(const std::string& path)
{
    ProviderBinding binding;
    // The loader would search for a bare file name elsewhere.
    binding.place = path.empty() ? DefaultModule() : fs::absolute(fs::u8path(path)).u8string();
    binding.module.reset(LoadLibraryW(ToWide(binding.place).c_str()));
    if (!binding.module)
        throw ConfigurationFailure("cannot load the module " + binding.place + ": " + LoaderMessage(GetLastError()));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFn>(
        reinterpret_cast<void (*)()>(GetProcAddress(binding.module.get(), "GetKeyStorageInterface")));
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    if (!getInterface || getInterface(kProviderName, &table, 0) != 0 || !table)
        throw ConfigurationFailure(binding.place + " is not a key storage provider");
    if (table->Version.MajorVersion != 1) {
        throw ConfigurationFailure(binding.place + " has version " + std::to_string(table->Version.MajorVersion) +
                                   " of the provider interface; this tool supports version 1");
    }
    binding.table = table;
    return binding;
}

}  // namespace kelvaroctl
