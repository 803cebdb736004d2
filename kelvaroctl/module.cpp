#include <filesystem>
#include <vector>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/module_host.h"
#include "kelvaroctl/places.h"
#include "kelvaroctl/provider_binding.h"

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

namespace {
class Module : public ProviderBinding {
  public:
    explicit Module(const std::string& path);
    ~Module() override { FreeLibrary(handle_); }

  private:
    HMODULE handle_ = nullptr;
};
}  // namespace

Module::Module(const std::string& path)
{
    place_ = path.empty() ? DefaultModule() : path;
    // The loader would search for a bare file name elsewhere.
    if (!path.empty())
        place_ = fs::absolute(fs::u8path(path)).u8string();
    handle_ = LoadLibraryW(ToWide(place_).c_str());
    if (!handle_)
        throw ConfigurationFailure("cannot load the module " + place_ + ": " + LoaderMessage(GetLastError()));
    const auto getInterface = reinterpret_cast<GetKeyStorageInterfaceFn>(
        reinterpret_cast<void (*)()>(GetProcAddress(handle_, "GetKeyStorageInterface")));
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    if (!getInterface || getInterface(kProviderName, &table, 0) != 0 || !table) {
        FreeLibrary(handle_);
        throw ConfigurationFailure(place_ + " is not a key storage provider");
    }
    if (table->Version.MajorVersion != 1) {
        FreeLibrary(handle_);
        throw ConfigurationFailure(place_ + " has version " + std::to_string(table->Version.MajorVersion) +
                                   " of the provider interface; this tool supports version 1");
    }
    table_ = table;
    statesAreModules_ = true;
}

std::unique_ptr<ProviderBinding> LoadModule(const std::string& path)
{
    return std::make_unique<Module>(path);
}

}  // namespace kelvaroctl
