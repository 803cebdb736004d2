// The way from this tool to the provider: what answers the calls of its function table.
#pragma once

#include <memory>
#include <string>

#include "platform/cng_provider.h"

namespace kelvaroctl {

class Road {
  public:
    Road() = default;
    virtual ~Road() = default;
    Road(const Road&) = delete;
    Road& operator=(const Road&) = delete;

    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return *table_; }
    // The module's path, or what finds it.
    const std::string& place() const { return place_; }

  protected:
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
    std::string place_;
};

// Loads the module. path: empty for the one beside this program, else in the loader's path. Throws a configuration
// failure.
std::unique_ptr<Road> LoadModule(const std::string& path);

// Through the platform's key storage router, as other programs come to the provider. Throws a usage failure where there
// is none. One body a system, chosen by the build.
std::unique_ptr<Road> OpenRouter();

}  // namespace kelvaroctl
