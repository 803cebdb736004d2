// How the tool calls the provider: through a function table, from the module itself or from the platform's router.
#pragma once

#include <string>

#include "kelvaroctl/owner.h"
#include "platform/cng_provider.h"

namespace kelvaroctl {

struct ProviderBinding {
    Owner<std::remove_pointer_t<HMODULE>, FreeLibrary> module;  // NULL: the router chooses it
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    std::string place = {};  // for messages: the module's path, or who chooses the module
};

// Loads the module. path: empty for the one beside this program or, if there is none, the installed one. Throws a
// configuration failure.
ProviderBinding LoadModule(const std::string& path);

// Uses the platform's key storage router, as other programs do. Throws a usage failure on systems without one. Each
// system has its own source, chosen by the build.
ProviderBinding OpenRouter();

}  // namespace kelvaroctl
