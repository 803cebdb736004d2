// What all commands share: the global options, how they answer, how they come by the provider.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kelvaroctl/failure.h"
#include "kelvaroctl/module_host.h"
#include "kelvaroctl/settings_hive.h"

namespace kelvaroctl {

using Json = nlohmann::ordered_json;

// What a command found out, in both forms.
struct Answer {
    Json object = Json::object();
    std::string text;
    ExitCode exit = ExitCode::Ok;
};

class Tool {
  public:
    bool json = false;
    std::string modulePath;
    std::string via = "module";  // or "ncrypt": through the platform's router
    bool user = false;

    SettingsHive hive() const { return SettingsHive(user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE); }

    // Throws a configuration failure when the settings of this scope are damaged: the module would quietly run without
    // them.
    std::unique_ptr<Provider> OpenProvider() const;

    // Goes to standard error at once, or into the JSON answer.
    void Warn(const std::string& text);
    const std::vector<std::string>& warnings() const { return warnings_; }

  private:
    std::vector<std::string> warnings_;
};

}  // namespace kelvaroctl
