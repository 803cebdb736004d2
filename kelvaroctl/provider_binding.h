// How the tool reaches the provider: a function table, from the module itself or from the platform's router.
#pragma once

#include <memory>
#include <string>

#include "platform/cng_provider.h"

namespace kelvaroctl {

class ProviderBinding {
  public:
    ProviderBinding() = default;
    virtual ~ProviderBinding() = default;
    ProviderBinding(const ProviderBinding&) = delete;
    ProviderBinding& operator=(const ProviderBinding&) = delete;

    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return *table_; }
    // For people: the module's path, or who chooses the module.
    const std::string& place() const { return place_; }
    // Whether the state of an enumeration is the module's own block, not the router's.
    bool statesAreModules() const { return statesAreModules_; }

  protected:
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
    std::string place_;
    bool statesAreModules_ = false;
};

// Loads the module. path: empty for the one beside this program or, if there is none, the installed one. Throws a
// configuration failure.
std::unique_ptr<ProviderBinding> LoadModule(const std::string& path);

// Uses the platform's key storage router, as other programs do. Throws a usage failure on systems without one. Each
// system has its own source, chosen by the build.
std::unique_ptr<ProviderBinding> OpenRouter();

}  // namespace kelvaroctl
